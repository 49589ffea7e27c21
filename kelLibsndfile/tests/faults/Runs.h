/// The runs of calls in which something fails, made on an element and, for comparison, on
/// libsndfile alone, as the element is meant to use it.
#pragma once

#include "Transcript.h"

#include <Plugin.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <sndfile.h>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace kel::test {

constexpr int kMostFrames = 200; // in a sample
constexpr int kFileFrames = 500;
constexpr int kSoughtFrame = 300;
constexpr int kPushes = 3;

/// A file in a container, and how it is described.
struct Kind {
    std::string name;
    std::string type; ///< the label of the container
    int format;       ///< as libsndfile counts them
    Layout layout;    ///< of its samples
};

inline void PrintTo(const Kind& kind, std::ostream* stream) {
    *stream << kind.name;
}

/// For the names of tests.
inline std::string NameOfKind(const testing::TestParamInfo<Kind>& info) {
    return info.param.name;
}

/// The kinds of files that sources read and sinks write; KEL_FAULTS_IN_ALL_KINDS asks for all that
/// there are.
inline std::vector<Kind> Kinds() {
    const Layout int16;
    const Layout float32{AudioPCMType::Float, 4, 32};
    const Layout big24{AudioPCMType::Integer, 3, 24, PCMEndianness::Big};
    std::vector<Kind> kinds{
        {"WAVE", "WAVE", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, int16},
        {"RF64", "BWAVE", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, float32},
        {"AIFF", "AIFF", SF_FORMAT_AIFF | SF_FORMAT_PCM_24 | SF_ENDIAN_BIG, big24}};
    if (std::getenv("KEL_FAULTS_IN_ALL_KINDS") == nullptr) {
        return kinds;
    }
    const Layout int24{AudioPCMType::Integer, 3, 24};
    const Layout int32{AudioPCMType::Integer, 4, 32};
    const Layout float64{AudioPCMType::Float, 8, 64};
    const Layout big16{AudioPCMType::Integer, 2, 16, PCMEndianness::Big};
    const Layout big32{AudioPCMType::Integer, 4, 32, PCMEndianness::Big};
    for (const auto& [name, type, format] : {std::tuple("WAVE", "WAVE", SF_FORMAT_WAVEX),
                                             std::tuple("RF64", "BWAVE", SF_FORMAT_RF64)}) {
        const std::string prefix = name;
        kinds.push_back({prefix + "int24", type, format | SF_FORMAT_PCM_24, int24});
        kinds.push_back({prefix + "int32", type, format | SF_FORMAT_PCM_32, int32});
        kinds.push_back({prefix + "float64", type, format | SF_FORMAT_DOUBLE, float64});
    }
    kinds.push_back({"WAVEfloat32", "WAVE", SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, float32});
    kinds.push_back({"RF64int16", "BWAVE", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, int16});
    for (const auto& [suffix, encoding, layout] : {std::tuple("int16", SF_FORMAT_PCM_16, int16),
                                                   std::tuple("int24", SF_FORMAT_PCM_24, int24),
                                                   std::tuple("int32", SF_FORMAT_PCM_32, int32)}) {
        kinds.push_back({std::string("AIFF") + suffix, "AIFF",
                         SF_FORMAT_AIFF | encoding | SF_ENDIAN_LITTLE, layout});
    }
    kinds.push_back(
        {"AIFFbig16", "AIFF", SF_FORMAT_AIFF | SF_FORMAT_PCM_16 | SF_ENDIAN_BIG, big16});
    kinds.push_back(
        {"AIFFbig32", "AIFF", SF_FORMAT_AIFF | SF_FORMAT_PCM_32 | SF_ENDIAN_BIG, big32});
    return kinds;
}

/// The failure of an element that does as libsndfile says.
[[noreturn]] inline void FailLikeElement(Transcript& transcript, const std::string& text) {
    const std::string message = "[" + text + "]";
    transcript << " (" << message << ")";
    throw KELRuntimeError(message);
}

