/// Sinks with a manifest of the test's own, and the texts of the sink.
#pragma once

#include "Records.h"

#include <Plugin.h>
#include <kelCore.h>

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace kel::test {

inline const std::string kWrapperRefused =
    "[Only AIFF and WAVE/BWAVE wrapper formats (or extensions) are supported]";
inline const std::string kInputRefused =
    "[The defined input is not accepted. Please call CheckInputAndAdaptIfNecessary to receive more "
    "info about supported input infos.]";

/// Runs an operation that the sink must refuse.
template <typename Operation>
void ExpectSinkRefusal(const std::string& message, Operation operation, const Lines& before = {}) {
    ExpectRefusal(message, kSinkFile, operation, before);
}

// Records of the format that a sink finds.
inline const std::string kFromType = "Read the following WrapperFormat from type: ";
inline const std::string kFromExtension = "Inferred the following WrapperFormat from extension: ";
inline const std::string kFromBoth =
    "Read the following WrapperFormat from both extension and type: ";

inline Line Info(const std::string& message) {
    return {LogLevel::Info, message, kSinkFile};
}

/// The refusal of a file that libsndfile cannot create.
inline std::string UnableToOpen(const std::string& path, const std::string& reason) {
    return "[Unable to open file \"" + path + "\" with libsndfile. Error is:\"" + reason + "\"]";
}

/// The record of a write that is not complete.
inline Line ShortWrite(const std::string& size, const std::string& written) {
    return {LogLevel::Error,
            "Warning: tried to write " + size + " bytes but could only write " + written,
            kSinkFile};
}

/// The manifest that a host would hand to a sink of this type. Any text will do.
inline std::shared_ptr<IParametersCollectionInstance> MakeManifest(const std::string& type) {
    auto manifest = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    manifest->SetIntegerValue("class", static_cast<std::int32_t>(ElementFactoryType::AudioSink));
    manifest->SetStringValue("type", type);
    manifest->SetStringValue("implementation", "kel.LibsndfileSink");
    return manifest;
}

/// A new sink that the plug-in's factory makes from this manifest.
inline std::shared_ptr<IAudioSink>
MakeSinkFrom(std::shared_ptr<const IParametersCollectionInstance> manifest) {
    LoadPlugin();
    const auto factory = std::dynamic_pointer_cast<ElementFactory<ElementFactoryType::AudioSink>>(
        GetFactory(ElementFactoryType::AudioSink, "kel.LibsndfileSink", "WAVE"));
    return factory->creator(std::move(manifest));
}

/// Settings that name a file.
inline std::shared_ptr<IParametersCollectionInstance> MakeSettingsFor(const std::string& path) {
    auto settings = MakeSinkSettings();
    settings->SetStringValue("FilePath", path);
    return settings;
}

/// A sink that has its settings. Any text will do as a type.
inline std::shared_ptr<IAudioSink> MakeConfiguredSink(const std::string& type,
                                                      const std::string& path = "") {
    auto sink = MakeSinkFrom(MakeManifest(type));
    sink->SetInitConfig(MakeSettingsFor(path));
    return sink;
}

/// A sink that has created a file.
inline std::shared_ptr<IAudioSink> MakeWritingSink(const std::string& path,
                                                   const Layout& layout = {},
                                                   const std::string& type = "WAVE") {
    auto sink = MakeConfiguredSink(type, path);
    sink->DefineInput(MakeInput(layout), "");
    return sink;
}

/// A layout that WAVE does not have.
inline Layout BigEndian() {
    Layout layout;
    layout.endianness = PCMEndianness::Big;
    return layout;
}

/// An info that is not audio.
class OtherInfo final : public IInfo {};

} // namespace kel::test
