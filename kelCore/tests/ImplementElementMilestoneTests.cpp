// When the milestone of ImplementElement begins and ends. This program has a CreateMilestone of its
// own, which ImplementElement, expanded in this program, calls instead of the library's.

#include "Elements.h"

#include <CapturingWriter.h>

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

class NotingMilestone final : public IMilestone {
public:
    ~NotingMilestone() override { Events().emplace_back("released"); }
};

class NotingWriter final : public ILoggerWriter {
public:
    void Write(LogLevel, const char* message, const char*, const char*, const char*, const char*,
               const char*, const char*) override {
        Events().push_back(std::string("logged ") + message);
    }
};

} // namespace

std::shared_ptr<IMilestone> CreateMilestone(std::string name) {
    Events().push_back("created " + name);
    return std::make_shared<NotingMilestone>();
}

namespace {

constexpr const char* kLogged = "logged [MILESTONE][ImplementElement AudioSource.test.Source.WAVE]";
constexpr const char* kCreated = "created ImplementElement AudioSource.test.Source.WAVE";
const std::string kFailure =
    "logged can not implement AudioSource with implementation=\"test.Source\" and type=\"WAVE\"\n";

/// Notes what happens while a source is made by the given creator.
class TheMilestoneOfImplementElement : public testing::Test {
protected:
    TheMilestoneOfImplementElement() {
        Events().clear();
        SetCurrentLoggerWriter(std::make_shared<NotingWriter>());
    }
    ~TheMilestoneOfImplementElement() override { SetCurrentLoggerWriter(nullptr); }

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

TEST_F(TheMilestoneOfImplementElement, LastsUntilTheElementIsMade) {
    const auto source = ImplementWith([](const Manifest&) {
        Events().emplace_back("creator");
        return std::make_shared<SmallSource>();
    });
    Events().emplace_back("returned");
    EXPECT_THAT(Events(), ElementsAre(kLogged, kCreated, "creator", "released", "returned"));
}

TEST_F(TheMilestoneOfImplementElement, EndsBeforeAMissingFactoryIsReported) {
    EXPECT_THROW(Implement(), KELRuntimeError);
    EXPECT_THAT(Events(),
                ElementsAre(kLogged, kCreated, "logged [registryEntry] [ Pointer is null ]",
                            "released", kFailure + "[registryEntry] [ Pointer is null ]"));
}

TEST_F(TheMilestoneOfImplementElement, EndsBeforeAnExceptionOfTheCreatorIsReported) {
    EXPECT_THROW(ImplementWith([](const Manifest&) -> std::shared_ptr<IAudioSource> {
                     throw std::runtime_error("reason");
                 }),
                 KELRuntimeError);
    EXPECT_THAT(Events(), ElementsAre(kLogged, kCreated, "released", kFailure + "reason"));
}

TEST_F(TheMilestoneOfImplementElement, EndsWhenAnythingElseIsThrown) {
    EXPECT_THROW(ImplementWith([](const Manifest&) -> std::shared_ptr<IAudioSource> { throw 42; }),
                 int);
    EXPECT_THAT(Events(), ElementsAre(kLogged, kCreated, "released"));
}

} // namespace
} // namespace kel
