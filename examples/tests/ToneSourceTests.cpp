#include "Examples.h"

#include <Binary.h>
#include <CapturingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace kel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<float> ValuesOf(const ISampleContainer& container) {
    const auto buffer = container.GetAudioSamples(nullptr, nullptr).at(0)->GetBuffer();
    std::vector<float> values(buffer->GetSize() / sizeof(float));
    std::memcpy(values.data(), buffer->GetData(), values.size() * sizeof(float));
    return values;
}

std::vector<float> ReadAll(IAudioSource& source) {
    std::vector<float> values;
    while (const auto container = source.GetSample()) {
        const std::vector<float> more = ValuesOf(*container);
        values.insert(values.end(), more.begin(), more.end());
    }
    return values;
}

MediaTime Frame(std::int64_t number, std::uint32_t rate = 48000) {
    return {EditRate(rate, 1), number, nullptr};
}

} // namespace

TEST(TheToneExample, ExportsOnlyItsEntryPoint) {
    EXPECT_THAT(Binary(InstalledPlugin("kelTone")).Exported(), ElementsAre("RegisterAll"));
}

TEST(ToneSource, DeliversTheToneOfItsSettings) {
    constexpr double kTwoPi = 6.283185307179586;
    const auto source = MakeTone({{"SampleRate", 44100},
                                  {"Channels", 3},
                                  {"Frequency", 997},
                                  {"Level", -6},
                                  {"Length", 10000},
                                  {"MaxSamplesPerBuffer", 999}});
    const std::vector<float> values = ReadAll(*source);
    ASSERT_EQ(values.size(), 30000U);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double expected =
            0.501187233627272 * std::sin(kTwoPi * 997 * static_cast<double>(i / 3) / 44100);
        ASSERT_NEAR(values[i], expected, 1e-7) << "value " << i;
    }
}

TEST(ToneSource, MakesOneSecondOfAQuietToneByDefault) {
    const std::vector<float> values = ReadAll(*MakeTone({}));
    ASSERT_EQ(values.size(), 2 * 48000U);
    EXPECT_EQ(values[2 * 12], 0.1F); // a quarter of a cycle
    EXPECT_EQ(values[2 * 36], -0.1F);
    // A cycle is 48 frames, and the last cycle has the same bits as the first.
    EXPECT_EQ(std::vector<float>(values.end() - 2 * 48, values.end()),
              std::vector<float>(values.begin(), values.begin() + 2 * 48));
}

TEST(ToneSource, DescribesItsOutput) {
    const auto source = MakeTone({{"SampleRate", 96000}, {"Channels", 5}, {"Length", 123}});
    const auto info = source->GetDefinedOutput("")->GetAudioInfos().at(0);
    EXPECT_EQ(info->GetChannelInfo()->GetNumberOfChannels(), 5U);
    EXPECT_EQ(info->GetChannelInfo()->GetTrack()->GetContentType(), ContentType::Audio);
    const auto pcm =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(info->GetAudioParameters());
    ASSERT_NE(pcm, nullptr);
    EXPECT_EQ(pcm->GetSampleRate(), 96000U);
    EXPECT_EQ(pcm->GetPCMType(), AudioPCMType::Float);
    EXPECT_EQ(pcm->GetSampleSize(), 4);
    EXPECT_EQ(pcm->GetBitsDepth(), 32);
    EXPECT_EQ(pcm->GetEndianness(), PCMEndianness::Little);
    EXPECT_EQ(pcm->GetMuxing(), PCMMuxing::Multi);
    const TimeLimits limits = source->GetTimeLimits("");
    EXPECT_EQ(limits.start.GetEditRate(), EditRate(96000, 1));
    EXPECT_EQ(limits.start.GetTimeNumber(), 0);
    EXPECT_EQ(limits.duration, 123);
}

TEST(ToneSource, StampsItsSamplesWithoutGaps) {
    const auto source = MakeTone({{"Length", 2500}});
    std::vector<std::int64_t> starts;
    std::vector<std::int64_t> lengths;
    while (const auto container = source->GetSample()) {
        const auto sample = container->GetAudioSamples(nullptr, nullptr).at(0);
        starts.push_back(sample->GetTimeLimits().start.GetTimeNumber());
        lengths.push_back(sample->GetTimeLimits().duration);
        EXPECT_EQ(sample->GetTimeLimits().start.GetEditRate(), EditRate(48000, 1));
    }
    EXPECT_THAT(starts, ElementsAre(0, 1024, 2048));
    EXPECT_THAT(lengths, ElementsAre(1024, 1024, 452));
    EXPECT_EQ(source->GetSample(), nullptr);
}

TEST(ToneSource, GoesToEveryFrame) {
    const std::vector<float> whole = ReadAll(*MakeTone({{"Channels", 1}, {"Length", 1000}}));
    const auto source = MakeTone({{"Channels", 1}, {"Length", 1000}});
    for (const std::int64_t frame : {999, 0, 500, 1000}) {
        EXPECT_EQ(source->GotoTimeOffset(Frame(frame), "").GetTimeNumber(), frame);
        EXPECT_EQ(ReadAll(*source), std::vector<float>(whole.begin() + frame, whole.end()));
    }
}

