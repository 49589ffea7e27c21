// What ImplementElement does without a manifest. This program has a GetManifest of its own, which
// ImplementElement, expanded in this program, calls instead of the library's.

#include "Elements.h"

#include <CapturingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace kel {

std::shared_ptr<const IParametersCollectionInstance>
GetManifest(ElementFactoryType /*kind*/, const std::string& /*implementation*/,
            const std::string& /*type*/) {
    return nullptr;
}

namespace {

void ExpectFailureForWantOfAManifest(const std::shared_ptr<IElementFactory>& factory) {
    const test::TemporaryRegistration registration(factory, ElementFactoryType::AudioSource,
                                                   "test.Source", "WAVE");
    const std::string message = "can not implement AudioSource with implementation=\"test.Source\" "
                                "and type=\"WAVE\"\n[manifest] [ Pointer is null ]";
    const test::LogCapture log;
    try {
        ImplementElement<ElementFactoryType::AudioSource>("test.Source", "WAVE", nullptr);
        ADD_FAILURE() << "made an element";
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), message);
    }
    EXPECT_THAT(log->Messages(LogLevel::Error),
                testing::ElementsAre("[manifest] [ Pointer is null ]", message));
}

TEST(ImplementElementWithoutAManifest, Fails) {
    ExpectFailureForWantOfAManifest(test::MakeSourceFactory());
}

TEST(ImplementElementWithoutAManifest, FailsBeforeItLooksAtTheFactory) {
    ExpectFailureForWantOfAManifest(std::make_shared<test::SinkFactory>(nullptr));
}

} // namespace
} // namespace kel
