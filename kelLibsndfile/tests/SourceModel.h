/// A second, independent implementation of the source: plain state, no elements.
#pragma once

#include "Sequences.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::test {

/// A file that a source opens, and its properties.
struct ModelFile {
    std::string path;
    std::string name;      ///< without directories
    std::string openError; ///< libsndfile's text when it cannot be opened; otherwise empty
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;
    int format = 0;
    std::vector<float> values; ///< what libsndfile reads of it
    std::int64_t Frames() const {
        return channels == 0 ? 0 : static_cast<std::int64_t>(values.size() / channels);
    }
};

/// The settings of a source.
struct ModelSettings {
    std::optional<std::size_t> file; ///< "FilePath", a place in the list of files
    std::uint32_t maxFrames = 1024;  ///< "MaxSamplesPerBuffer", as the source takes it
    std::string allocator;           ///< "AllocatorRef"
};

/// A rate as two numbers.
struct ModelRate {
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 0;
};

/// The model. Each operation returns the expected call of the element, see Expected.
class SourceModel {
public:
    /// @param files the files there are
    /// @param allocatorLabel how the framework calls allocators, for the record of making one
    /// @param knownAllocator the one name of an allocator that exists
    SourceModel(const std::vector<ModelFile>& files, std::string allocatorLabel,
                std::string knownAllocator)
        : m_files(files), m_allocatorLabel(std::move(allocatorLabel)),
          m_knownAllocator(std::move(knownAllocator)) {}

    std::string SetInitConfig(const ModelSettings& settings) {
        m_settings = settings;
        return settings.file.has_value() ? Open(*settings.file) : Expected().Returns("done");
    }

    std::string Open(std::size_t place) {
        if (m_open != nullptr) {
            return Expected().Fails("[Cannot open a file twice.] [ Condition is not true ]");
        }
        const ModelFile& file = m_files[place];
        if (!file.openError.empty()) {
            return Expected().Fails("[Unable to open file \"" + file.path +
                                    "\" with libsndfile. Error is:\"" + file.openError + "\"]");
        }
        Expected expected;
        expected.Log(LogLevel::Info,
                     "Successfully opened \"" + file.path +
                         "\" -- nb channels: " + std::to_string(file.channels) +
                         " nb samples (in each channel): " + std::to_string(file.Frames()) +
                         " format: " + std::to_string(file.format));
        m_open = &file;
        m_readFrom = 0;
        if (!m_settings.has_value()) {
            return expected.Fails(
                "[LibsndfileSource needs SetInitConfig first] [ Pointer is null ]");
        }
        if (!m_settings->allocator.empty() && m_settings->allocator != m_knownAllocator) {
            return expected.Fails("[could not find allocator " + m_settings->allocator +
                                  "] [ Pointer is null ]");
        }
        m_described = &file;
        expected.Log(LogLevel::Milestone,
                     "[MILESTONE][ImplementElement " + m_allocatorLabel + ".kel.Recycler]");
        return expected.Returns("done");
    }

    std::string Release() {
        m_open = nullptr;
        return Expected().Returns("done");
    }

    std::string IsMediaOpen() const { return Expected().Returns(m_open != nullptr ? "yes" : "no"); }

    std::string ActivateOutputs(std::size_t count) {
        if (m_open == nullptr) {
            return Expected().Fails("[Cannot call ActivateOutputs without an opened file]");
        }
        m_active = count > 0;
        return Expected().Returns("done");
    }

    std::string GetAvailableOutputs() const {
        return Expected().Returns(m_open != nullptr ? Outputs() : "none");
    }

    std::string GetActivatedOutputs() const {
        return Expected().Returns(m_open != nullptr && m_active ? Outputs() : "none");
    }

    std::string GetDefinedOutput() const {
        return Expected().Returns(m_open != nullptr ? Description() : "none");
    }

