// The numbers of the enumerations: other programs store them and compare them.

#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <type_traits>
#include <vector>

namespace kel {

namespace {

using testing::ElementsAre;

template <ElementFactoryType T>
using InstanceTypeOf = typename ElementFactoryType_traits<T>::InstanceType;

static_assert(std::is_same_v<InstanceTypeOf<ElementFactoryType::AudioSource>, IAudioSource>);
static_assert(std::is_same_v<InstanceTypeOf<ElementFactoryType::AudioSink>, IAudioSink>);
static_assert(std::is_same_v<InstanceTypeOf<ElementFactoryType::MemoryBlockAllocator>,
                             IMemoryBlockAllocator>);

template <typename Enumeration>
std::vector<std::int32_t> Numbers(std::initializer_list<Enumeration> values) {
    static_assert(std::is_same_v<std::underlying_type_t<Enumeration>, std::int32_t>);
    static_assert(!std::is_convertible_v<Enumeration, std::int32_t>, "scoped");
    std::vector<std::int32_t> numbers;
    for (const Enumeration value : values) {
        numbers.push_back(static_cast<std::int32_t>(value));
    }
    return numbers;
}

TEST(TheEnumerations, HaveTheirFixedNumbers) {
    EXPECT_THAT(Numbers({WrapperFormat::Unknown, WrapperFormat::AIFF, WrapperFormat::BWAVE,
                         WrapperFormat::RAW, WrapperFormat::WAVE}),
                ElementsAre(0, 1, 5, 28, 32));
    EXPECT_THAT(Numbers({ElementFactoryType::AudioSource, ElementFactoryType::AudioSink,
                         ElementFactoryType::MemoryBlockAllocator}),
                ElementsAre(2, 3, 23));
    EXPECT_THAT(Numbers({LogLevel::Info, LogLevel::Warning, LogLevel::Error, LogLevel::Reserved,
                         LogLevel::Milestone}),
                ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(Numbers({ContentType::Audio}), ElementsAre(1));
    EXPECT_THAT(Numbers({TrackLayout::Default}), ElementsAre(0));
    EXPECT_THAT(Numbers({ACodecFamily::Unknown, ACodecFamily::PCM}), ElementsAre(0, 2));
    EXPECT_THAT(Numbers({AudioPCMType::Undefined, AudioPCMType::Integer, AudioPCMType::Float}),
                ElementsAre(0, 1, 2));
    EXPECT_THAT(Numbers({PCMEndianness::Undefined, PCMEndianness::Little, PCMEndianness::Big}),
                ElementsAre(0, 1, 2));
    EXPECT_THAT(
        Numbers({PCMMuxing::Undefined, PCMMuxing::None, PCMMuxing::Multi, PCMMuxing::Stereo}),
        ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(Numbers({MediaSourceDirection::Forward, MediaSourceDirection::Backward}),
                ElementsAre(0, 1));
    EXPECT_THAT(Numbers({CheckInputErrorType::None, CheckInputErrorType::Track,
                         CheckInputErrorType::Encoding}),
                ElementsAre(0, 1, 2));
    EXPECT_THAT(Numbers({ParameterKind::Integer, ParameterKind::String, ParameterKind::Collection}),
                ElementsAre(0, 1, 2));
}

} // namespace
} // namespace kel
