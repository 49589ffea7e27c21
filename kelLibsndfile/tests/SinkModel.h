/// A second, independent implementation of the sink: plain state, no elements. For each file of the
/// sink, the model writes one of its own with libsndfile.
#pragma once

#include "Sequences.h"

#include <FakeSndfile.h>

#include <sndfile.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

/// The description of an input.
struct ModelInput {
    std::string id;      ///< of its first audio info
    unsigned infos = 1;  ///< how many there are
    bool isAudio = true; ///< the first one is an audio info
    bool isPCM = true;   ///< that one has PCM parameters
    int type = 1;        ///< 1 integer, 2 float
    int bytes = 2;       ///< of a value
    int bits = 16;       ///< of those
    int endianness = 1;  ///< 1 little, 2 big
    int muxing = 2;      ///< 1 none, 2 multi, 3 stereo
    unsigned rate = 48000;
    unsigned channels = 2;
};

/// The model. Each operation returns the expected call of the element, see Expected.
class SinkModel {
public:
    /// @param type the text of "type" in the manifest
    /// @param directory where the element writes, with a slash at its end
    /// @param own where the model writes instead
    SinkModel(std::string type, std::string directory, std::string own)
        : m_type(std::move(type)), m_directory(std::move(directory)), m_own(std::move(own)) {}

    ~SinkModel() {
        for (SNDFILE* file : m_opened) {
            RealSndfile().close(file);
        }
    }

    SinkModel(const SinkModel&) = delete;
    SinkModel& operator=(const SinkModel&) = delete;

    /// A new element takes the place of the old one, whose file stays as it is.
    void BeginAnew(const std::string& type) {
        m_type = type;
        m_configured = false;
        m_configPath.reset();
        m_openPath.clear();
        m_defined.clear();
        m_file = nullptr;
    }

    /// @param path "FilePath"; none for settings that do not declare it
    std::string SetInitConfig(const std::optional<std::string>& path) {
        m_configured = true;
        m_configPath = path;
        return path.has_value() ? Expected().Returns("done") : Undeclared(Expected());
    }

    std::string SetNoInitConfig() {
        m_configured = false;
        return Expected().Fails("[LibsndfileSink needs SetInitConfig first] [ Pointer is null ]");
    }

    std::string Open(const std::string& path) {
        if (m_file != nullptr) {
            return Expected().Fails("[A file is already opened!]");
        }
        m_openPath = path;
        return Expected().Returns("done");
    }

    std::string Close() {
        if (m_file != nullptr) {
            RealSndfile().close(m_file);
            m_opened.erase(m_file);
            m_file = nullptr;
            m_openPath.clear();
        }
        return Expected().Returns("done");
    }

    std::string GetDefinedInput() const {
        return Expected().Returns(m_defined.empty() ? "none" : m_defined);
    }

    std::string Check(const ModelInput& input) const {
        if (!IsOneAudio(input)) {
            return Expected().Returns("track error, expects 1");
        }
        const std::string refused = "encoding error, " + input.id + ": 0";
        if (!input.isPCM) {
            return Expected().Returns(refused);
        }
        SF_INFO info{};
        const std::string error = Map(FormatOfType(), input, info);
        if (!error.empty()) {
            return Expected().Fails(error);
        }
        return Expected().Returns(sf_format_check(&info) != 0 ? "no error" : refused);
    }