    /// @param show makes text of a block: the frame it is stamped with, its rate, its values
    template <typename Show>
    std::string GetSample(Show show) {
        if (m_open == nullptr || !m_active) {
            return Expected().Returns("none");
        }
        if (!m_settings.has_value()) {
            return Expected().Fails(
                "[LibsndfileSource needs SetInitConfig first] [ Pointer is null ]");
        }
        const std::uint32_t channels = m_open->channels;
        // The reservation is counted in 32 bits, and limits the frames that are read.
        const std::uint32_t reserved = channels * 4 * m_settings->maxFrames;
        const auto most = std::min<std::int64_t>(m_settings->maxFrames, reserved / (channels * 4));
        const std::int64_t count = std::min(most, m_open->Frames() - m_readFrom);
        if (count <= 0) {
            return Expected().Returns("none");
        }
        const auto begin = m_open->values.begin() + m_readFrom * channels;
        const std::string shown =
            show(m_stamp, m_open->rate, std::vector<float>(begin, begin + count * channels));
        m_stamp += count;
        m_readFrom += count;
        return Expected().Returns(shown + ", " + Description());
    }

    std::string GetTimeLimits() const {
        if (m_open == nullptr) {
            return Expected().Fails("[Cannot call GetTimeLimits without an opened file]");
        }
        return Expected().Returns("0+" + std::to_string(m_open->Frames()) + " at " +
                                  std::to_string(m_open->rate) + "/1");
    }

    std::string GotoTimeOffset(const ModelRate& rate, std::int64_t frame) {
        const std::string name = "LibsndfileSource::GotoTimeOffset - ";
        if (m_open == nullptr) {
            return Expected().Fails("[Cannot call GotoTimeOffset without an opened file]");
        }
        if (!IsFileRate(rate)) {
            return Expected().Fails("[" + name +
                                    "must use same EditRate as the source TimeLimits]");
        }
        if (frame < 0) {
            return Expected().Fails("[" + name + "mediaTime.GetTimeNumber() < 0]");
        }
        if (frame > m_open->Frames()) {
            return Expected().Fails("[" + name + "mediaTime.GetTimeNumber() past file end!]");
        }
        m_readFrom = frame;
        return Expected().Returns(std::to_string(frame) + " at " + std::to_string(rate.numerator) +
                                  "/" + std::to_string(rate.denominator));
    }

    /// The rate of the file that is open, else an arbitrary one.
    std::uint32_t Rate() const { return m_open != nullptr ? m_open->rate : 48000; }

    /// The length of the file that is open, else an arbitrary one.
    std::int64_t Frames() const { return m_open != nullptr ? m_open->Frames() : 10; }

private:
    // In whole numbers: the quotient is within 0.00006 of the file's rate.
    bool IsFileRate(const ModelRate& rate) const {
        if (rate.numerator == 0 || rate.denominator == 0) {
            return false;
        }
        const std::int64_t off = std::int64_t{rate.numerator} -
                                 std::int64_t{m_open->rate} * std::int64_t{rate.denominator};
        return (off < 0 ? -off : off) * 100000 <= std::int64_t{rate.denominator} * 6;
    }

    std::string Outputs() const {
        return m_described == nullptr ? "none"
                                      : std::to_string(m_described->channels) + " channels";
    }

    std::string Description() const {
        return m_described == nullptr
                   ? "none"
                   : std::to_string(m_described->channels) + " channels at " +
                         std::to_string(m_described->rate) + " Hz, " + m_described->name;
    }

    const std::vector<ModelFile>& m_files;
    std::string m_allocatorLabel;
    std::string m_knownAllocator;
    std::optional<ModelSettings> m_settings;
    const ModelFile* m_open = nullptr;
    const ModelFile* m_described = nullptr; // by the last opening that went to its end
    std::int64_t m_readFrom = 0;
    std::int64_t m_stamp = 0;
    bool m_active = true;
};

} // namespace kel::test
