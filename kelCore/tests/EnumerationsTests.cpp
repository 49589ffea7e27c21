// The numbers behind the enumerations: others store them and compare them.

#include <kelCore.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace kel {

namespace {

template <typename Enumeration>
constexpr bool kIsScopedInt32 = std::is_same_v<std::underlying_type_t<Enumeration>, std::int32_t> &&
                                !std::is_convertible_v<Enumeration, std::int32_t>;

static_assert(kIsScopedInt32<WrapperFormat>);
static_assert(kIsScopedInt32<ElementFactoryType>);
static_assert(kIsScopedInt32<LogLevel>);
static_assert(kIsScopedInt32<ContentType>);
static_assert(kIsScopedInt32<TrackLayout>);
static_assert(kIsScopedInt32<ACodecFamily>);
static_assert(kIsScopedInt32<AudioPCMType>);
static_assert(kIsScopedInt32<PCMEndianness>);
static_assert(kIsScopedInt32<PCMMuxing>);
static_assert(kIsScopedInt32<MediaSourceDirection>);
static_assert(kIsScopedInt32<CheckInputErrorType>);
static_assert(kIsScopedInt32<ParameterKind>);

template <ElementFactoryType T>
using InstanceTypeOf = typename ElementFactoryType_traits<T>::InstanceType;

static_assert(std::is_same_v<InstanceTypeOf<ElementFactoryType::AudioSource>, IAudioSource>);
static_assert(std::is_same_v<InstanceTypeOf<ElementFactoryType::AudioSink>, IAudioSink>);
static_assert(std::is_same_v<InstanceTypeOf<ElementFactoryType::MemoryBlockAllocator>,
                             IMemoryBlockAllocator>);

struct Value {
    const char* name;
    std::int32_t actual;
    std::int32_t expected;
};

template <typename Enumeration>
constexpr std::int32_t Number(Enumeration value) {
    return static_cast<std::int32_t>(value);
}

void PrintTo(const Value& value, std::ostream* stream) {
    *stream << value.name;
}

class Enumerators : public testing::TestWithParam<Value> {};

TEST_P(Enumerators, HasItsFixedNumber) {
    EXPECT_EQ(GetParam().actual, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, Enumerators,
    testing::ValuesIn(std::vector<Value>{
        {"WrapperFormat_Unknown", Number(WrapperFormat::Unknown), 0},
        {"WrapperFormat_AIFF", Number(WrapperFormat::AIFF), 1},
        {"WrapperFormat_BWAVE", Number(WrapperFormat::BWAVE), 5},
        {"WrapperFormat_RAW", Number(WrapperFormat::RAW), 28},
        {"WrapperFormat_WAVE", Number(WrapperFormat::WAVE), 32},
        {"ElementFactoryType_AudioSource", Number(ElementFactoryType::AudioSource), 2},
        {"ElementFactoryType_AudioSink", Number(ElementFactoryType::AudioSink), 3},
        {"ElementFactoryType_MemoryBlockAllocator",
         Number(ElementFactoryType::MemoryBlockAllocator), 23},
        {"LogLevel_Info", Number(LogLevel::Info), 0},
        {"LogLevel_Warning", Number(LogLevel::Warning), 1},
        {"LogLevel_Error", Number(LogLevel::Error), 2},
        {"LogLevel_Reserved", Number(LogLevel::Reserved), 3},
        {"LogLevel_Milestone", Number(LogLevel::Milestone), 4},
        {"ContentType_Audio", Number(ContentType::Audio), 1},
        {"TrackLayout_Default", Number(TrackLayout::Default), 0},
        {"ACodecFamily_Unknown", Number(ACodecFamily::Unknown), 0},
        {"ACodecFamily_PCM", Number(ACodecFamily::PCM), 2},
        {"AudioPCMType_Undefined", Number(AudioPCMType::Undefined), 0},
        {"AudioPCMType_Integer", Number(AudioPCMType::Integer), 1},
        {"AudioPCMType_Float", Number(AudioPCMType::Float), 2},
        {"PCMEndianness_Undefined", Number(PCMEndianness::Undefined), 0},
        {"PCMEndianness_Little", Number(PCMEndianness::Little), 1},
        {"PCMEndianness_Big", Number(PCMEndianness::Big), 2},
        {"PCMMuxing_Undefined", Number(PCMMuxing::Undefined), 0},
        {"PCMMuxing_None", Number(PCMMuxing::None), 1},
        {"PCMMuxing_Multi", Number(PCMMuxing::Multi), 2},
        {"PCMMuxing_Stereo", Number(PCMMuxing::Stereo), 3},
        {"MediaSourceDirection_Forward", Number(MediaSourceDirection::Forward), 0},
        {"MediaSourceDirection_Backward", Number(MediaSourceDirection::Backward), 1},
        {"CheckInputErrorType_None", Number(CheckInputErrorType::None), 0},
        {"CheckInputErrorType_Track", Number(CheckInputErrorType::Track), 1},
        {"CheckInputErrorType_Encoding", Number(CheckInputErrorType::Encoding), 2},
        {"ParameterKind_Integer", Number(ParameterKind::Integer), 0},
        {"ParameterKind_String", Number(ParameterKind::String), 1},
        {"ParameterKind_Collection", Number(ParameterKind::Collection), 2},
    }),
    [](const testing::TestParamInfo<Value>& tested) { return std::string(tested.param.name); });

} // namespace
} // namespace kel