    std::string Define(const ModelInput& input) {
        Expected expected;
        if (!IsOneAudio(input)) {
            return expected.Fails("[Only one info supported in input. It must be audio.]");
        }
        if (!input.isPCM) {
            return expected.Fails("[Only PCM audio is supported] [ Pointer is null ]");
        }
        const std::string muxing = MuxingError(input);
        if (!muxing.empty()) {
            return expected.Fails(muxing);
        }
        if (!m_configured) {
            return expected.Fails("[LibsndfileSink needs SetInitConfig first] [ Pointer is null ]");
        }
        if (!m_configPath.has_value()) {
            return Undeclared(expected);
        }
        if (!m_configPath->empty() && !m_openPath.empty()) {
            return expected.Fails("[FilePath must be specified either by the config object or by "
                                  "the Open command but NOT by both!]");
        }
        const std::string path = m_openPath.empty() ? *m_configPath : m_openPath;

        const std::string byName = FormatOfName(path);
        const std::string byType = FormatOfType();
        std::string format = byType;
        if (!byName.empty() && byName == byType) {
            expected.Log(LogLevel::Info,
                         "Read the following WrapperFormat from both extension and type: " +
                             byType);
        } else if (!byName.empty() && !byType.empty()) {
            expected.Log(LogLevel::Warning,
                         "The file extension suggests the following wrapper format: " + byName +
                             " but it has been overriden with the type wrapper format:" + byType);
        } else if (!byName.empty()) {
            format = byName;
            expected.Log(LogLevel::Info,
                         "Inferred the following WrapperFormat from extension: " + byName);
        } else if (!byType.empty()) {
            expected.Log(LogLevel::Info, "Read the following WrapperFormat from type: " + byType);
        } else {
            return expected.Fails("[WrapperFormat not present in configuration and cannot be "
                                  "inferred from file extension]");
        }

        SF_INFO info{};
        const std::string error = Map(byType, input, info);
        if (!error.empty()) {
            return expected.Fails(error);
        }
        if (sf_format_check(&info) == 0) {
            return expected.Fails(
                "[The defined input is not accepted. Please call CheckInputAndAdaptIfNecessary to "
                "receive more info about supported input infos.]");
        }
        m_defined = input.id;
        return Create(expected, path, format, input);
    }

    std::string Push(const std::vector<std::string>& samples) {
        if (samples.empty()) {
            return Expected().Returns("done");
        }
        if (samples.size() > 1) {
            return Expected().Fails(
                "[More than one audio sample received! This is forbidden] [ value1 (" +
                std::to_string(samples.size()) + ") is not == value2 (1) ]");
        }
        const std::string& bytes = samples.front();
        const auto size = static_cast<sf_count_t>(bytes.size());
        const sf_count_t written =
            m_file != nullptr ? RealSndfile().write_raw(m_file, bytes.data(), size) : 0;
        Expected expected;
        if (written != size) {
            expected.Log(LogLevel::Error, "Warning: tried to write " + std::to_string(size) +
                                              " bytes but could only write " +
                                              std::to_string(written));
        }
        return expected.Returns("done");
    }

    /// @param hasSample whether the container has a sample, which has no buffer then
    static std::string PushEmptyHandle(bool hasSample) {
        return Expected().Fails(hasSample
                                    ? "[LibsndfileSink got an audio sample without a buffer] "
                                      "[ Pointer is null ]"
                                    : "[LibsndfileSink got no audio sample] [ Pointer is null ]");
    }

    /// The number of open files, with those that no element refers to any more.
    std::size_t OpenFiles() const { return m_opened.size(); }

private:
    static std::string Undeclared(const Expected& expected) {
        return expected.Fails("[parameter \"FilePath\" is not declared (wanted: string)]");
    }

    static bool IsOneAudio(const ModelInput& input) { return input.infos == 1 && input.isAudio; }

    static std::string MuxingError(const ModelInput& input) {
        const bool isMulti = input.muxing == 2;
        if (input.channels == 0) {
            return "[There are 0 channels in the audio info!]";
        }
        if (input.channels == 1 && !isMulti && input.muxing != 1) {
            return R"([Only "none" and "multi" are accepted for 1-channel muxing])";
        }
        if (input.channels == 2 && !isMulti && input.muxing != 3) {
            return R"([Only "stereo" and "multi" are accepted for 2-channel muxing])";
        }
        if (input.channels > 2 && !isMulti) {
            return R"([Only "multi" is accepted for multichannel (> 2) muxing])";
        }
        return "";
    }