TEST(ToneSource, RefusesPositionsOutsideOfItsLimits) {
    const auto source = MakeTone({{"Length", 1000}});
    const std::string file = CoreHeader("AudioSourceBase.h");
    ExpectFailure("[ToneSource has no frame 1001, only 1000] [ Condition is not true ]", file,
                  [&] { source->GotoTimeOffset(Frame(1001), ""); });
    ExpectFailure("[ToneSource has no frame -1, only 1000] [ Condition is not true ]", file,
                  [&] { source->GotoTimeOffset(Frame(-1), ""); });
    ExpectFailure("[ToneSource counts time in frames] [ Condition is not true ]", file,
                  [&] { source->GotoTimeOffset(Frame(0, 44100), ""); });
    EXPECT_EQ(ReadAll(*source).size(), 2000U) << "a refusal does not move it";
}

TEST(ToneSource, RefusesSettingsThatMakeNoTone) {
    struct Row {
        const char* name;
        std::int32_t value;
        std::string limits;
    };
    const std::vector<Row> rows{
        {"SampleRate", 0, "from 1 to 2147483647"},
        {"Channels", 0, "from 1 to 1000"},
        {"Channels", 1001, "from 1 to 1000"},
        {"Frequency", -1, "from 0 to 2147483647"},
        {"Level", 1, "from -200 to 0"},
        {"Level", -201, "from -200 to 0"},
        {"Length", -1, "from 0 to 2147483647"},
        {"MaxSamplesPerBuffer", 0, "from 1 to 1000000"},
        {"MaxSamplesPerBuffer", 1000001, "from 1 to 1000000"},
    };
    for (const Row& row : rows) {
        ExpectFailure("[ToneSource: " + std::string(row.name) + " is " + std::to_string(row.value) +
                          ", not " + row.limits + "] [ Condition is not true ]",
                      CoreHeader("ElementBase.h"), [&] {
                          MakeTone({{row.name, row.value}});
                      });
    }
}

TEST(ToneSource, DeliversNothingWhileItsOutputIsOff) {
    const auto source = MakeTone({{"Length", 10}});
    source->ActivateOutputs({});
    EXPECT_THAT(source->GetActivatedOutputs(), IsEmpty());
    EXPECT_EQ(source->GetSample(), nullptr);
    source->ActivateOutputs(source->GetAvailableOutputs());
    EXPECT_EQ(source->GetActivatedOutputs(), source->GetAvailableOutputs());
    EXPECT_EQ(ReadAll(*source).size(), 20U);
}

TEST(ToneSource, AnswersOrRefusesWhenItIsClosedAndOpensAgain) {
    const auto source = MakeTone({{"Length", 10}});
    const std::string file = CoreHeader("AudioSourceBase.h");
    ReadAll(*source);
    source->Release();
    EXPECT_FALSE(source->IsMediaOpen());
    EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
    EXPECT_EQ(source->GetSample(), nullptr);
    EXPECT_THAT(source->GetAvailableOutputs(), IsEmpty());
    EXPECT_THAT(source->GetActivatedOutputs(), IsEmpty());
    for (const auto& operation : std::vector<std::function<void()>>{
             [&] { source->GetTimeLimits(""); }, [&] { source->GotoTimeOffset(Frame(0), ""); },
             [&] {
                 source->ActivateOutputs({});
             }}) {
        ExpectFailure("[ToneSource is closed] [ Condition is not true ]", file, operation);
    }
    source->Open(L"");
    EXPECT_EQ(ReadAll(*source).size(), 20U);
    ExpectFailure("[ToneSource is open] [ Condition is not true ]", file,
                  [&] { source->Open(L""); });
}

TEST(ToneSource, NeedsItsSettingsFirst) {
    const auto config = SettingsOf<ElementFactoryType::AudioSource>("example.ToneSource");
    const auto source =
        ImplementElement<ElementFactoryType::AudioSource>("example.ToneSource", "Unknown", nullptr);
    const std::string file = CoreHeader("ElementBase.h");
    ExpectFailure("[ToneSource needs SetInitConfig first] [ Condition is not true ]", file,
                  [&] { source->Open(L""); });
    ExpectFailure("[ToneSource got no settings] [ Pointer is null ]", file,
                  [&] { source->SetInitConfig(nullptr); });
    ExpectFailure("[ToneSource does not change its settings]", file,
                  [&] { source->UpdateConfig(config); });
    ExpectFailure("[ToneSource goes forward only] [ Condition is not true ]",
                  CoreHeader("AudioSourceBase.h"),
                  [&] { source->SetDirection(MediaSourceDirection::Backward); });
    EXPECT_EQ(source->GetManifest()->GetStringValue("implementation"), "example.ToneSource");
}

} // namespace kel::test
