/// The installed examples.
/// One thread at a time drives an element.
#pragma once

#include <kelCore.h>

#include <dlfcn.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

/// Returns the path of an installed plug-in.
inline std::string InstalledPlugin(const std::string& name) {
    return std::string(KEL_TEST_PREFIX "/lib/kel/lib") + name + ".so";
}

/// Returns the path of a source file of the tone example, because its log records contain it.
inline std::string ToneFile(const std::string& name) {
    return std::string(KEL_TEST_STAGE "/sources/tone/") + name;
}

/// Returns the path of a header of kelCore when the tone example was built, for the same reason.
inline std::string CoreHeader(const std::string& name) {
    return std::string(KEL_TEST_STAGE "/first/include/kelCore/") + name;
}

/// Loads a plug-in and registers its elements. It stays loaded.
inline void Load(const std::string& name) {
    const std::string path = InstalledPlugin(name);
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* entryPoint = library != nullptr ? dlsym(library, "RegisterAll") : nullptr;
    if (entryPoint == nullptr) {
        throw std::runtime_error(dlerror());
    }
    reinterpret_cast<void (*)(const char*)>(entryPoint)(path.c_str());
}

/// Integer settings by their names.
using Settings = std::vector<std::pair<std::string, std::int32_t>>;

/// Makes an instance of the settings of an element.
template <ElementFactoryType T>
std::shared_ptr<IParametersCollectionInstance> SettingsOf(const std::string& implementation,
                                                          const std::string& type = "Unknown") {
    const std::string plugin =
        implementation.rfind("example.", 0) == 0 ? "kelTone" : "kelLibsndfile";
    if (GetFactory(T, implementation, type) == nullptr) {
        Load(plugin);
    }
    return CreateParametersCollectionInstance(
        GetManifest(T, implementation, type)->GetCollectionValue("init_config"));
}

/// Makes an open tone source with these settings in place of the defaults.
inline std::shared_ptr<IAudioSource> MakeTone(const Settings& settings) {
    const auto config = SettingsOf<ElementFactoryType::AudioSource>("example.ToneSource");
    for (const auto& [name, value] : settings) {
        config->SetIntegerValue(name, value);
    }
    auto source =
        ImplementElement<ElementFactoryType::AudioSource>("example.ToneSource", "Unknown", nullptr);
    source->SetInitConfig(config);
    return source;
}

/// Makes a sink that has no settings.
inline std::shared_ptr<IAudioSink> MakeSink(const std::string& implementation) {
    const auto config = SettingsOf<ElementFactoryType::AudioSink>(implementation);
    auto sink = ImplementElement<ElementFactoryType::AudioSink>(implementation, "Unknown", nullptr);
    sink->SetInitConfig(config);
    return sink;
}

/// Pushes all samples of a source into a sink and closes it.
inline void PushAll(IAudioSource& source, IAudioSink& sink) {
    sink.DefineInput(source.GetDefinedOutput(""), "");
    while (const auto sample = source.GetSample()) {
        sink.PushSample(sample);
    }
    sink.Close(false);
}

/// Makes a level meter that writes to a file, or to none.
inline std::shared_ptr<IAudioSink> MakeMeter(const std::string& file) {
    const auto config = SettingsOf<ElementFactoryType::AudioSink>("example.LevelMeterSink");
    config->SetStringValue("FilePath", file);
    auto sink = ImplementElement<ElementFactoryType::AudioSink>("example.LevelMeterSink", "Unknown",
                                                                nullptr);
    sink->SetInitConfig(config);
    return sink;
}

} // namespace kel::test