    // The label of the format that a name's extension means; "" for none.
    static std::string FormatOfName(const std::string& path) {
        static const std::map<std::string, std::string> formats{
            {"wav", "WAVE"},    {"wave", "WAVE"}, {"rf64", "BWAVE"}, {"bwav", "BWAVE"},
            {"bwave", "BWAVE"}, {"aif", "AIFF"},  {"aiff", "AIFF"},  {"raw", "RAW"}};
        const std::size_t dot = path.find_last_of('.');
        if (dot == std::string::npos) {
            return "";
        }
        std::string extension;
        for (const char character : path.substr(dot + 1)) {
            extension += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        }
        const auto found = formats.find(extension);
        return found != formats.end() ? found->second : "";
    }

    // The label that "type" is, "" for none.
    std::string FormatOfType() const {
        static const std::set<std::string> labels{"WAVE", "BWAVE", "AIFF", "RAW"};
        return labels.count(m_type) > 0 ? m_type : "";
    }

    // Fills the description of a file and returns the message of its refusal, or "".
    static std::string Map(const std::string& format, const ModelInput& input, SF_INFO& info) {
        static const std::map<std::string, int> containers{
            {"WAVE", SF_FORMAT_WAVEX}, {"BWAVE", SF_FORMAT_RF64}, {"AIFF", SF_FORMAT_AIFF}};
        const auto container = containers.find(format);
        if (container == containers.end()) {
            return "[Only AIFF and WAVE/BWAVE wrapper formats (or extensions) are supported]";
        }
        struct Row {
            int bits;
            int encoding;
        };
        static const std::map<std::pair<int, int>, Row> rows{{{1, 2}, {16, SF_FORMAT_PCM_16}},
                                                             {{1, 3}, {24, SF_FORMAT_PCM_24}},
                                                             {{1, 4}, {32, SF_FORMAT_PCM_32}},
                                                             {{2, 4}, {32, SF_FORMAT_FLOAT}},
                                                             {{2, 8}, {64, SF_FORMAT_DOUBLE}}};
        if (input.type != 1 && input.type != 2) {
            return "[PCM type should be 32-bit/64-bit float or 16-bit/24-bit/32-bit integer]";
        }
        const auto row = rows.find({input.type, input.bytes});
        if (row == rows.end()) {
            return input.type == 2
                       ? "[Only 4 or 8 bytes float PCM samples supported]"
                       : "[Only 16-bit/2 bytes, 24-bit/3 bytes or 32-bit/4 bytes integer PCM "
                         "samples supported (24-bit over 4 bytes not supported)]";
        }
        if (row->second.bits != input.bits) {
            return "[(pcmAudioParams->GetSampleSize() == " + std::to_string(input.bytes) +
                   ") && (pcmAudioParams->GetBitsDepth() != " + std::to_string(row->second.bits) +
                   ")]";
        }
        if (input.endianness != 1 && input.endianness != 2) {
            return "[PCM endianness type should be defined to either little or big endian]";
        }
        info.format = container->second | row->second.encoding |
                      (input.endianness == 1 ? SF_ENDIAN_LITTLE : SF_ENDIAN_BIG);
        info.channels = static_cast<int>(input.channels);
        info.samplerate = static_cast<int>(input.rate);
        return "";
    }

    std::string Create(const Expected& expected, const std::string& path, const std::string& format,
                       const ModelInput& input) {
        SF_INFO info{};
        Map(format, input, info);
        const std::string own =
            path.rfind(m_directory, 0) == 0 ? m_own + path.substr(m_directory.size()) : path;
        SNDFILE* file = RealSndfile().open(own.c_str(), SFM_WRITE, &info);
        if (file == nullptr) {
            return expected.Fails("[Unable to open file \"" + path +
                                  "\" with libsndfile. Error is:\"" +
                                  RealSndfile().strerror(nullptr) + "\"]");
        }
        m_opened.insert(file);
        m_file = file;
        return expected.Returns("done");
    }

    std::string m_type;
    std::string m_directory;
    std::string m_own;
    bool m_configured = false;
    std::optional<std::string> m_configPath;
    std::string m_openPath;
    std::string m_defined; // the identifier of its info
    SNDFILE* m_file = nullptr;
    std::set<SNDFILE*> m_opened;
};

} // namespace kel::test
