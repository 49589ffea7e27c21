/// The compared jobs: the same work with bare libsndfile and with the elements.
/// One thread at a time.
///
/// An exception of a job ends the program that measures it.
#pragma once

#include <kelCore.h>

#include <Plugin.h>

#include <cstdint>
#include <memory>
#include <new>
#include <sndfile.h>
#include <string>
#include <utility>
#include <vector>

namespace kel::benchmarks {

/// Discards log records, so that the times are those of the elements and not of a terminal. The
/// records are still made.
void DiscardLogRecords();

/// Contents of a generated file.
struct WaveShape {
    int rate = 48000; ///< hertz
    int channels = 2;
    std::int64_t frames = 0;
};

/// Writes a 16-bit WAVE file of noise.
void WriteWave(const std::string& path, const WaveShape& shape);

/// Closes itself.
using SoundFile = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

/// A libsndfile handle for reading, with the description of the file.
struct OpenedFile {
    SF_INFO info{};
    SoundFile file{nullptr, sf_close};
};

/// @throws std::runtime_error with the name of the file
OpenedFile OpenForReading(const std::string& path);

/// Memory for a block of floats, aligned like the blocks of the framework: libsndfile converts
/// faster into aligned memory, which must not count in favour of the elements.
class FloatBlock {
public:
    explicit FloatBlock(std::int64_t values);
    float* Data() { return m_data.get(); }

private:
    struct Delete {
        void operator()(float* data) const { ::operator delete(data, kAlignment); }
    };
    static constexpr std::align_val_t kAlignment{64};
    std::unique_ptr<float, Delete> m_data;
};

/// Reads a file block by block with sf_readf_float into one buffer.
class BarePull {
public:
    BarePull(const std::string& path, std::int64_t blockFrames);
    void Rewind();
    /// Reads to the end. @return number of blocks
    std::int64_t PullAll();

private:
    OpenedFile m_input;
    std::int64_t m_blockFrames;
    FloatBlock m_block;
};

/// Pulls a file through the source until it delivers nothing more.
class ElementPull {
public:
    ElementPull(const std::string& path, std::int64_t blockFrames);
    void Rewind();
    /// Reads to the end. @return number of samples
    std::int64_t PullAll();

private:
    std::shared_ptr<IAudioSource> m_source;
};

/// Copies a file into an extensible WAVE file of 32-bit floats with sf_readf_float and
/// sf_write_raw.
class BareCopy {
public:
    BareCopy(const std::string& input, std::string output, std::int64_t blockFrames);
    /// Seeks to the start of the input and makes a new output file.
    void Begin();
    /// Copies to the end of the input. @return number of blocks
    std::int64_t CopyAll();
    /// Closes the output.
    void End();

private:
    OpenedFile m_input;
    std::string m_outputPath;
    SoundFile m_output{nullptr, sf_close};
    std::int64_t m_blockFrames;
    FloatBlock m_block;
};

/// The same copy from the source into the sink.
class ElementCopy {
public:
    ElementCopy(const std::string& input, const std::string& output, std::int64_t blockFrames);
    void Begin();
    std::int64_t CopyAll();
    void End();

    /// Returns the elements, for single calls between Begin and End.
    IAudioSource& Source() { return *m_source; }
    IAudioSink& Sink() { return *m_sink; }

private:
    std::shared_ptr<IAudioSource> m_source;
    std::shared_ptr<IAudioSink> m_sink;
};

/// Opens, reads and closes one file after the other with bare libsndfile.
class BareOpening {
public:
    explicit BareOpening(std::int64_t blockFrames);
    void ReadFile(const std::string& path);

private:
    std::int64_t m_blockFrames;
    FloatBlock m_block;
};

/// Opens, reads and releases one file after the other with one source.
class ReusedSource {
public:
    explicit ReusedSource(std::int64_t blockFrames);
    void ReadFile(const std::wstring& path);

private:
    std::shared_ptr<IAudioSource> m_source;
};

/// Makes a new source from the registry for each file, with its own settings.
class SourcePerFile {
public:
    explicit SourcePerFile(std::int64_t blockFrames);
    void ReadFile(const std::wstring& path) const;

private:
    std::int64_t m_blockFrames;
};

} // namespace kel::benchmarks
