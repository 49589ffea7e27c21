// Registers the elements of the plug-in.

#include "ChecksumSink.h"
#include "LevelMeterSink.h"
#include "NullSink.h"
#include "ToneSource.h"

#include <kelCore.h>

namespace {

constexpr const char* kVersion = "0.1.0"; // of the plug-in

} // namespace

/// The plug-in's entry point, which a host calls once after loading the library.
/// @param name of the registrations, chosen by the host; not null
/// @throws what the framework throws; registrations made before remain
extern "C" __attribute__((visibility("default"))) void RegisterAll(const char* name);

void RegisterAll(const char* name) {
    const auto tone = kel::CreateParametersCollectionPrototype();
    tone->AddIntegerParameter("SampleRate", 48000, "Frames per second");
    tone->AddIntegerParameter("Channels", 2, "Number of channels, all with the same tone");
    tone->AddIntegerParameter("Frequency", 1000, "Frequency of the tone in hertz");
    tone->AddIntegerParameter("Level", -20, "Peak level in decibels; 0 is full scale");
    tone->AddIntegerParameter("Length", 48000, "Length of the tone in frames");
    tone->AddIntegerParameter("MaxSamplesPerBuffer", 1024, "Most frames in one sample");
    kel::RegisterElement<kelTone::ToneSource>(
        name, kVersion, {"example.ToneSource", "Makes a sine tone. It needs no file.", tone});

    const auto meter = kel::CreateParametersCollectionPrototype();
    meter->AddStringParameter(
        "FilePath", "File that the levels are written to; without one they are only logged");
    kel::RegisterElement<kelTone::LevelMeterSink>(
        name, kVersion,
        {"example.LevelMeterSink", "Measures the peak and the RMS of each channel.", meter});

    const auto none = kel::CreateParametersCollectionPrototype();
    kel::RegisterElement<kelTone::NullSink>(
        name, kVersion, {"example.NullSink", "Drops its input and counts the frames.", none});
    kel::RegisterElement<kelTone::ChecksumSink>(
        name, kVersion,
        {"example.ChecksumSink", "Computes the CRC-32 of the bytes of its input.", none});
}
