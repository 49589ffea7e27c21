#include "Examples.h"

#include <AudioFiles.h>
#include <CapturingWriter.h>
#include <TemporaryDirectory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace kel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::shared_ptr<IAudioParameters_PCM> FloatParameters() {
    auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    parameters->SetSampleRate(48000);
    parameters->SetPCMType(AudioPCMType::Float);
    parameters->SetSampleSize(4);
    parameters->SetBitsDepth(32);
    parameters->SetEndianness(PCMEndianness::Little);
    parameters->SetMuxing(PCMMuxing::Multi);
    return parameters;
}

std::shared_ptr<const IInfoContainer>
MakeInput(const std::shared_ptr<const IAudioParameters>& parameters, std::uint32_t channels) {
    const auto track = CreateTrack(ContentType::Audio, channels, nullptr, TrackLayout::Default);
    return CreateInfoContainer(CreateAudioInfo(parameters, CreateChannelInfo(track), {}, {}),
                               nullptr);
}

std::shared_ptr<const ISampleContainer> MakeSample(const std::vector<float>& values,
                                                   std::uint32_t lessBytes = 0) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    const auto bytes = static_cast<std::uint32_t>(values.size() * sizeof(float));
    buffer->Reserve(bytes);
    buffer->SetSize(bytes - lessBytes);
    std::memcpy(buffer->GetData(), values.data(), bytes);
    return CreateSampleContainer(CreateAudioSample(nullptr, nullptr, buffer, TimeLimits(), {}),
                                 nullptr);
}

const std::string kBase = CoreHeader("AudioSinkBase.h");

} // namespace

TEST(LevelMeterSink, MeasuresTheTone) {
    const auto source = MakeTone({});
    const auto meter = MakeMeter("");
    const LogCapture log;
    PushAll(*source, *meter);
    EXPECT_THAT(log->Messages(LogLevel::Info),
                ElementsAre("channel 1: peak -20.00 dB, RMS -23.01 dB",
                            "channel 2: peak -20.00 dB, RMS -23.01 dB"));
}

TEST(LevelMeterSink, MeasuresEachChannelOfAFileThatAnotherPluginReads) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 3, 48000,
               {0.5F, 0, -1, 0.5F, 0, 0, -0.5F, 0, 1, -0.5F, 0, 0});
    const auto settings =
        SettingsOf<ElementFactoryType::AudioSource>("kel.LibsndfileSource", "WAVE");
    settings->SetStringValue("FilePath", directory / "take.wav");
    settings->SetIntegerValue("MaxSamplesPerBuffer", 3);
    const auto source =
        ImplementElement<ElementFactoryType::AudioSource>("kel.LibsndfileSource", "WAVE", nullptr);
    source->SetInitConfig(settings);

    const auto meter = MakeMeter(directory / "levels.txt");
    PushAll(*source, *meter);
    EXPECT_EQ(ReadFile(directory / "levels.txt"), "channel 1: peak -6.02 dB, RMS -6.02 dB\n"
                                                  "channel 2: peak -inf dB, RMS -inf dB\n"
                                                  "channel 3: peak 0.00 dB, RMS -3.01 dB\n");
}

TEST(LevelMeterSink, MeasuresAnInputWithoutSamplesAsSilence) {
    const TemporaryDirectory directory;
    const auto meter = MakeMeter(directory / "levels.txt");
    meter->DefineInput(MakeInput(FloatParameters(), 1), "");
    meter->Release();
    EXPECT_EQ(ReadFile(directory / "levels.txt"), "channel 1: peak -inf dB, RMS -inf dB\n");
}

TEST(LevelMeterSink, StartsAgainWithTheNextInput) {
    const TemporaryDirectory directory;
    const auto meter = MakeMeter(directory / "loud.txt");
    meter->DefineInput(MakeInput(FloatParameters(), 1), "");
    meter->PushSample(MakeSample({1, 1, -1}));
    meter->Close(false);
    EXPECT_EQ(ReadFile(directory / "loud.txt"), "channel 1: peak 0.00 dB, RMS 0.00 dB\n");

    meter->Open(ConvertPlatformStringToWideString(directory / "quiet.txt"));
    meter->DefineInput(MakeInput(FloatParameters(), 1), "");
    meter->PushSample(MakeSample({0.5F, 0.5F}));
    meter->Close(true);
    meter->Close(true);
    EXPECT_EQ(ReadFile(directory / "quiet.txt"), "channel 1: peak -6.02 dB, RMS -6.02 dB\n");
    EXPECT_EQ(ReadFile(directory / "loud.txt"), "channel 1: peak 0.00 dB, RMS 0.00 dB\n");
}

