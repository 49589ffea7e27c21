#include <CapturingWriter.h>
#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kel {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kSinkBase = "kelCore/include/AudioSinkBase.h";
const PCMFormat kStereo16{48000, 2, AudioPCMType::Integer, 2};

std::shared_ptr<IParametersCollectionInstance> MakeSinkManifest(bool withFile) {
    const auto settings = CreateParametersCollectionPrototype();
    if (withFile) {
        settings->AddStringParameter("FilePath", "The file");
    }
    auto manifest = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    manifest->SetCollectionValue("init_config", settings);
    return manifest;
}

// Notes what it is asked for. Accepts two channels.
class NotingSink final : public AudioSinkBase {
public:
    explicit NotingSink(bool withFile = false)
        : AudioSinkBase("Noter", MakeSinkManifest(withFile)) {}

    std::shared_ptr<IParametersCollectionInstance> MakeSettings() const {
        return CreateParametersCollectionInstance(GetManifest()->GetCollectionValue("init_config"));
    }

    std::vector<std::string> calls;
    bool fails = false;

protected:
    PCMFormat AdaptFormat(const PCMFormat& offered) const override {
        PCMFormat accepted = offered;
        accepted.channels = 2;
        return accepted;
    }

    void BeginInput(const PCMFormat& format) override {
        calls.push_back("begin \"" + Path() + "\" " + ToString(format));
        KEL_CHECK(!fails, "cannot begin");
    }

    void WriteFrames(const std::uint8_t* data, std::uint32_t frames) override {
        const std::string bytes(data, data + std::size_t{frames} * 4);
        calls.push_back(std::to_string(frames) + " frames " + bytes);
    }

    void FinishInput() override {
        calls.emplace_back("finish");
        KEL_CHECK(!fails, "cannot finish");
    }
};

// Implements only what it has to.
class SmallestSink final : public AudioSinkBase {
public:
    SmallestSink() : AudioSinkBase("Smallest", nullptr) {}

    std::uint32_t frames = 0;

protected:
    void WriteFrames(const std::uint8_t* /*data*/, std::uint32_t count) override {
        frames += count;
    }
};

std::shared_ptr<const IInfoContainer> InputOf(const PCMFormat& format) {
    return CreateInfoContainer(CreateAudioInfo(format, "input"), nullptr);
}

std::shared_ptr<const ISample> SampleOf(const std::string& bytes) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(static_cast<std::uint32_t>(bytes.size()));
    buffer->SetSize(static_cast<std::uint32_t>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), buffer->GetData());
    return CreateAudioSample(nullptr, nullptr, buffer, TimeLimits(), {});
}

std::shared_ptr<const ISampleContainer> ContainerOf(const std::vector<std::string>& samples) {
    std::vector<std::shared_ptr<const ISample>> made;
    for (const std::string& bytes : samples) {
        made.push_back(SampleOf(bytes));
    }
    return CreateSampleContainer(made, nullptr);
}

// A container of another library, with a sample that has no buffer, or with none.
class ForeignSamples final : public ISampleContainer, public IAudioSample {
public:
    explicit ForeignSamples(bool hasSample) : m_hasSample(hasSample) {}

    std::vector<std::shared_ptr<const IAudioSample>>
    GetAudioSamples(std::shared_ptr<const IAudioInfo> /*info*/,
                    std::shared_ptr<const ITrack> /*track*/) const override {
        return {m_hasSample ? std::make_shared<const ForeignSamples>(false) : nullptr};
    }
    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return nullptr; }
    std::shared_ptr<const IBuffer> GetBuffer() const override { return nullptr; }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override { return nullptr; }
    std::shared_ptr<const IAudioInfo> GetAudioInfo() const override { return nullptr; }
    const TimeLimits& GetTimeLimits() const override { return m_limits; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }

private:
    bool m_hasSample;
    TimeLimits m_limits;
};

} // namespace

TEST(ASinkBase, WritesTheFramesBetweenDefineInputAndClose) {
    NotingSink sink;
    sink.SetInitConfig(sink.MakeSettings());
    EXPECT_EQ(sink.GetDefinedInput(""), nullptr);
    const auto input = InputOf(kStereo16);
    sink.DefineInput(input, "");
    sink.PushSample(ContainerOf({"abcdefgh", "", "ijkl"}));
    sink.Interrupt();
    sink.ClearInternalBuffer();
    EXPECT_EQ(sink.GetDefinedInput(""), input);
    sink.Close(true);
    sink.Close(false);
    sink.Release();
    EXPECT_EQ(sink.GetDefinedInput(""), input) << "also after the end";
    EXPECT_THAT(sink.calls,
                ElementsAre("begin \"\" 16-bit integer little-endian, 2 channels, 48000 Hz",
                            "2 frames abcdefgh", "0 frames ", "1 frames ijkl", "finish"));
}

