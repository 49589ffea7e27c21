#include <MakeSource.h>

#include "Elements.h"

#include <CapturingWriter.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

namespace {

using Outputs = std::vector<std::shared_ptr<const IChannelInfo>>;

// Behaviour of a source with the file that its settings, or a call of Open, name.
struct Behaviour {
    std::function<void(const std::string& path)> open = [](const std::string& /*path*/) {
    };
    bool opensBySettings = true;
    bool isActive = true;
    bool hasOutput = true;
    std::string setting = "FilePath";
};

// A source that behaves as it is told.
class FileSource final : public IAudioSource {
public:
    FileSource(Behaviour behaviour, Manifest manifest)
        : m_behaviour(std::move(behaviour)), m_manifest(std::move(manifest)) {}

    void SetInitConfig(Manifest config) override {
        if (m_behaviour.opensBySettings) {
            Open(config->GetWideStringValue("FilePath"));
        }
    }
    void Open(const std::wstring& path) override {
        m_behaviour.open(ConvertWideStringToPlatformString(path));
        m_isOpen = true;
        m_isActive = m_behaviour.isActive;
    }
    bool IsMediaOpen() const override { return m_isOpen; }
    Outputs GetAvailableOutputs() const override {
        return m_behaviour.hasOutput ? Outputs{nullptr} : Outputs{};
    }
    Outputs GetActivatedOutputs() const override {
        return m_isActive ? GetAvailableOutputs() : Outputs{};
    }
    void ActivateOutputs(const Outputs& outputs) override { m_isActive = !outputs.empty(); }
    Manifest GetManifest() const override { return m_manifest; }

    void UpdateConfig(Manifest) override {}
    void SetDirection(MediaSourceDirection) override {}
    MediaSourceDirection GetDirection() const override { return MediaSourceDirection::Forward; }
    MediaTime GotoTimeOffset(const MediaTime& time, std::string) override { return time; }
    TimeLimits GetTimeLimits(std::string) override { return {}; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }
    bool IsGrowing() const override { return false; }
    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string) const override {
        return nullptr;
    }
    std::shared_ptr<const ISampleContainer> GetSample() override { return nullptr; }
    void Interrupt() override {}
    void SetOutputMediator(std::shared_ptr<IOutputMediator>, std::string, std::string) override {}
    void ClearInternalBuffer() override {}
    void Release() override {}

private:
    Behaviour m_behaviour;
    Manifest m_manifest;
    bool m_isOpen = false;
    bool m_isActive = false;
};

// Sources that are registered while it exists, with a list of the attempts to open a file.
class Sources {
public:
    ~Sources() { UnregisterFactories("sources of MakeSourceTests"); }

    void Add(const std::string& implementation, const std::vector<std::string>& types,
             Behaviour behaviour = {}) {
        const auto settings = CreateParametersCollectionPrototype();
        settings->AddStringParameter(behaviour.setting, "");
        for (const std::string& type : types) {
            Behaviour logged = behaviour;
            logged.open = [this, name = implementation + ":" + type,
                           open = behaviour.open](const std::string& path) {
                m_attempts.push_back(name + " " + path);
                open(path);
            };
            const auto entry = MakeEntry(ElementFactoryType::AudioSource, implementation, type);
            entry->SetCollectionValue("init_config", settings);
            RegisterFactory("sources of MakeSourceTests", "core",
                            std::make_shared<SourceFactory>([logged](const Manifest& manifest) {
                                return std::make_shared<FileSource>(logged, manifest);
                            }),
                            entry);
        }
    }

    const std::vector<std::string>& Attempts() const { return m_attempts; }

private:
    std::vector<std::string> m_attempts;
};

using Attempts = std::vector<std::string>;

Behaviour Refusing(const std::string& reason) {
    Behaviour behaviour;
    behaviour.open = [reason](const std::string& /*path*/) {
        throw std::runtime_error(reason);
    };
    return behaviour;
}

// The type that the source of a file is registered for.
std::string TypeOf(const std::string& path) {
    const LogCapture log;
    return MakeSource(path)->GetManifest()->GetStringValue("type");
}

// Expects the message of a failure, which is also the last record.
void ExpectRefused(const std::string& path, const std::string& message) {
    const LogCapture log;
    try {
        MakeSource(path);
        ADD_FAILURE() << path << " was opened";
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), message);
    }
    const std::vector<std::string> errors = log->Messages(LogLevel::Error);
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(errors.back(), message);
}

} // namespace

