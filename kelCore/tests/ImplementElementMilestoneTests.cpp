// The steps of ImplementElement in their order. This program has its own CreateMilestone and
// GetManifest, which ImplementElement, expanded here, calls instead of those of the library.

#include "Elements.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

using test::Manifest;
using test::SmallSource;
using test::SourceFactory;
using testing::ElementsAre;

std::vector<std::string>& Events() {
    static std::vector<std::string> events;
    return events;
}

bool g_hasManifest = true;

class RecordingMilestone final : public IMilestone {
public:
    ~RecordingMilestone() override { Events().emplace_back("released"); }
};

class RecordingWriter final : public ILoggerWriter {
public:
    void Write(LogLevel, const char* message, const char*, const char*, const char*, const char*,
               const char*, const char*) override {
        Events().push_back(std::string("logged ") + message);
    }
};

} // namespace

std::shared_ptr<IMilestone> CreateMilestone(std::string name) {
    Events().push_back("created " + name);
    return std::make_shared<RecordingMilestone>();
}

std::shared_ptr<const IParametersCollectionInstance>
GetManifest(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    return g_hasManifest ? test::MakeEntry(kind, implementation, type) : nullptr;
}

namespace {

constexpr const char* kLogged = "logged [MILESTONE][ImplementElement AudioSource.test.Source.WAVE]";
constexpr const char* kCreated = "created ImplementElement AudioSource.test.Source.WAVE";
const std::string kFailure =
    "logged can not implement AudioSource with implementation=\"test.Source\" and type=\"WAVE\"\n";

/// Records the events while a source is made by the given creator.
class ImplementElementSteps : public testing::Test {
protected:
    ImplementElementSteps() {
        Events().clear();
        SetCurrentLoggerWriter(std::make_shared<RecordingWriter>());
    }
    ~ImplementElementSteps() override { SetCurrentLoggerWriter(nullptr); }

    static std::shared_ptr<IAudioSource> Implement() {
        return ImplementElement<ElementFactoryType::AudioSource>("test.Source", "WAVE", nullptr);
    }

    static std::shared_ptr<IAudioSource> ImplementWith(SourceFactory::Creator creator) {
        const test::TemporaryRegistration registration(
            std::make_shared<SourceFactory>(std::move(creator)), ElementFactoryType::AudioSource,
            "test.Source", "WAVE");
        return Implement();
    }
};

TEST_F(ImplementElementSteps, EndTheMilestoneWhenTheElementIsMade) {
    const auto source = ImplementWith([](const Manifest&) {
        Events().emplace_back("creator");
        return std::make_shared<SmallSource>();
    });
    Events().emplace_back("returned");
    EXPECT_THAT(Events(), ElementsAre(kLogged, kCreated, "creator", "released", "returned"));
}

TEST_F(ImplementElementSteps, EndTheMilestoneBeforeAMissingFactoryIsReported) {
    EXPECT_THROW(Implement(), KELRuntimeError);
    EXPECT_THAT(Events(),
                ElementsAre(kLogged, kCreated, "logged [registryEntry] [ Pointer is null ]",
                            "released", kFailure + "[registryEntry] [ Pointer is null ]"));
}

TEST_F(ImplementElementSteps, EndTheMilestoneBeforeAnExceptionOfTheCreatorIsReported) {
    EXPECT_THROW(ImplementWith([](const Manifest&) -> std::shared_ptr<IAudioSource> {
                     throw std::runtime_error("reason");
                 }),
                 KELRuntimeError);
    EXPECT_THAT(Events(), ElementsAre(kLogged, kCreated, "released", kFailure + "reason"));
}

TEST_F(ImplementElementSteps, EndTheMilestoneWhenAnythingElseIsThrown) {
    EXPECT_THROW(ImplementWith([](const Manifest&) -> std::shared_ptr<IAudioSource> { throw 42; }),
                 int);
    EXPECT_THAT(Events(), ElementsAre(kLogged, kCreated, "released"));
}

TEST_F(ImplementElementSteps, FailWithoutAManifestBeforeTheyUseTheFactory) {
    const test::TemporaryRegistration registration(std::make_shared<test::SinkFactory>(nullptr),
                                                   ElementFactoryType::AudioSource, "test.Source",
                                                   "WAVE");
    g_hasManifest = false;
    EXPECT_THROW(Implement(), KELRuntimeError);
    g_hasManifest = true;
    EXPECT_THAT(Events(), ElementsAre(kLogged, kCreated, "logged [manifest] [ Pointer is null ]",
                                      "released", kFailure + "[manifest] [ Pointer is null ]"));
}

} // namespace
} // namespace kel