TEST(ASinkBase, HasThePathOfItsSettingsOrOfOpenForAllItsInputs) {
    NotingSink sink(true);
    const auto settings = sink.MakeSettings();
    settings->SetStringValue("FilePath", "first");
    sink.SetInitConfig(settings);
    sink.DefineInput(InputOf(kStereo16), "");
    sink.Release();
    sink.Open(L"second");
    for (int round = 0; round < 2; ++round) {
        sink.DefineInput(InputOf(kStereo16), "");
        sink.Release();
    }
    const std::string format = " 16-bit integer little-endian, 2 channels, 48000 Hz";
    EXPECT_THAT(sink.calls,
                ElementsAre("begin \"first\"" + format, "finish", "begin \"second\"" + format,
                            "finish", "begin \"second\"" + format, "finish"));
}

TEST(ASinkBase, AcceptsEveryFormatUnlessItAdaptsIt) {
    SmallestSink sink;
    sink.DefineInput(InputOf({1, 3, AudioPCMType::Integer, 1, PCMEndianness::Undefined}), "");
    sink.PushSample(ContainerOf({"abcdef"}));
    sink.Close(false);
    EXPECT_EQ(sink.frames, 2U);
}

TEST(ASinkBase, ReportsAndRefusesAFormatThatItAdapts) {
    const auto channels = CreateAudioInfo(PCMFormat{48000, 3}, "")->GetChannelInfo();
    struct Row {
        std::shared_ptr<const IAudioInfo> offered;
        PCMFormat accepted;
    };
    const std::vector<Row> rows{
        {CreateAudioInfo(PCMFormat{48000, 1, AudioPCMType::Integer, 2}, ""), kStereo16},
        {CreateAudioInfo(nullptr, channels, {}, {}), PCMFormat{0, 2}},
    };
    for (const Row& row : rows) {
        NotingSink sink;
        const auto input = CreateInfoContainer(row.offered, nullptr);
        const auto report = sink.CheckInputAndAdaptIfNecessary(input, "");
        EXPECT_EQ(report->GetErrorType(), static_cast<int>(CheckInputErrorType::Encoding));
        const auto proposals = report->GetAcceptedEncodings().at(row.offered->GetId());
        ASSERT_EQ(proposals.size(), 1U);
        EXPECT_EQ(ReadFormat(*CreateAudioInfo(
                      std::dynamic_pointer_cast<const IAudioParameters>(proposals[0]),
                      CreateAudioInfo(kStereo16, "")->GetChannelInfo(), {}, {})),
                  row.accepted);
        test::ExpectFailure("[Noter accepts only " + ToString(row.accepted) +
                                "] [ Condition is not true ]",
                            kSinkBase, [&] { sink.DefineInput(input, ""); });
        EXPECT_EQ(sink.GetDefinedInput(""), nullptr);
        EXPECT_THAT(sink.calls, IsEmpty());
    }
}

TEST(ASinkBase, RefusesAudioThatIsNotPCMAlsoWhenItAcceptsEveryFormat) {
    SmallestSink sink;
    const auto channels = CreateAudioInfo(PCMFormat{48000, 3}, "")->GetChannelInfo();
    const auto input = CreateInfoContainer(CreateAudioInfo(nullptr, channels, {}, {}), nullptr);
    EXPECT_EQ(sink.CheckInputAndAdaptIfNecessary(input, "")->GetErrorType(),
              static_cast<int>(CheckInputErrorType::Encoding));
    test::ExpectFailure("[Smallest accepts only 32-bit float little-endian, 3 channels, 0 Hz] "
                        "[ Condition is not true ]",
                        kSinkBase, [&] { sink.DefineInput(input, ""); });
}

TEST(ASinkBase, RefusesAudioThatIsNotPCMAlsoWhenADerivedClassReportsNoError) {
    class Careless final : public AudioSinkBase {
    public:
        Careless() : AudioSinkBase("Careless", nullptr) {}
        std::shared_ptr<const ICheckInputReport>
        CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> /*input*/,
                                      std::string /*name*/) const override {
            return CreateCheckInputReportNoError();
        }

    protected:
        void WriteFrames(const std::uint8_t* /*data*/, std::uint32_t /*frames*/) override {}
    };
    Careless sink;
    const auto channels = CreateAudioInfo(kStereo16, "")->GetChannelInfo();
    const auto input = CreateInfoContainer(CreateAudioInfo(nullptr, channels, {}, {}), nullptr);
    test::ExpectFailure("[Careless accepts only 32-bit float little-endian, 2 channels, 0 Hz] "
                        "[ Condition is not true ]",
                        kSinkBase, [&] { sink.DefineInput(input, ""); });
}