/// Why a file cannot be opened.
inline std::string OpeningError(const std::string& path) {
    const char* words = sf_strerror(nullptr);
    return "Unable to open file \"" + path + "\" with libsndfile. Error is:\"" +
           (words != nullptr ? words : "") + "\"";
}

/// The source.
class ElementSource {
public:
    ElementSource(const std::string& path, Transcript& transcript)
        : m_transcript(transcript), m_path(ConvertPlatformStringToWideString(path)),
          m_settings(MakeSourceSettings()) {
        // Too long to be copied without memory, which the source needs with its file open already.
        const std::string allocator = "an allocator that only has to exist";
        if (GetAllocator(allocator) == nullptr) {
            RegisterAllocator(allocator, ImplementElement<ElementFactoryType::MemoryBlockAllocator>(
                                             "kel", "Recycler", nullptr));
        }
        m_settings->SetStringValue("AllocatorRef", allocator);
        m_settings->SetIntegerValue("MaxSamplesPerBuffer", kMostFrames);
    }

    void Make() {
        if (m_element == nullptr) {
            m_element = ImplementElement<ElementFactoryType::AudioSource>("kel.LibsndfileSource",
                                                                          "WAVE", nullptr);
        }
        m_element->SetInitConfig(m_settings);
    }

    void Open() {
        m_element->Open(m_path);
        const auto info = m_element->GetDefinedOutput("")->GetAudioInfos().front();
        const TimeLimits limits = m_element->GetTimeLimits("");
        m_transcript << " " << info->GetChannelInfo()->GetNumberOfChannels() << " channels, "
                     << limits.start.GetEditRate().numerator << " Hz, " << limits.duration
                     << " frames";
    }

    bool Read() {
        m_container = m_element->GetSample();
        if (m_container == nullptr) {
            m_transcript << " nothing";
            return false;
        }
        const auto sample = m_container->GetAudioSamples(nullptr, nullptr).front();
        const TimeLimits& limits = sample->GetTimeLimits();
        const auto buffer = sample->GetBuffer();
        m_transcript << " " << limits.duration << " frames, "
                     << Fingerprint(buffer->GetData(), buffer->GetSize());
        if (limits.start.GetTimeNumber() != m_delivered) {
            m_transcript << ", stamped " << limits.start.GetTimeNumber() << " instead of "
                         << m_delivered;
        }
        m_delivered += limits.duration;
        m_container = nullptr;
        return true;
    }

    void Seek() {
        MediaTime time = m_element->GetTimeLimits("").start;
        time.SetTimeNumber(kSoughtFrame);
        const MediaTime reached = m_element->GotoTimeOffset(time, "");
        m_transcript << " " << reached.GetTimeNumber();
    }

    void Release() { m_element->Release(); }

    // For what comes after a failure.

    bool IsOpen() const { return m_element != nullptr && m_element->IsMediaOpen(); }
    void MakeClosed() {
        if (m_element != nullptr) {
            m_element->Release();
        }
        // A sample that was delivered, but into which there was no memory to look.
        if (m_container != nullptr) {
            const auto sample = m_container->GetAudioSamples(nullptr, nullptr).front();
            m_delivered += sample->GetTimeLimits().duration;
            m_container = nullptr;
        }
    }

private:
    Transcript& m_transcript;
    std::wstring m_path;
    std::shared_ptr<IParametersCollectionInstance> m_settings;
    std::shared_ptr<IAudioSource> m_element;
    std::shared_ptr<const ISampleContainer> m_container;
    std::int64_t m_delivered = 0;
};

/// What a source is meant to ask of libsndfile.
class BareSource {
public:
    BareSource(std::string path, Transcript& transcript)
        : m_transcript(transcript), m_path(std::move(path)) {}

    void Make() {}

