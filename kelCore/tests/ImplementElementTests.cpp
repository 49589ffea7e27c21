#include "Elements.h"

#include <CapturingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel {

namespace {

using test::Manifest;
using test::SinkFactory;
using test::SmallSink;
using test::SourceFactory;
using test::TemporaryRegistration;
using testing::ElementsAre;
using testing::Pair;

constexpr ElementFactoryType kSource = ElementFactoryType::AudioSource;
constexpr ElementFactoryType kSink = ElementFactoryType::AudioSink;
constexpr ElementFactoryType kAllocator = ElementFactoryType::MemoryBlockAllocator;

constexpr const char* kSourceMilestone =
    "[MILESTONE][ImplementElement AudioSource.test.Source.WAVE]";
constexpr const char* kSourceFailure =
    "can not implement AudioSource with implementation=\"test.Source\" and type=\"WAVE\"\n";

using Records = std::vector<std::pair<LogLevel, std::string>>;

Records LevelsAndMessages(const test::LogCapture& log) {
    Records records;
    for (const test::Record& record : log->Records()) {
        records.emplace_back(record.level, record.message);
    }
    return records;
}

std::shared_ptr<IAudioSource> ImplementSource() {
    return ImplementElement<kSource>("test.Source", "WAVE", nullptr);
}

// Expects that the source of the test cannot be made, for this reason and with these records of it.
void ExpectSourceFailure(const std::string& reason, const Records& recordsOfTheReason) {
    const test::LogCapture log;
    try {
        ImplementSource();
        ADD_FAILURE() << "made an element";
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), kSourceFailure + reason);
    }
    Records expected = {{LogLevel::Milestone, kSourceMilestone}};
    expected.insert(expected.end(), recordsOfTheReason.begin(), recordsOfTheReason.end());
    expected.emplace_back(LogLevel::Error, kSourceFailure + reason);
    EXPECT_EQ(LevelsAndMessages(log), expected);
    for (const test::Record& record : log->Records()) {
        EXPECT_EQ(record.reserved, "");
    }
    EXPECT_EQ(log->Records().back().file, "kelCore/include/WorkflowStepImplementation.h");
}

static_assert(std::is_same_v<decltype(ImplementElement<kSource>("", "", nullptr)),
                             std::shared_ptr<IAudioSource>>);
static_assert(std::is_same_v<decltype(ImplementElement<kSink>("", "", nullptr)),
                             std::shared_ptr<IAudioSink>>);
static_assert(std::is_same_v<decltype(ImplementElement<kAllocator>("", "", nullptr)),
                             std::shared_ptr<IMemoryBlockAllocator>>);

TEST(ImplementElement, MakesTheRecyclerAfterOneMilestone) {
    const test::LogCapture log;
    const auto allocator = ImplementElement<kAllocator>("kel", "Recycler", nullptr);
    ASSERT_NE(allocator, nullptr);
    EXPECT_GE(allocator->Allocate(100)->GetSize(), 100U);
    EXPECT_THAT(
        LevelsAndMessages(log),
        ElementsAre(Pair(LogLevel::Milestone,
                         "[MILESTONE][ImplementElement MemoryBlockAllocator.kel.Recycler]")));
}

class Step final : public IStep {};

TEST(ImplementElement, MakesSinks) {
    const TemporaryRegistration registration(
        std::make_shared<SinkFactory>(
            [](const Manifest& manifest) { return std::make_shared<SmallSink>(manifest); }),
        kSink, "test.Sink", "RAW");
    const test::LogCapture log;
    const auto sink = ImplementElement<kSink>("test.Sink", "RAW", nullptr);
    EXPECT_EQ(sink->GetManifest(), registration.Entry());
    EXPECT_THAT(LevelsAndMessages(log),
                ElementsAre(Pair(LogLevel::Milestone,
                                 "[MILESTONE][ImplementElement AudioSink.test.Sink.RAW]")));
}

TEST(ImplementElement, MakesANewSourceEachTimeAndReleasesTheStep) {
    const TemporaryRegistration registration(test::MakeSourceFactory(), kSource, "test.Source",
                                             "WAVE");
    auto step = std::make_shared<const Step>();
    const std::weak_ptr<const Step> watch = step;
    const auto first = ImplementElement<kSource>("test.Source", "WAVE", std::move(step));
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(first->GetManifest(), registration.Entry());
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_NE(ImplementSource(), first);
}

