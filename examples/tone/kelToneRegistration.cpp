// Registers the elements of the plug-in.

#include "LevelMeterSink.h"
#include "ToneSource.h"

#include <kelCore.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace kelTone {

using namespace kel;

namespace {

constexpr const char* kPluginVersion = "0.1.0";

// Registers an element that belongs to no file format.
template <ElementFactoryType T, typename Element>
void RegisterElement(const char* name, const char* implementation, const char* documentation,
                     const std::shared_ptr<const IParametersCollectionPrototype>& settings) {
    auto entry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    entry->SetIntegerValue("class", static_cast<std::int32_t>(T));
    entry->SetStringValue("type", GetLabel(WrapperFormat::Unknown));
    entry->SetStringValue("implementation", implementation);
    entry->SetStringValue("doc", documentation);
    entry->SetCollectionValue("init_config", settings);
    auto factory = std::make_shared<ElementFactory<T>>(
        [](std::shared_ptr<const IParametersCollectionInstance> manifest) {
            return std::make_shared<Element>(std::move(manifest));
        });
    RegisterFactory(name, GetKELCoreIdInternal(kPluginVersion), std::move(factory),
                    std::move(entry));
}

void RegisterToneSource(const char* name) {
    const auto settings = CreateParametersCollectionPrototype();
    settings->AddIntegerParameter("SampleRate", 48000, "Frames per second");
    settings->AddIntegerParameter("Channels", 2, "Number of channels, all with the same tone");
    settings->AddIntegerParameter("Frequency", 1000, "Frequency of the tone in hertz");
    settings->AddIntegerParameter("Level", -20, "Peak level in decibels; 0 is full scale");
    settings->AddIntegerParameter("Length", 48000, "Length of the tone in frames");
    settings->AddIntegerParameter("MaxSamplesPerBuffer", 1024, "Most frames in one sample");
    RegisterElement<ElementFactoryType::AudioSource, ToneSource>(
        name, "example.ToneSource", "Makes a sine tone. It needs no file.", settings);
}

void RegisterLevelMeterSink(const char* name) {
    const auto settings = CreateParametersCollectionPrototype();
    settings->AddStringParameter(
        "FilePath", "File that the levels are written to; without one they are only logged");
    RegisterElement<ElementFactoryType::AudioSink, LevelMeterSink>(
        name, "example.LevelMeterSink", "Measures the peak and the RMS of each channel.", settings);
}

} // namespace

} // namespace kelTone

/// The plug-in's entry point, which a host calls once after loading the library.
/// @param name of the registrations, chosen by the host; not null
/// @throws what the framework throws; registrations made before remain
extern "C" __attribute__((visibility("default"))) void RegisterAll(const char* name);

void RegisterAll(const char* name) {
    kelTone::RegisterToneSource(name);
    kelTone::RegisterLevelMeterSink(name);
}