TEST(ASinkBase, ReportsAndRefusesInputsThatAreNotOneTrackOfAudio) {
    class OtherInfo final : public IInfo {};
    const std::shared_ptr<const IInfo> audio = CreateAudioInfo(kStereo16, "");
    const auto parameters = CreateAudioParameters(kStereo16);
    for (const auto& infos : std::vector<std::vector<std::shared_ptr<const IInfo>>>{
             {},
             {audio, audio},
             {audio, std::make_shared<OtherInfo>()},
             {CreateAudioInfo(parameters, nullptr, {}, {})},
             {CreateAudioInfo(PCMFormat{48000, 0}, "")}}) {
        SmallestSink sink;
        const auto input = CreateInfoContainer(infos, nullptr);
        const auto report = sink.CheckInputAndAdaptIfNecessary(input, "");
        EXPECT_EQ(report->GetErrorType(), static_cast<int>(CheckInputErrorType::Track));
        EXPECT_THAT(report->GetExpectedContentTypes(), ElementsAre(ContentType::Audio));
        test::ExpectFailure(
            "[Smallest accepts only one track of PCM audio] [ Condition is not true ]", kSinkBase,
            [&] { sink.DefineInput(input, ""); });
    }
}

TEST(ASinkBase, RefusesSamplesOutsideOfAnInputAndChecksAllBeforeItWritesOne) {
    NotingSink sink;
    const std::string tooEarly = "[Noter needs DefineInput first] [ Condition is not true ]";
    test::ExpectFailure(tooEarly, kSinkBase, [&] { sink.PushSample(ContainerOf({"abcd"})); });
    sink.DefineInput(InputOf(kStereo16), "");
    test::ExpectFailure("[Noter got no sample] [ Pointer is null ]", kSinkBase,
                        [&] { sink.PushSample(nullptr); });
    for (const bool hasSample : {true, false}) {
        test::ExpectFailure("[Noter got a sample without a buffer] [ Pointer is null ]", kSinkBase,
                            [&] { sink.PushSample(std::make_shared<ForeignSamples>(hasSample)); });
    }
    test::ExpectFailure("[Noter got 6 bytes, not whole frames] [ Condition is not true ]",
                        kSinkBase, [&] {
                            sink.PushSample(ContainerOf({"abcd", "abcdef"}));
                        });
    EXPECT_EQ(sink.calls.size(), 1U) << "nothing is written";
    sink.Close(false);
    test::ExpectFailure(tooEarly, kSinkBase, [&] { sink.PushSample(ContainerOf({"abcd"})); });
}

TEST(ASinkBase, RefusesWhatItCannotDo) {
    NotingSink sink;
    const auto settings = sink.MakeSettings();
    const auto input = InputOf(kStereo16);
    const auto refuses = [](const std::string& message, const std::string& file,
                            const std::function<void()>& operation) {
        test::ExpectFailure(message, file, operation);
    };
    const std::string elementBase = "kelCore/include/ElementBase.h";
    refuses("[Noter does not change its settings]", elementBase,
            [&] { sink.UpdateConfig(settings); });
    refuses("[Noter got no settings] [ Pointer is null ]", elementBase,
            [&] { sink.SetInitConfig(nullptr); });
    refuses("[Noter takes no metadata]", kSinkBase, [&] { sink.PushMetadata({}); });
    refuses("[Noter is pushed to]", kSinkBase, [&] { sink.SetInputMediator(nullptr, "", ""); });
    refuses("[Noter got no input description] [ Pointer is null ]", kSinkBase,
            [&] { sink.CheckInputAndAdaptIfNecessary(nullptr, ""); });
    sink.DefineInput(input, "");
    const std::vector<std::function<void()>> twice{
        [&] { sink.DefineInput(input, ""); },
        [&] { sink.Open(L"path"); },
        [&] { sink.SetInitConfig(settings); },
    };
    for (const auto& operation : twice) {
        refuses("[Noter has an input already] [ Condition is not true ]", kSinkBase, operation);
    }
}

TEST(ASinkBase, HasNoInputAfterAFailureAndAcceptsAnother) {
    NotingSink sink;
    const auto first = InputOf(kStereo16);
    const auto second = InputOf(kStereo16);
    const std::string file = "kelCore/tests/AudioSinkBaseTests.cpp";
    sink.fails = true;
    test::ExpectFailure("[cannot begin] [ Condition is not true ]", file,
                        [&] { sink.DefineInput(first, ""); });
    EXPECT_EQ(sink.GetDefinedInput(""), nullptr);
    sink.Close(false);
    sink.fails = false;
    sink.DefineInput(first, "");
    sink.fails = true;
    test::ExpectFailure("[cannot finish] [ Condition is not true ]", file,
                        [&] { sink.Close(false); });
    sink.Close(false);
    sink.fails = false;
    sink.DefineInput(second, "");
    EXPECT_EQ(sink.GetDefinedInput(""), second);
}

} // namespace kel