TEST(ImplementElement, ReturnsAnEmptyHandleWhenTheCreatorDoes) {
    const TemporaryRegistration registration(
        std::make_shared<SourceFactory>([](const Manifest&) { return nullptr; }), kSource,
        "test.Source", "WAVE");
    const test::LogCapture log;
    EXPECT_EQ(ImplementSource(), nullptr);
    EXPECT_THAT(LevelsAndMessages(log), ElementsAre(Pair(LogLevel::Milestone, kSourceMilestone)));
}

TEST(ImplementElement, FailsWithoutAFactoryAfterTwoErrors) {
    ExpectSourceFailure("[registryEntry] [ Pointer is null ]",
                        {{LogLevel::Error, "[registryEntry] [ Pointer is null ]"}});
}

TEST(ImplementElement, KeepsUnusualNamesInItsMessagesAsTheyAre) {
    const test::LogCapture log;
    const std::string message = "can not implement MemoryBlockAllocator with implementation=\"a "
                                "\"b\"\n%s\" and type=\"\"\n[registryEntry] [ Pointer is null ]";
    try {
        ImplementElement<kAllocator>("a \"b\"\n%s", "", nullptr);
        ADD_FAILURE() << "made an element";
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), message);
    }
    EXPECT_THAT(log->Messages(LogLevel::Milestone),
                ElementsAre("[MILESTONE][ImplementElement MemoryBlockAllocator.a \"b\"\n%s.]"));
    EXPECT_THAT(log->Messages(LogLevel::Error),
                ElementsAre("[registryEntry] [ Pointer is null ]", message));
}

/// Reports that it makes sources, but is no ElementFactory of them.
class OtherFactory final : public IElementFactory {
public:
    ElementFactoryType GetFactoryType() const override { return kSource; }
};

TEST(ImplementElement, FailsWithAFactoryOfAnotherType) {
    for (const std::shared_ptr<IElementFactory>& factory :
         {std::shared_ptr<IElementFactory>(std::make_shared<OtherFactory>()),
          std::shared_ptr<IElementFactory>(std::make_shared<SinkFactory>(nullptr))}) {
        const TemporaryRegistration registration(factory, kSource, "test.Source", "WAVE");
        ExpectSourceFailure("[factory] [ Pointer is null ]",
                            {{LogLevel::Error, "[factory] [ Pointer is null ]"}});
    }
}

TEST(ImplementElement, ConvertsAnExceptionOfTheCreatorIntoItsOwn) {
    const TemporaryRegistration registration(
        std::make_shared<SourceFactory>([](const Manifest&) -> std::shared_ptr<IAudioSource> {
            throw std::out_of_range("text of the\ncreator");
        }),
        kSource, "test.Source", "WAVE");
    ExpectSourceFailure("text of the\ncreator", {});
}

TEST(ImplementElement, LogsAFailedCheckOfTheCreatorBeforeItsOwnFailure) {
    const TemporaryRegistration registration(
        std::make_shared<SourceFactory>([](const Manifest&) -> std::shared_ptr<IAudioSource> {
            KEL_CHECK_POINTER(static_cast<int*>(nullptr), "can not create it");
            return nullptr;
        }),
        kSource, "test.Source", "WAVE");
    ExpectSourceFailure("[can not create it] [ Pointer is null ]",
                        {{LogLevel::Error, "[can not create it] [ Pointer is null ]"}});
}

TEST(ImplementElement, PassesOtherThrownObjectsUnchanged) {
    struct Thrown {
        int value;
    };
    const TemporaryRegistration registration(
        std::make_shared<SourceFactory>(
            [](const Manifest&) -> std::shared_ptr<IAudioSource> { throw Thrown{42}; }),
        kSource, "test.Source", "WAVE");
    const test::LogCapture log;
    try {
        ImplementSource();
        ADD_FAILURE() << "made an element";
    } catch (const Thrown& thrown) {
        EXPECT_EQ(thrown.value, 42);
    }
    EXPECT_THAT(LevelsAndMessages(log), ElementsAre(Pair(LogLevel::Milestone, kSourceMilestone)));
}

TEST(AMilestone, IsANewHandleEachTimeAndLogsNothingItself) {
    const test::LogCapture log;
    const auto first = CreateMilestone("one");
    const auto second = CreateMilestone("one");
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_TRUE(log->Records().empty());
}

} // namespace
} // namespace kel
