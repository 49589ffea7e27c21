/// What all tests of the sink need: sinks with a manifest of the test's own, and exact records.
#pragma once

#include <CapturingWriter.h>
#include <Plugin.h>
#include <kelCore.h>

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace kel::test {

/// The file that the sink's records name.
inline const std::string kSinkFile = "kelLibsndfile/LibsndfileSink.cpp";

/// What the sink says where it is told no container format that it can write.
inline const std::string kWrapperRefused =
    "[Only AIFF and WAVE/BWAVE wrapper formats (or extensions) are supported]";

/// What it says where libsndfile would not write the input.
inline const std::string kInputRefused =
    "[The defined input is not accepted. Please call CheckInputAndAdaptIfNecessary to receive more "
    "info about supported input infos.]";

/// A log record, as far as it is the same in each run.
struct Line {
    LogLevel level;
    std::string message;
    std::string file = kSinkFile;
};

inline bool operator==(const Line& left, const Line& right) {
    return left.level == right.level && left.message == right.message && left.file == right.file;
}

inline void PrintTo(const Line& line, std::ostream* stream) {
    *stream << "level " << static_cast<int>(line.level) << " from " << line.file << ": "
            << line.message;
}

using Lines = std::vector<Line>;

// What the sink says of the format that it found.
inline const std::string kFromType = "Read the following WrapperFormat from type: ";
inline const std::string kFromExtension = "Inferred the following WrapperFormat from extension: ";
inline const std::string kFromBoth =
    "Read the following WrapperFormat from both extension and type: ";

inline Line Info(const std::string& message) {
    return {LogLevel::Info, message};
}

inline Line Overridden(const std::string& extension, const std::string& type) {
    return {LogLevel::Warning,
            "The file extension suggests the following wrapper format: " + extension +
                " but it has been overriden with the type wrapper format:" + type};
}

/// What it says where libsndfile could not create the file.
inline std::string CanNotOpen(const std::string& path, const std::string& reason) {
    return "[Unable to open file \"" + path + "\" with libsndfile. Error is:\"" + reason + "\"]";
}

/// What it logs where libsndfile wrote less than it was given.
inline Line ShortWrite(const std::string& size, const std::string& written) {
    return {LogLevel::Error,
            "Warning: tried to write " + size + " bytes but could only write " + written};
}

/// Everything that has been logged.
inline Lines LinesOf(const LogCapture& log) {
    Lines lines;
    for (const Record& record : log->Records()) {
        lines.push_back({record.level, record.message, record.file});
    }
    return lines;
}

/// Runs an operation that must not fail, and that logs exactly these records.
template <typename Operation>
void ExpectRecords(const Lines& expected, Operation operation) {
    const LogCapture log;
    EXPECT_NO_THROW(operation());
    EXPECT_EQ(LinesOf(log), expected);
}

/// Runs an operation that must fail with KELRuntimeError and exactly this message, after exactly
/// the records given and one of level Error with the message.
template <typename Operation>
void ExpectRefusal(const std::string& message, Operation operation, Lines expected = {},
                   const std::string& file = kSinkFile) {
    const LogCapture log;
    try {
        operation();
        ADD_FAILURE() << "did not fail with " << message;
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), message);
    }
    expected.push_back({LogLevel::Error, message, file});
    EXPECT_EQ(LinesOf(log), expected);
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

/// Parameters that are not PCM.
inline std::shared_ptr<const IAudioParameters> MakeForeignParameters() {
    return CreateAudioParameters(ACodecFamily::Unknown);
}

/// An info that is not audio.
class OtherInfo final : public IInfo {};

} // namespace kel::test