    void Open() {
        SNDFILE* file = sf_open(m_path.c_str(), SFM_READ, &m_info);
        if (file == nullptr) {
            FailLikeElement(m_transcript, OpeningError(m_path));
        }
        if (m_info.channels <= 0) {
            FailLikeElement(m_transcript, "The following file \"" + m_path + "\" has " +
                                              std::to_string(m_info.channels) + " channels.");
        }
        m_file = file;
        m_transcript << " " << m_info.channels << " channels, " << m_info.samplerate << " Hz, "
                     << m_info.frames << " frames";
    }

    bool Read() {
        std::vector<float> values(static_cast<std::size_t>(kMostFrames) *
                                  static_cast<std::size_t>(m_info.channels));
        const sf_count_t frames = sf_readf_float(m_file, values.data(), kMostFrames);
        if (frames == 0) {
            m_transcript << " nothing";
            return false;
        }
        if (sf_error(m_file) != SF_ERR_NO_ERROR) {
            const char* words = sf_strerror(m_file);
            m_transcript << " (Warning: tried to read " << kMostFrames
                         << " frames but could only read " << frames << " -- libsndfile error is "
                         << (words != nullptr ? words : "") << ")";
        }
        m_transcript << " " << frames << " frames, "
                     << Fingerprint(values.data(), static_cast<std::size_t>(frames) *
                                                       static_cast<std::size_t>(m_info.channels) *
                                                       sizeof(float));
        return true;
    }

    void Seek() {
        const std::string name = "LibsndfileSource::GotoTimeOffset - ";
        if (kSoughtFrame > m_info.frames) {
            FailLikeElement(m_transcript, name + "mediaTime.GetTimeNumber() past file end!");
        }
        const sf_count_t reached = sf_seek(m_file, kSoughtFrame, SEEK_SET);
        if (reached < 0) {
            FailLikeElement(m_transcript, name + "returned frame offset < 0");
        }
        if (reached > m_info.frames) {
            FailLikeElement(m_transcript, name + "returned frame offset past file end!");
        }
        m_transcript << " " << reached;
    }

    void Release() {
        if (m_file != nullptr) {
            sf_close(m_file);
            m_file = nullptr;
        }
    }

    void MakeClosed() { Release(); }

private:
    Transcript& m_transcript;
    std::string m_path;
    SF_INFO m_info{};
    SNDFILE* m_file = nullptr;
};

/// Opens a file, reads it to its end, seeks, reads on, and opens it again.
template <typename Source>
void RunSource(Source& source, Transcript& transcript) {
    const auto readToTheEnd = [&] {
        bool more = true;
        while (more) {
            if (!transcript.Do("read", [&] { more = source.Read(); })) {
                return false;
            }
        }
        return true;
    };
    const auto open = [&] {
        return transcript.Do("open", [&] { source.Open(); });
    };
    const auto release = [&] {
        return transcript.Do("release", [&] { source.Release(); });
    };
    static_cast<void>(transcript.Do("make", [&] { source.Make(); }) && open() && readToTheEnd() &&
                      transcript.Do("seek", [&] { source.Seek(); }) && readToTheEnd() &&
                      release() && open() && transcript.Do("read", [&] { source.Read(); }) &&
                      release());
}

/// The bytes of a sample that goes into a file.
inline std::string BytesToPush(int number) {
    std::string bytes(1200, '\0'); // whole frames of every layout with two channels
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 7 + static_cast<std::size_t>(number) * 31);
    }
    return bytes;
}

/// The sink. Its calls answer nothing that a transcript could tell.
class ElementSink {
public:
    ElementSink(const Kind& kind, const std::string& path, Transcript& /*transcript*/)
        : m_type(kind.type), m_path(ConvertPlatformStringToWideString(path)),
          m_settings(MakeSinkSettings()), m_input(MakeInput(kind.layout)) {
        for (int i = 0; i < kPushes; ++i) {
            m_samples.push_back(MakeContainer(BytesToPush(i)));
        }
    }

