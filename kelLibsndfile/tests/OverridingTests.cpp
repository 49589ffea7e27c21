// Subclasses of the elements that override operations. The plug-in does not export its classes, so
// they are compiled into the test program.

#include "LibsndfileSink.h"
#include "LibsndfileSource.h"
#include "SinkTestSupport.h"
#include "SourceTestSupport.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

// Reports the state that a test sets, and records the paths that it is asked to open.
class OverridingSource final : public LibsndfileSource {
public:
    using LibsndfileSource::LibsndfileSource;

    bool IsMediaOpen() const override { return open.value_or(LibsndfileSource::IsMediaOpen()); }

    void Open(const std::wstring& path) override {
        paths.push_back(path);
        if (path == L"fail") {
            throw std::domain_error("no such path");
        }
        LibsndfileSource::Open(path);
    }

    std::optional<bool> open;
    std::vector<std::wstring> paths;
};

class LibsndfileSourceOverriding : public ::testing::Test {
protected:
    LibsndfileSourceOverriding() { source->SetInitConfig(MakeReadSettings(1024)); }

    void OpenFile() { source->Open(Wide(path)); }

    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const std::shared_ptr<OverridingSource> source = std::make_shared<OverridingSource>(nullptr);
};

TEST_F(LibsndfileSourceOverriding, ClosesTheSourceForAllOperationsThatNeedAFile) {
    OpenFile();
    const auto outputs = source->GetAvailableOutputs();
    source->open = false;
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetAvailableOutputs().size(), 0U);
        EXPECT_EQ(source->GetActivatedOutputs().size(), 0U);
        EXPECT_EQ(source->GetSample(), nullptr);
    });
    ExpectSourceRefusal("[Cannot call ActivateOutputs without an opened file]",
                        [&] { source->ActivateOutputs(outputs); });
    ExpectSourceRefusal("[Cannot call GetTimeLimits without an opened file]",
                        [&] { source->GetTimeLimits(""); });
    ExpectSourceRefusal("[Cannot call GotoTimeOffset without an opened file]", [&] {
        source->GotoTimeOffset(Frames(0, {44100, 1}), "");
    });

    source->open.reset();
    EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));
}

TEST_F(LibsndfileSourceOverriding, OpensTheSourceForOperationsThatNeedAFile) {
    OpenFile();
    source->Release();
    source->open = true;
    ExpectRecords({}, [&] {
        EXPECT_NE(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetAvailableOutputs().size(), 1U);
        EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
        source->ActivateOutputs({});
        EXPECT_EQ(source->GetActivatedOutputs().size(), 0U);
    });
}

TEST_F(LibsndfileSourceOverriding, DoesNotDecideWhetherAFileCanBeOpened) {
    source->open = true;
    OpenFile();
    EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
    source->open = false;
    ExpectSourceRefusal(kOpenedTwice, [&] { OpenFile(); });
}

TEST_F(LibsndfileSourceOverriding, DoesNotDecideWhetherAFileIsClosed) {
    OpenFile();
    source->open = false;
    source->Release();
    source->open.reset();
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST_F(LibsndfileSourceOverriding, OpensTheFileThatTheSettingsName) {
    const auto settings = MakeReadSettings(1024);
    settings->SetStringValue("FilePath", path);
    source->SetInitConfig(settings);
    EXPECT_EQ(source->paths, std::vector<std::wstring>{Wide(path)});
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST_F(LibsndfileSourceOverriding, FailsTheSettingsUnchangedAndLeavesThemReplaced) {
    const auto settings = MakeReadSettings(10);
    settings->SetStringValue("FilePath", "fail");
    const LogCapture log;
    try {
        source->SetInitConfig(settings);
        ADD_FAILURE() << "did not fail";
    } catch (const std::domain_error& error) {
        EXPECT_STREQ(error.what(), "no such path");
    }
    EXPECT_EQ(LinesOf(log), Lines());
    OpenFile();
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 10, 80}));
}

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
    const Line fromBoth = Info(kFromBoth + "WAVE");
};

TEST_F(LibsndfileSinkOverride, RefusesWhatItsSubclassRefuses) {
    DecidingSink sink(CreateCheckInputReportTrackError({}));
    ExpectSinkRefusal(kInputRefused, [&] { Define(sink); }, {fromBoth});
    EXPECT_EQ(sink.GetDefinedInput(""), nullptr);
    EXPECT_EQ(directory.Names(), std::vector<std::string>());
}

TEST_F(LibsndfileSinkOverride, AcceptsWhatItsSubclassAccepts) {
    for (const auto& report :
         {CreateCheckInputReportNoError(), std::shared_ptr<const ICheckInputReport>()}) {
        DecidingSink sink(report);
        ExpectRecords({fromBoth}, [&] { Define(sink); });
        EXPECT_EQ(sink.GetDefinedInput(""), input);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({"take.wav"}));
        sink.Close(false);
    }
}

TEST_F(LibsndfileSinkOverride, AsksItsSubclassOnceWithTheInputAndTheName) {
    DecidingSink sink(nullptr);
    Define(sink);
    sink.Close(false);
    ASSERT_EQ(sink.asked.size(), 1U);
    EXPECT_EQ(sink.asked[0].first, input);
    EXPECT_EQ(sink.asked[0].second, "the name");
}

TEST_F(LibsndfileSinkOverride, AsksItsSubclassOnlyAfterItsOwnStructureChecks) {
    DecidingSink sink(nullptr);
    input = CreateInfoContainer(std::make_shared<OtherInfo>(), nullptr);
    ExpectSinkRefusal("[Only one info supported in input. It must be audio.]",
                      [&] { Define(sink); });
    EXPECT_EQ(sink.asked.size(), 0U);
}

} // namespace
} // namespace kel::test
