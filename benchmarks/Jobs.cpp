#include "Jobs.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace kel::benchmarks {

namespace {

constexpr int kMostChannels = 2;
constexpr std::int64_t kBytesPerFloat = 4;

class DiscardingWriter final : public ILoggerWriter {
public:
    void Write(LogLevel /*level*/, const char* /*message*/, const char* /*context*/,
               const char* /*file*/, const char* /*line*/, const char* /*reserved*/,
               const char* /*threadId*/, const char* /*time*/) override {}
};

SoundFile Open(const std::string& path, int mode, SF_INFO& info) {
    SoundFile file(sf_open(path.c_str(), mode, &info), sf_close);
    if (file == nullptr) {
        throw std::runtime_error("cannot open " + path + ": " + sf_strerror(nullptr));
    }
    return file;
}

std::int64_t PullToTheEnd(IAudioSource& source) {
    std::int64_t samples = 0;
    while (source.GetSample() != nullptr) {
        ++samples;
    }
    return samples;
}

void RewindSource(IAudioSource& source) {
    static_cast<void>(source.GotoTimeOffset(source.GetTimeLimits("").start, ""));
}

} // namespace

void DiscardLogRecords() {
    SetCurrentLoggerWriter(std::make_shared<DiscardingWriter>());
}

void WriteWave(const std::string& path, const WaveShape& shape) {
    SF_INFO info{};
    info.samplerate = shape.rate;
    info.channels = shape.channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    const SoundFile file = Open(path, SFM_WRITE, info);

    constexpr std::int64_t kFramesPerWrite = 4096;
    std::vector<short> values(static_cast<std::size_t>(kFramesPerWrite * shape.channels));
    std::uint32_t state = 1;
    for (std::int64_t written = 0; written < shape.frames;) {
        for (short& value : values) {
            state = state * 1664525U + 1013904223U;
            value = static_cast<short>(state >> 16U);
        }
        const std::int64_t frames = std::min(kFramesPerWrite, shape.frames - written);
        if (sf_writef_short(file.get(), values.data(), frames) != frames) {
            throw std::runtime_error("cannot write " + path + ": " + sf_strerror(file.get()));
        }
        written += frames;
    }
}

OpenedFile OpenForReading(const std::string& path) {
    OpenedFile opened;
    opened.file = Open(path, SFM_READ, opened.info);
    return opened;
}

FloatBlock::FloatBlock(std::int64_t values)
    : m_data(static_cast<float*>(
          ::operator new(static_cast<std::size_t>(values* kBytesPerFloat), kAlignment))) {}

BarePull::BarePull(const std::string& path, std::int64_t blockFrames)
    : m_input(OpenForReading(path)), m_blockFrames(blockFrames),
      m_block(blockFrames * m_input.info.channels) {}

void BarePull::Rewind() {
    sf_seek(m_input.file.get(), 0, SEEK_SET);
}

std::int64_t BarePull::PullAll() {
    std::int64_t blocks = 0;
    while (sf_readf_float(m_input.file.get(), m_block.Data(), m_blockFrames) > 0) {
        ++blocks;
    }
    return blocks;
}

ElementPull::ElementPull(const std::string& path, std::int64_t blockFrames)
    : m_source(test::OpenSource(path, static_cast<int>(blockFrames))) {}

void ElementPull::Rewind() {
    RewindSource(*m_source);
}

std::int64_t ElementPull::PullAll() {
    return PullToTheEnd(*m_source);
}

BareCopy::BareCopy(const std::string& input, std::string output, std::int64_t blockFrames)
    : m_input(OpenForReading(input)), m_outputPath(std::move(output)), m_blockFrames(blockFrames),
      m_block(blockFrames * m_input.info.channels) {}

void BareCopy::Begin() {
    sf_seek(m_input.file.get(), 0, SEEK_SET);
    SF_INFO info{};
    info.samplerate = m_input.info.samplerate;
    info.channels = m_input.info.channels;
    info.format = SF_FORMAT_WAVEX | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE;
    m_output = Open(m_outputPath, SFM_WRITE, info);
}

std::int64_t BareCopy::CopyAll() {
    std::int64_t blocks = 0;
    const std::int64_t bytesPerFrame = m_input.info.channels * kBytesPerFloat;
    for (;;) {
        const sf_count_t frames = sf_readf_float(m_input.file.get(), m_block.Data(), m_blockFrames);
        if (frames <= 0) {
            return blocks;
        }
        const sf_count_t bytes = frames * bytesPerFrame;
        if (sf_write_raw(m_output.get(), m_block.Data(), bytes) != bytes) {
            throw std::runtime_error("cannot write " + m_outputPath);
        }
        ++blocks;
    }
}

void BareCopy::End() {
    m_output.reset();
}

ElementCopy::ElementCopy(const std::string& input, const std::string& output,
                         std::int64_t blockFrames)
    : m_source(test::OpenSource(input, static_cast<int>(blockFrames))), m_sink(test::MakeSink()) {
    const auto settings = test::MakeSinkSettings();
    settings->SetStringValue("FilePath", output);
    m_sink->SetInitConfig(settings);
}

void ElementCopy::Begin() {
    RewindSource(*m_source);
    m_sink->DefineInput(m_source->GetDefinedOutput(""), "");
}

std::int64_t ElementCopy::CopyAll() {
    std::int64_t samples = 0;
    while (std::shared_ptr<const ISampleContainer> container = m_source->GetSample()) {
        m_sink->PushSample(std::move(container));
        ++samples;
    }
    return samples;
}

void ElementCopy::End() {
    m_sink->Close(false);
}

BareOpening::BareOpening(std::int64_t blockFrames)
    : m_blockFrames(blockFrames), m_block(blockFrames * kMostChannels) {}

void BareOpening::ReadFile(const std::string& path) {
    const OpenedFile input = OpenForReading(path);
    while (sf_readf_float(input.file.get(), m_block.Data(), m_blockFrames) > 0) {
    }
}

ReusedSource::ReusedSource(std::int64_t blockFrames) : m_source(test::MakeSource()) {
    const auto settings = test::MakeSourceSettings();
    settings->SetIntegerValue("MaxSamplesPerBuffer", static_cast<std::int32_t>(blockFrames));
    m_source->SetInitConfig(settings);
}

void ReusedSource::ReadFile(const std::wstring& path) {
    m_source->Open(path);
    static_cast<void>(PullToTheEnd(*m_source));
    m_source->Release();
}

SourcePerFile::SourcePerFile(std::int64_t blockFrames) : m_blockFrames(blockFrames) {}

void SourcePerFile::ReadFile(const std::wstring& path) const {
    const auto settings = test::MakeSourceSettings();
    settings->SetIntegerValue("MaxSamplesPerBuffer", static_cast<std::int32_t>(m_blockFrames));
    settings->SetWideStringValue("FilePath", path);
    const auto source = test::MakeSource();
    source->SetInitConfig(settings);
    static_cast<void>(PullToTheEnd(*source));
    source->Release();
}

} // namespace kel::benchmarks