    void Make() {
        if (m_element == nullptr) {
            m_element = ImplementElement<ElementFactoryType::AudioSink>("kel.LibsndfileSink",
                                                                        m_type, nullptr);
        }
        m_element->SetInitConfig(m_settings);
    }

    void Open() { m_element->Open(m_path); }
    void Define() { m_element->DefineInput(m_input, ""); }
    void Push(int number) {
        m_element->PushSample(m_samples[static_cast<std::size_t>(number)]);
        ++m_pushed;
    }
    void Close() { m_element->Close(false); }

    // For what comes after a failure.

    /// How many samples were pushed without a failure.
    int Pushed() const { return m_pushed; }
    bool HasInput() const {
        return m_element != nullptr && m_element->GetDefinedInput("") == m_input;
    }
    /// Whether the sink says that it has a file open; if not, it has got its path again.
    bool IsOpen() {
        try {
            if (m_element != nullptr) {
                m_element->Open(m_path);
            }
            return false;
        } catch (const KELRuntimeError&) {
            return true;
        }
    }
    void MakeClosed() {
        if (m_element != nullptr) {
            m_element->Close(false);
        }
        m_pushed = 0;
    }

private:
    std::string m_type;
    std::wstring m_path;
    std::shared_ptr<IParametersCollectionInstance> m_settings;
    std::shared_ptr<IInfoContainer> m_input;
    std::vector<std::shared_ptr<ISampleContainer>> m_samples;
    std::shared_ptr<IAudioSink> m_element;
    int m_pushed = 0;
};

/// What a sink is meant to ask of libsndfile.
class BareSink {
public:
    BareSink(const Kind& kind, std::string path, Transcript& transcript)
        : m_transcript(transcript), m_path(std::move(path)), m_format(kind.format) {}

    void Make() {}
    void Open() {}

    void Define() {
        SF_INFO info{};
        info.channels = 2;
        info.samplerate = 48000;
        info.format = m_format;
        if ((info.format & SF_FORMAT_ENDMASK) == 0) {
            info.format |= SF_ENDIAN_LITTLE;
        }
        if (sf_format_check(&info) == 0) {
            FailLikeElement(m_transcript,
                            "The defined input is not accepted. Please call "
                            "CheckInputAndAdaptIfNecessary to receive more info about "
                            "supported input infos.");
        }
        m_file = sf_open(m_path.c_str(), SFM_WRITE, &info);
        if (m_file == nullptr) {
            FailLikeElement(m_transcript, OpeningError(m_path));
        }
    }

    void Push(int number) {
        const std::string bytes = BytesToPush(number);
        const auto size = static_cast<sf_count_t>(bytes.size());
        const sf_count_t written = sf_write_raw(m_file, bytes.data(), size);
        if (written != size) {
            m_transcript << " (Warning: tried to write " << size << " bytes but could only write "
                         << written << ")";
        }
    }

    void Close() {
        sf_close(m_file);
        m_file = nullptr;
    }

    void MakeClosed() {
        if (m_file != nullptr) {
            Close();
        }
    }

private:
    Transcript& m_transcript;
    std::string m_path;
    int m_format;
    SNDFILE* m_file = nullptr;
};

/// Writes a file of some samples.
template <typename Sink>
void RunSink(Sink& sink, Transcript& transcript) {
    const auto push = [&] {
        for (int i = 0; i < kPushes; ++i) {
            if (!transcript.Do("push", [&] { sink.Push(i); })) {
                return false;
            }
        }
        return true;
    };
    static_cast<void>(transcript.Do("make", [&] { sink.Make(); }) &&
                      transcript.Do("open", [&] { sink.Open(); }) &&
                      transcript.Do("define", [&] { sink.Define(); }) && push() &&
                      transcript.Do("close", [&] { sink.Close(); }));
}

} // namespace kel::test
