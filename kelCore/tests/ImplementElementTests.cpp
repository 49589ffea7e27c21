#include "Elements.h"

#include <CapturingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel {

namespace {

using test::AllocatorFactory;
using test::Manifest;
using test::SinkFactory;
using test::SmallSink;
using test::SmallSource;
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

// Expects that making the test's source fails for this reason, with these records of the reason.
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
}

static_assert(std::is_same_v<decltype(ImplementElement<kSource>("", "", nullptr)),
                             std::shared_ptr<IAudioSource>>);
static_assert(std::is_same_v<decltype(ImplementElement<kSink>("", "", nullptr)),
                             std::shared_ptr<IAudioSink>>);
static_assert(std::is_same_v<decltype(ImplementElement<kAllocator>("", "", nullptr)),
                             std::shared_ptr<IMemoryBlockAllocator>>);

TEST(ImplementElement, MakesTheFrameworksRecyclerAfterOneMilestone) {
    const test::LogCapture log;
    const auto allocator = ImplementElement<kAllocator>("kel", "Recycler", nullptr);
    ASSERT_NE(allocator, nullptr);
    EXPECT_GE(allocator->Allocate(100)->GetSize(), 100U);
    EXPECT_THAT(
        LevelsAndMessages(log),
        ElementsAre(Pair(LogLevel::Milestone,
                         "[MILESTONE][ImplementElement MemoryBlockAllocator.kel.Recycler]")));
}

/// An allocator with nothing but what it must have.
class NoMemory final : public IMemoryBlockAllocator {
public:
    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t) override { return nullptr; }
};

TEST(ImplementElement, ReturnsWhatTheCreatorOfAnAllocatorReturns) {
    const auto made = std::make_shared<NoMemory>();
    const TemporaryRegistration registration(
        std::make_shared<AllocatorFactory>([made](const Manifest&) { return made; }), kAllocator,
        "test", "NoMemory");
    EXPECT_EQ(ImplementElement<kAllocator>("test", "NoMemory", nullptr), made);
}

TEST(ImplementElement, HandsTheRegistryEntryToTheCreatorAsTheManifest) {
    const TemporaryRegistration registration(test::MakeSourceFactory(), kSource, "test.Source",
                                             "WAVE");
    const auto source = ImplementSource();
    EXPECT_EQ(source->GetManifest(), registration.Entry());
    EXPECT_EQ(source->GetManifest()->GetStringValue("type"), "WAVE");
    EXPECT_EQ(source->GetManifest()->GetStringValue("implementation"), "test.Source");
    EXPECT_EQ(source->GetManifest()->GetIntegerValue("class"), 2);
}

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

TEST(ImplementElement, MakesANewElementEachTime) {
    const TemporaryRegistration registration(test::MakeSourceFactory(), kSource, "test.Source",
                                             "WAVE");
    const auto first = ImplementSource();
    const auto second = ImplementSource();
    EXPECT_NE(first, second);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_EQ(second.use_count(), 1);
}

TEST(ImplementElement, ReturnsAnEmptyHandleWhenTheCreatorDoes) {
    const TemporaryRegistration registration(
        std::make_shared<SourceFactory>([](const Manifest&) { return nullptr; }), kSource,
        "test.Source", "WAVE");
    const test::LogCapture log;
    EXPECT_EQ(ImplementSource(), nullptr);
    EXPECT_THAT(LevelsAndMessages(log), ElementsAre(Pair(LogLevel::Milestone, kSourceMilestone)));
}

class Step final : public IStep {};

TEST(ImplementElement, LetsGoOfTheStep) {
    const TemporaryRegistration registration(test::MakeSourceFactory(), kSource, "test.Source",
                                             "WAVE");
    auto step = std::make_shared<const Step>();
    const std::weak_ptr<const Step> watch = step;
    const auto source = ImplementElement<kSource>("test.Source", "WAVE", std::move(step));
    EXPECT_TRUE(watch.expired());
}

TEST(ImplementElement, FailsWithoutAFactoryAfterTwoErrors) {
    ExpectSourceFailure("[registryEntry] [ Pointer is null ]",
                        {{LogLevel::Error, "[registryEntry] [ Pointer is null ]"}});
}

