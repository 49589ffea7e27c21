// The sink asks itself through its own interface whether an input is accepted, so that an element
// that derives from it decides. The class is not visible outside the plug-in: it is compiled into
// this program.

#include "SinkTestSupport.h"

#include <LibsndfileSink.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

class DecidingSink final : public LibsndfileSink {
public:
    explicit DecidingSink(std::shared_ptr<const ICheckInputReport> report)
        : LibsndfileSink(MakeManifest("WAVE")), m_report(std::move(report)) {}

    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string name) const override {
        asked.emplace_back(std::move(input), std::move(name));
        return m_report;
    }

    mutable std::vector<std::pair<std::shared_ptr<const IInfoContainer>, std::string>> asked;

private:
    std::shared_ptr<const ICheckInputReport> m_report;
};

class LibsndfileSinkOverride : public ::testing::Test {
protected:
    /// Defines an input with this name.
    void Define(DecidingSink& sink) {
        sink.SetInitConfig(MakeSettingsFor(directory / "take.wav"));
        sink.DefineInput(input, "the name");
    }

    TemporaryDirectory directory;
    std::shared_ptr<const IInfoContainer> input = MakeInput({});
    const Line fromBoth{LogLevel::Info,
                        "Read the following WrapperFormat from both extension and type: WAVE"};
};

TEST_F(LibsndfileSinkOverride, RefusesWhatItsHeirRefuses) {
    DecidingSink sink(CreateCheckInputReportTrackError({}));
    ExpectRefusal(kInputRefused, [&] { Define(sink); }, {fromBoth});
    EXPECT_EQ(sink.GetDefinedInput(""), nullptr);
    EXPECT_EQ(directory.Names(), std::vector<std::string>());
}

TEST_F(LibsndfileSinkOverride, AcceptsWhatItsHeirAccepts) {
    for (const auto& report :
         {CreateCheckInputReportNoError(), std::shared_ptr<const ICheckInputReport>()}) {
        DecidingSink sink(report);
        ExpectRecords({fromBoth}, [&] { Define(sink); });
        EXPECT_EQ(sink.GetDefinedInput(""), input);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({"take.wav"}));
        sink.Close(false);
    }
}

TEST_F(LibsndfileSinkOverride, AsksItsHeirOnceWithTheInputAndTheName) {
    DecidingSink sink(nullptr);
    Define(sink);
    sink.Close(false);
    ASSERT_EQ(sink.asked.size(), 1U);
    EXPECT_EQ(sink.asked[0].first, input);
    EXPECT_EQ(sink.asked[0].second, "the name");
}

TEST_F(LibsndfileSinkOverride, AsksItsHeirOnlyAfterItsOwnStructureChecks) {
    DecidingSink sink(nullptr);
    input = CreateInfoContainer(std::make_shared<OtherInfo>(), nullptr);
    ExpectRefusal("[Only one info supported in input. It must be audio.]", [&] { Define(sink); });
    EXPECT_EQ(sink.asked.size(), 0U);
}

} // namespace
} // namespace kel::test
