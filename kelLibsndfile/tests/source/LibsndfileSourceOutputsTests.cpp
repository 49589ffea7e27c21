// The choice of the one output.

#include "SourceTestSupport.h"

#include <memory>
#include <string>
#include <vector>

namespace kel::test {
namespace {

using ChannelInfos = std::vector<std::shared_ptr<const IChannelInfo>>;

const std::string kClosed = "[Cannot call ActivateOutputs without an opened file]";

class LibsndfileSourceOutputs : public ::testing::Test {
protected:
    std::shared_ptr<const IChannelInfo> TheOutput() const {
        return source->GetDefinedOutput("")->GetAudioInfos().at(0)->GetChannelInfo();
    }

    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory, {5, 44100, 2500});
    const std::shared_ptr<IAudioSource> source = OpenSource(path);
};

TEST(LibsndfileSourceOutputsClosed, AreEmpty) {
    const auto source = MakeConfiguredSource();
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetDefinedOutput("x"), nullptr);
        EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetAvailableOutputs(), ChannelInfos());
        EXPECT_EQ(source->GetActivatedOutputs(), ChannelInfos());
    });
}

TEST(LibsndfileSourceOutputsClosed, CanNotBeActivated) {
    const auto source = MakeConfiguredSource();
    for (const ChannelInfos& outputs :
         {ChannelInfos(), ChannelInfos{MakeChannels(2)}, ChannelInfos{nullptr}}) {
        ExpectRefusal(kClosed, [&] { source->ActivateOutputs(outputs); });
    }
}

TEST(LibsndfileSourceOutputsClosed, DoNotChangeByARefusedChoice) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeConfiguredSource();
    ExpectRefusal(kClosed, [&] { source->ActivateOutputs({}); });
    source->Open(ConvertPlatformStringToWideString(path));
    EXPECT_EQ(source->GetActivatedOutputs().size(), 1U);

    source->ActivateOutputs({});
    source->Release();
    ExpectRefusal(kClosed, [&] { source->ActivateOutputs({MakeChannels(2)}); });
    source->Open(ConvertPlatformStringToWideString(path));
    EXPECT_EQ(source->GetActivatedOutputs(), ChannelInfos());
}

TEST_F(LibsndfileSourceOutputs, AreOneWithAllChannels) {
    ExpectRecords({}, [&] {
        const ChannelInfos outputs = source->GetAvailableOutputs();
        ASSERT_EQ(outputs.size(), 1U);
        EXPECT_EQ(outputs[0]->GetNumberOfChannels(), 5U);
        EXPECT_EQ(outputs[0], TheOutput());
        EXPECT_EQ(source->GetAvailableOutputs(), outputs);
    });
}

TEST_F(LibsndfileSourceOutputs, AreActiveUnlessChosenOtherwise) {
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetActivatedOutputs(), ChannelInfos{TheOutput()});
        EXPECT_NE(source->GetSample(), nullptr);
    });
}

TEST_F(LibsndfileSourceOutputs, AreInactiveAfterAnEmptyChoice) {
    ExpectRecords({}, [&] {
        source->ActivateOutputs({});
        EXPECT_EQ(source->GetActivatedOutputs(), ChannelInfos());
        EXPECT_EQ(source->GetAvailableOutputs(), ChannelInfos{TheOutput()});
        EXPECT_NE(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetSample(), nullptr);
    });
}

TEST_F(LibsndfileSourceOutputs, AreActivatedByAnyChoice) {
    const auto other = MakeChannels(2);
    for (const ChannelInfos& choice :
         {ChannelInfos{TheOutput()}, ChannelInfos{other}, ChannelInfos{nullptr},
          ChannelInfos{other, other, TheOutput()}}) {
        source->ActivateOutputs({});
        ASSERT_EQ(source->GetActivatedOutputs(), ChannelInfos());
        ExpectRecords({}, [&] { source->ActivateOutputs(choice); });
        EXPECT_EQ(source->GetActivatedOutputs(), ChannelInfos{TheOutput()});
    }
}

TEST_F(LibsndfileSourceOutputs, DoNotHoldWhatWasChosen) {
    const auto other = MakeChannels(2);
    source->ActivateOutputs({other});
    EXPECT_EQ(other.use_count(), 1);
}

TEST_F(LibsndfileSourceOutputs, StayAsTheyWereChosenForTheNextFile) {
    for (const bool active : {false, true}) {
        source->ActivateOutputs(active ? ChannelInfos{nullptr} : ChannelInfos());
        source->Release();
        source->Open(ConvertPlatformStringToWideString(path));
        EXPECT_EQ(source->GetActivatedOutputs().size(), active ? 1U : 0U);
    }
}

TEST_F(LibsndfileSourceOutputs, AreDefinedInANewContainerAtEachCall) {
    const auto first = source->GetDefinedOutput("");
    const auto second = source->GetDefinedOutput("");
    EXPECT_NE(first, second);
    EXPECT_EQ(first->GetAudioInfos(), second->GetAudioInfos());
    EXPECT_EQ(first->GetInfos(), second->GetInfos());
}

TEST_F(LibsndfileSourceOutputs, AreDefinedAlikeUnderEachName) {
    const auto expected = source->GetDefinedOutput("")->GetAudioInfos();
    ASSERT_EQ(expected.size(), 1U);
    for (const std::string name : {"x", "audio.wav", "a longer name that nobody has ever given"}) {
        const auto container = source->GetDefinedOutput(name);
        ASSERT_NE(container, nullptr);
        EXPECT_EQ(container->GetAudioInfos(), expected);
        EXPECT_EQ(container->GetInfos().size(), 1U);
        EXPECT_EQ(container->GetPackagingInfo(), nullptr);
    }
}

TEST_F(LibsndfileSourceOutputs, AreDefinedWithoutALogRecord) {
    ExpectRecords({}, [&] { source->GetDefinedOutput("x"); });
}

} // namespace
} // namespace kel::test
