/// The plug-in as a host uses it: a loaded library and look-ups in the registry.
/// Any thread may call these functions; one thread at a time drives an element.
#pragma once

#include <kelCore.h>

#include <cstdlib>
#include <dlfcn.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace kel::test {

/// The name that the tests pass to the entry point of the plug-in.
inline const std::string kPluginName = "kelLibsndfile under test";

/// Returns the path of the plug-in under test: the environment variable KEL_TEST_PLUGIN, or else
/// the plug-in that was built with the tests.
inline std::string PluginPath() {
    const char* other = std::getenv("KEL_TEST_PLUGIN");
    return other != nullptr ? other : KEL_TEST_PLUGIN;
}

/// Loads the plug-in under test and registers its elements, once in a process. It stays loaded,
/// because the registry holds its factories.
inline void* LoadPlugin() {
    static void* const library = [] {
        void* handle = dlopen(PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            throw std::runtime_error(dlerror());
        }
        auto* registerAll = reinterpret_cast<void (*)(const char*)>(dlsym(handle, "RegisterAll"));
        if (registerAll == nullptr) {
            throw std::runtime_error(dlerror());
        }
        registerAll(kPluginName.c_str());
        return handle;
    }();
    return library;
}

/// Makes an instance of the settings that the registration of an element declares.
inline std::shared_ptr<IParametersCollectionInstance>
MakeSettings(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    LoadPlugin();
    return CreateParametersCollectionInstance(
        GetManifest(kind, implementation, type)->GetCollectionValue("init_config"));
}

/// Makes settings of the source.
inline std::shared_ptr<IParametersCollectionInstance> MakeSourceSettings() {
    return MakeSettings(ElementFactoryType::AudioSource, "kel.LibsndfileSource", "WAVE");
}

/// Makes settings of the sink.
inline std::shared_ptr<IParametersCollectionInstance> MakeSinkSettings() {
    return MakeSettings(ElementFactoryType::AudioSink, "kel.LibsndfileSink", "WAVE");
}

/// Makes a source without settings.
inline std::shared_ptr<IAudioSource> MakeSource(const std::string& type = "WAVE") {
    LoadPlugin();
    return ImplementElement<ElementFactoryType::AudioSource>("kel.LibsndfileSource", type, nullptr);
}

/// Makes a sink without settings.
inline std::shared_ptr<IAudioSink> MakeSink(const std::string& type = "WAVE") {
    LoadPlugin();
    return ImplementElement<ElementFactoryType::AudioSink>("kel.LibsndfileSink", type, nullptr);
}

/// Makes a source and opens a file.
/// @param maxFrames frames in a sample
inline std::shared_ptr<IAudioSource> OpenSource(const std::string& path, int maxFrames = 1024) {
    auto settings = MakeSourceSettings();
    settings->SetStringValue("FilePath", path);
    settings->SetIntegerValue("MaxSamplesPerBuffer", maxFrames);
    auto source = MakeSource();
    source->SetInitConfig(settings);
    return source;
}

/// A layout of PCM samples.
struct Layout {
    AudioPCMType type = AudioPCMType::Integer;
    std::uint8_t bytes = 2;
    std::uint8_t bits = 16;
    PCMEndianness endianness = PCMEndianness::Little;
    PCMMuxing muxing = PCMMuxing::Multi;
    std::uint32_t rate = 48000;
    std::uint32_t channels = 2;
};

/// Makes the PCM parameters of a layout.
inline std::shared_ptr<IAudioParameters_PCM> MakeParameters(const Layout& layout) {
    auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    parameters->SetPCMType(layout.type);
    parameters->SetSampleSize(layout.bytes);
    parameters->SetBitsDepth(layout.bits);
    parameters->SetEndianness(layout.endianness);
    parameters->SetMuxing(layout.muxing);
    parameters->SetSampleRate(layout.rate);
    return parameters;
}

/// Makes the channel info of so many channels.
inline std::shared_ptr<IChannelInfo> MakeChannels(std::uint32_t channels) {
    return CreateChannelInfo(
        CreateTrack(ContentType::Audio, channels, CreateTrackGroup("test"), TrackLayout::Default));
}

/// Makes the audio info of a layout.
inline std::shared_ptr<IAudioInfo> MakeInfo(const Layout& layout) {
    return CreateAudioInfo(MakeParameters(layout), MakeChannels(layout.channels), {}, {});
}

/// Makes the input description of a layout.
inline std::shared_ptr<IInfoContainer> MakeInput(const Layout& layout) {
    return CreateInfoContainer(MakeInfo(layout), nullptr);
}

/// Makes a container with one audio sample of these bytes.
inline std::shared_ptr<ISampleContainer> MakeContainer(const std::string& bytes) {
    auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(static_cast<std::uint32_t>(bytes.size()));
    bytes.copy(reinterpret_cast<char*>(buffer->GetData()), bytes.size());
    buffer->SetSize(static_cast<std::uint32_t>(bytes.size()));
    return CreateSampleContainer(CreateAudioSample(nullptr, nullptr, buffer, TimeLimits(), {}),
                                 nullptr);
}

} // namespace kel::test