TEST(LevelMeterSink, ProposesFloatsForAnInputThatHasNone) {
    const TemporaryDirectory directory;
    const auto integers = FloatParameters();
    integers->SetPCMType(AudioPCMType::Integer);
    const auto doubles = FloatParameters();
    doubles->SetSampleSize(8);
    const auto bigEndian = FloatParameters();
    bigEndian->SetEndianness(PCMEndianness::Big);
    const auto meter = MakeMeter(directory / "levels.txt");
    for (const auto& parameters : {integers, doubles, bigEndian}) {
        const auto input = MakeInput(parameters, 2);
        const auto report = meter->CheckInputAndAdaptIfNecessary(input, "");
        EXPECT_EQ(report->GetErrorType(), static_cast<int>(CheckInputErrorType::Encoding));
        const auto proposals =
            report->GetAcceptedEncodings().at(input->GetAudioInfos().at(0)->GetId());
        ASSERT_EQ(proposals.size(), 1U);
        const auto proposal = std::dynamic_pointer_cast<const IAudioParameters>(proposals[0]);
        EXPECT_EQ(meter->CheckInputAndAdaptIfNecessary(MakeInput(proposal, 2), "")->GetErrorType(),
                  0);
        ExpectFailure("[LevelMeterSink accepts only 32-bit float little-endian, 2 channels, 48000 "
                      "Hz] [ Condition is not true ]",
                      kBase, [&] { meter->DefineInput(input, ""); });
    }
    EXPECT_THAT(directory.Names(), IsEmpty()) << "a refusal leaves no file";
}

TEST(LevelMeterSink, RefusesInputsThatAreNotOneTrackOfAudio) {
    const auto meter = MakeMeter("");
    const auto audio = MakeInput(FloatParameters(), 1)->GetAudioInfos().at(0);
    for (const auto& input : std::vector<std::shared_ptr<const IInfoContainer>>{
             CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>>{}, nullptr),
             CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>>{audio, audio}, nullptr),
             CreateInfoContainer(CreateAudioInfo(FloatParameters(), nullptr, {}, {}), nullptr),
             MakeInput(FloatParameters(), 0)}) {
        const auto report = meter->CheckInputAndAdaptIfNecessary(input, "");
        EXPECT_EQ(report->GetErrorType(), static_cast<int>(CheckInputErrorType::Track));
        EXPECT_THAT(report->GetExpectedContentTypes(), ElementsAre(ContentType::Audio));
        ExpectFailure(
            "[LevelMeterSink accepts only one track of PCM audio] [ Condition is not true ]", kBase,
            [&] { meter->DefineInput(input, ""); });
    }
}

TEST(LevelMeterSink, RefusesOperationsInTheWrongOrder) {
    const auto meter = MakeMeter("");
    const auto input = MakeInput(FloatParameters(), 2);
    const std::string tooEarly =
        "[LevelMeterSink needs DefineInput first] [ Condition is not true ]";
    ExpectFailure(tooEarly, kBase, [&] { meter->PushSample(MakeSample({0, 0})); });
    meter->DefineInput(input, "");
    EXPECT_EQ(meter->GetDefinedInput(""), input);
    for (const auto& operation :
         std::vector<std::function<void()>>{[&] { meter->DefineInput(input, ""); },
                                            [&] {
                                                meter->Open(L"");
                                            }}) {
        ExpectFailure("[LevelMeterSink has an input already] [ Condition is not true ]", kBase,
                      operation);
    }
    ExpectFailure("[LevelMeterSink got 4 bytes, not whole frames] [ Condition is not true ]", kBase,
                  [&] { meter->PushSample(MakeSample({0})); });
    ExpectFailure("[LevelMeterSink got 7 bytes, not whole frames] [ Condition is not true ]", kBase,
                  [&] {
                      meter->PushSample(MakeSample({0, 0}, 1));
                  });
    ExpectFailure("[LevelMeterSink got no sample] [ Pointer is null ]", kBase,
                  [&] { meter->PushSample(nullptr); });
    meter->Close(false);
    ExpectFailure(tooEarly, kBase, [&] { meter->PushSample(MakeSample({0, 0})); });
}

TEST(LevelMeterSink, RefusesUnsupportedOperations) {
    const auto meter = MakeMeter("");
    ExpectFailure("[LevelMeterSink takes no metadata]", kBase, [&] { meter->PushMetadata({}); });
    ExpectFailure("[LevelMeterSink is pushed to]", kBase,
                  [&] { meter->SetInputMediator(nullptr, "", ""); });
    ExpectFailure("[LevelMeterSink does not change its settings]", CoreHeader("ElementBase.h"),
                  [&] { meter->UpdateConfig(nullptr); });
    ExpectFailure("[LevelMeterSink got no settings] [ Pointer is null ]",
                  CoreHeader("ElementBase.h"), [&] { meter->SetInitConfig(nullptr); });
    ExpectFailure("[LevelMeterSink got no input description] [ Pointer is null ]", kBase,
                  [&] { meter->CheckInputAndAdaptIfNecessary(nullptr, ""); });
}

TEST(LevelMeterSink, ReportsThatItsFileCannotBeWritten) {
    const auto input = MakeInput(FloatParameters(), 1);
    const std::string file = ToneFile("LevelMeterSink.cpp");
    const auto missing = MakeMeter("/missing/levels.txt");
    ExpectFailure(
        "[LevelMeterSink cannot create \"/missing/levels.txt\"] [ Condition is not true ]", file,
        [&] { missing->DefineInput(input, ""); });
    const auto full = MakeMeter("/dev/full");
    full->DefineInput(input, "");
    ExpectFailure("[LevelMeterSink cannot write \"/dev/full\"] [ Condition is not true ]", file,
                  [&] { full->Close(false); });
}

} // namespace kel::test