TEST(MakeSource, TriesTheSourcesForTheExtensionFirst) {
    Sources sources;
    sources.Add("test.Raw", {"RAW"});
    sources.Add("test.Any", {"Any", "WAVE", "AIFF", "BWAVE", "FLAC"});
    for (const auto& [path, type] :
         std::vector<std::pair<std::string, std::string>>{{"a.wav", "WAVE"},
                                                          {"a.WAVE", "WAVE"},
                                                          {"a.aif", "AIFF"},
                                                          {"a.aiff", "AIFF"},
                                                          {"a.aifc", "AIFF"},
                                                          {"a.bwf", "BWAVE"},
                                                          {"a.rf64", "BWAVE"},
                                                          {"dir.wav/a.Flac", "FLAC"},
                                                          {"a.raw", "RAW"},
                                                          {"a.wav.unknown", "Any"},
                                                          {"dir.wav/a", "Any"}}) {
        EXPECT_EQ(TypeOf(path), type) << path;
    }
}

TEST(MakeSource, TriesTheOthersAndAtLastTheOnesWithoutAHeader) {
    Sources sources;
    sources.Add("test.Raw", {"RAW"});
    sources.Add("test.First", {"FLAC", "WAVE"}, Refusing("no"));
    sources.Add("test.First", {"FLAC"}); // hidden by the other one
    sources.Add("test.Second", {"OGG"}, Refusing("no"));
    EXPECT_EQ(TypeOf("a.ogg"), "RAW");
    EXPECT_EQ(sources.Attempts(), (Attempts{"test.Second:OGG a.ogg", "test.First:FLAC a.ogg",
                                            "test.First:WAVE a.ogg", "test.Raw:RAW a.ogg"}));
}

TEST(MakeSource, OpensTheFileByTheSettingsOrElseByOpen) {
    Sources sources;
    Behaviour byCall;
    byCall.opensBySettings = false;
    sources.Add("test.ByCall", {"A"}, byCall);
    sources.Add("test.BySettings", {"B"});
    EXPECT_EQ(TypeOf("x/\xFF.a"), "A");
    EXPECT_EQ(TypeOf("x/\xFF.b"), "B");
    EXPECT_EQ(TypeOf("-"), "A"); // not standard input
    EXPECT_EQ(sources.Attempts(), (Attempts{"test.ByCall:A x/\xFF.a", "test.BySettings:B x/\xFF.b",
                                            "test.ByCall:A ./-"}));
}

TEST(MakeSource, ActivatesTheOutputsWhenNoneIsActive) {
    Sources sources;
    Behaviour inactive;
    inactive.isActive = false;
    sources.Add("test.Inactive", {"WAVE"}, inactive);
    const LogCapture log;
    EXPECT_EQ(MakeSource("a.wav")->GetActivatedOutputs().size(), 1U);
}

TEST(MakeSource, ListsAllRefusalsOnceForEachSourceAndReason) {
    Sources sources;
    sources.Add("test.Same", {"WAVE", "AIFF"}, Refusing("it is\ndamaged"));
    sources.Add("test.Other", {"FLAC"}, Refusing("it is no sound"));
    sources.Add("test.Other", {"OGG"}, Refusing("it is no song"));
    Behaviour number;
    number.open = [](const std::string& /*path*/) {
        throw 1; // NOLINT(hicpp-exception-baseclass): the fault
    };
    sources.Add("test.Number", {"OGG"}, number);
    Behaviour silent;
    silent.hasOutput = false;
    sources.Add("test.Silent", {"OGG"}, silent);
    Behaviour tone;
    tone.setting = "Frequency";
    sources.Add("test.Tone", {"Unknown"}, tone);
    ExpectRefused("a.aiff", "a.aiff: cannot open with any audio source\n"
                            "test.Same for AIFF, WAVE: it is damaged\n"
                            "test.Other for FLAC: it is no sound\n"
                            "test.Other for OGG: it is no song\n"
                            "test.Number for OGG: an exception of an unknown type\n"
                            "test.Silent for OGG: it has no output\n"
                            "test.Tone for Unknown: it has no setting FilePath");
}

TEST(MakeSource, FailsWithoutASource) {
    ExpectRefused("a.wav", "a.wav: cannot open with any audio source: none is registered; load a "
                           "plug-in first");
}

} // namespace kel::test
