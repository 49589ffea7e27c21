/// The jobs that are compared: the same work by bare libsndfile and by the elements.
///
/// One thread at a time. What the jobs throw ends the program that measures them.
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

/// Sends log records nowhere, so that what is measured is the elements and not a terminal. The
/// records are made all the same.
void DiscardLogRecords();

/// What a generated file holds.
struct WaveShape {
    int rate = 48000; ///< hertz
    int channels = 2;
    std::int64_t frames = 0;
};

/// Writes a 16-bit WAVE file of noise.
void WriteWave(const std::string& path, const WaveShape& shape);

/// Closes itself.
using SoundFile = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

/// A libsndfile handle for reading, with what the file holds.
struct OpenedFile {
    SF_INFO info{};
    SoundFile file{nullptr, sf_close};
};

/// @throws std::runtime_error with the name of the file
OpenedFile OpenForReading(const std::string& path);

/// Room for a block of floats. It is aligned as the framework's blocks are, because libsndfile's
/// conversion is faster into aligned memory and that is not to be counted for the elements.
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
    /// Goes back to the input's start and makes the output file anew.
    void Begin();
    /// Copies to the input's end. @return number of blocks
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

    /// The elements, for a look at single calls between Begin and End.
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

/// Asks the registry for a new source for each file, with settings of its own.
class SourcePerFile {
public:
    explicit SourcePerFile(std::int64_t blockFrames);
    void ReadFile(const std::wstring& path) const;

private:
    std::int64_t m_blockFrames;
};

} // namespace kel::benchmarks