TEST(ImplementElement, NamesTheHeaderInTheRecordsOfItsFailures) {
    const test::LogCapture log;
    EXPECT_THROW(ImplementSource(), KELRuntimeError);
    ASSERT_EQ(log->Records().size(), 3U);
    for (const test::Record& record : log->Records()) {
        EXPECT_EQ(record.file, "kelCore/include/WorkflowStepImplementation.h");
    }
}

TEST(ImplementElement, NamesImplementationAndTypeOfAMissingAllocator) {
    const Registration recycler = GetRegistrations().front();
    EXPECT_EQ(UnregisterFactories(recycler.name), 1U);
    const test::LogCapture log;
    const std::string message =
        "can not implement MemoryBlockAllocator with implementation=\"kel\" and "
        "type=\"Recycler\"\n[registryEntry] [ Pointer is null ]";
    try {
        ImplementElement<kAllocator>("kel", "Recycler", nullptr);
        ADD_FAILURE() << "made an element";
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), message);
    }
    EXPECT_THAT(log->Messages(LogLevel::Error),
                ElementsAre("[registryEntry] [ Pointer is null ]", message));
    RegisterFactory(recycler.name, recycler.coreId, recycler.factory, recycler.entry);
}

TEST(ImplementElement, KeepsOddNamesInItsMessagesAsTheyAre) {
    const test::LogCapture log;
    try {
        ImplementElement<kSink>("a \"b\"\n%s", "", nullptr);
        ADD_FAILURE() << "made an element";
    } catch (const KELRuntimeError& error) {
        EXPECT_STREQ(error.what(),
                     "can not implement AudioSink with implementation=\"a \"b\"\n%s\" "
                     "and type=\"\"\n[registryEntry] [ Pointer is null ]");
    }
    EXPECT_THAT(log->Messages(LogLevel::Milestone),
                ElementsAre("[MILESTONE][ImplementElement AudioSink.a \"b\"\n%s.]"));
}

TEST(ImplementElement, FailsWithAFactoryOfAnotherKind) {
    const TemporaryRegistration registration(std::make_shared<SinkFactory>([](const Manifest&) {
                                                 return std::make_shared<SmallSink>();
                                             }),
                                             kSource, "test.Source", "WAVE");
    ExpectSourceFailure("[factory] [ Pointer is null ]",
                        {{LogLevel::Error, "[factory] [ Pointer is null ]"}});
}

/// Says that it makes sources, and is no ElementFactory of them.
class OtherFactory final : public IElementFactory {
public:
    ElementFactoryType GetFactoryType() const override { return kSource; }
};

TEST(ImplementElement, FailsWithAFactoryThatIsNoElementFactory) {
    const TemporaryRegistration registration(std::make_shared<OtherFactory>(), kSource,
                                             "test.Source", "WAVE");
    ExpectSourceFailure("[factory] [ Pointer is null ]",
                        {{LogLevel::Error, "[factory] [ Pointer is null ]"}});
}

TEST(ImplementElement, FailsWithAnEmptyCreator) {
    const TemporaryRegistration registration(std::make_shared<SourceFactory>(nullptr), kSource,
                                             "test.Source", "WAVE");
    ExpectSourceFailure(std::bad_function_call().what(), {});
}

TEST(ImplementElement, TurnsAnExceptionOfTheCreatorIntoItsOwn) {
    const TemporaryRegistration registration(
        std::make_shared<SourceFactory>([](const Manifest&) -> std::shared_ptr<IAudioSource> {
            throw std::out_of_range("the creator's own\nwords");
        }),
        kSource, "test.Source", "WAVE");
    ExpectSourceFailure("the creator's own\nwords", {});
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

TEST(ImplementElement, LetsOtherThingsThatTheCreatorThrowsPassUnchanged) {
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

static_assert(std::has_virtual_destructor_v<IMilestone>);
static_assert(!std::is_abstract_v<IMilestone>, "nothing but its destructor is virtual");
static_assert(sizeof(IMilestone) == sizeof(void*));

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
