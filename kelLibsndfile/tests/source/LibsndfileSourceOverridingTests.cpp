// What a subclass of the source may override: the class is built into this program.

#include "SourceTestSupport.h"

#include "../../LibsndfileSource.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::test {
namespace {

// Says of itself what a test wants, and notes what it is asked to open.
class OverridingSource final : public LibsndfileSource {
public:
    using LibsndfileSource::LibsndfileSource;

    bool IsMediaOpen() const override {
        ++asked;
        return open.value_or(LibsndfileSource::IsMediaOpen());
    }

    void Open(const std::wstring& path) override {
        paths.push_back(path);
        if (path == L"fail") {
            throw std::domain_error("no such path");
        }
        LibsndfileSource::Open(path);
    }

    std::optional<bool> open;
    mutable int asked = 0; // how often whether a file is open
    std::vector<std::wstring> paths;
};

class LibsndfileSourceOverriding : public ::testing::Test {
protected:
    LibsndfileSourceOverriding() { source->SetInitConfig(MakeReadSettings(1024)); }

    void OpenFile() { source->Open(ConvertPlatformStringToWideString(path)); }

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
    ExpectRefusal("[Cannot call ActivateOutputs without an opened file]",
                  [&] { source->ActivateOutputs(outputs); });
    ExpectRefusal("[Cannot call GetTimeLimits without an opened file]",
                  [&] { source->GetTimeLimits(""); });
    ExpectRefusal("[Cannot call GotoTimeOffset without an opened file]", [&] {
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

TEST_F(LibsndfileSourceOverriding, IsAskedByEachOperationThatNeedsAFile) {
    OpenFile();
    for (const bool active : {true, false}) {
        source->ActivateOutputs(active ? source->GetAvailableOutputs()
                                       : std::vector<std::shared_ptr<const IChannelInfo>>());
        const std::vector<std::function<void()>> operations = {
            [&] { source->GetDefinedOutput(""); },
            [&] { source->GetAvailableOutputs(); },
            [&] { source->GetActivatedOutputs(); },
            [&] { source->GetSample(); },
            [&] { source->GetTimeLimits(""); },
            [&] { source->GotoTimeOffset(Frames(0, {44100, 1}), ""); },
            [&] { source->ActivateOutputs({}); },
        };
        for (std::size_t i = 0; i < operations.size(); ++i) {
            SCOPED_TRACE(i);
            source->asked = 0;
            operations[i]();
            EXPECT_GE(source->asked, 1);
        }
    }
}

TEST_F(LibsndfileSourceOverriding, DoesNotDecideWhetherAFileCanBeOpened) {
    source->open = true;
    OpenFile();
    EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
    source->open = false;
    ExpectRefusal(kOpenedTwice, [&] { OpenFile(); });
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
    EXPECT_EQ(source->paths, std::vector<std::wstring>{ConvertPlatformStringToWideString(path)});
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST_F(LibsndfileSourceOverriding, IsNotAskedToOpenWhereTheSettingsNameNoFile) {
    source->SetInitConfig(MakeSourceSettings());
    EXPECT_EQ(source->paths, std::vector<std::wstring>());
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

} // namespace
} // namespace kel::test
