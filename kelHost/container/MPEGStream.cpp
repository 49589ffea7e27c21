#include "container/MPEGStream.h"

#include "base/Text.h"
#include "container/HeaderReader.h"
#include "container/ID3Tag.h"
#include "container/SoundFile.h"
#include "container/StoredText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint64_t kFrameHeader = 4;
// Version, layer and rate are those of all frames of a stream.
constexpr std::uint32_t kSameBits = 0xFFFE0C00;
constexpr std::uint32_t kBitRateBits = 0x0000F000;
constexpr unsigned kBitRateShift = 12;
constexpr std::uint32_t kPaddingBit = 0x00000200;
constexpr std::uint32_t kNoChecksumBit = 0x00010000;
constexpr std::uint32_t kModeBits = 0x000000C0; // both set: one channel

enum class Layer { I, II, III };

// ISO/IEC 13818-3 halves the rates; a usual extension halves them again.
struct FrameHeader {
    std::uint32_t bits = 0;
    Layer layer = Layer::III;
    bool isFirstVersion = false;
    std::uint32_t samples = 0;
    std::uint64_t bytes = 0; // of the frame; of its padding where the bit rate is free

    bool IsMono() const { return (bits & kModeBits) == kModeBits; }
    bool IsFree() const { return (bits & kBitRateBits) == 0; }

    // Offset of what follows the side information of layer III, which precedes the sound.
    std::uint64_t AfterSideInformation() const {
        constexpr std::uint64_t kStereo = 32;
        constexpr std::uint64_t kMono = 17;
        constexpr std::uint64_t kLowMono = 9;
        const std::uint64_t mono = isFirstVersion ? kMono : kLowMono;
        return kFrameHeader + (IsMono() ? mono : isFirstVersion ? kStereo : kMono);
    }
};

// In kbit/s. The first is that of a free bit rate; the last is reserved.
std::uint64_t BitRate(Layer layer, bool isFirstVersion, std::uint32_t index) {
    using Rates = std::array<std::uint64_t, 16>;
    constexpr Rates kLayer1{0,   32,  64,  96,  128, 160, 192, 224,
                            256, 288, 320, 352, 384, 416, 448, 0};
    constexpr Rates kLayer2{0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0};
    constexpr Rates kLayer3{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
    constexpr Rates kLow1{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0};
    constexpr Rates kLow{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
    if (!isFirstVersion) {
        return (layer == Layer::I ? kLow1 : kLow).at(index);
    }
    return (layer == Layer::I ? kLayer1 : layer == Layer::II ? kLayer2 : kLayer3).at(index);
}

std::optional<FrameHeader> ParseHeader(std::uint32_t bits) {
    constexpr std::uint32_t kSync = 0x7FF;
    constexpr std::uint32_t kReservedBitRate = 15;
    constexpr std::array<std::uint64_t, 4> kRates{44100, 48000, 32000, 0};
    constexpr std::array<std::uint64_t, 4> kRateDivisors{4, 0, 2, 1}; // 0: reserved
    const std::uint64_t divisor = kRateDivisors.at((bits >> 19U) & 3U);
    const std::uint32_t layer = (bits >> 17U) & 3U; // 0: reserved
    const std::uint32_t bitRateIndex = (bits & kBitRateBits) >> kBitRateShift;
    const std::uint64_t rate = kRates.at((bits >> 10U) & 3U);
    if (bits >> 21U != kSync || layer == 0 || divisor == 0 || bitRateIndex == kReservedBitRate ||
        rate == 0) {
        return std::nullopt;
    }
    FrameHeader header;
    header.bits = bits;
    header.layer = layer == 3 ? Layer::I : layer == 2 ? Layer::II : Layer::III;
    header.isFirstVersion = divisor == 1;
    const bool isHalf = header.layer == Layer::III && !header.isFirstVersion;
    header.samples = header.layer == Layer::I ? 384 : isHalf ? 576 : 1152;
    constexpr std::uint64_t kBytesPerKilobit = 125;
    // The bytes of a frame are counted in slots.
    const std::uint64_t slot = header.layer == Layer::I ? 4 : 1;
    const std::uint64_t bitRate = BitRate(header.layer, header.isFirstVersion, bitRateIndex);
    const std::uint64_t slots = header.samples * bitRate * kBytesPerKilobit * divisor / rate / slot;
    header.bytes = (slots + ((bits & kPaddingBit) != 0 ? 1 : 0)) * slot;
    return header;
}

bool IsCompatible(const FrameHeader& a, const FrameHeader& b) {
    return (a.bits & kSameBits) == (b.bits & kSameBits) && a.IsMono() == b.IsMono() &&
           a.IsFree() == b.IsFree();
}

// The bits of a header occur in other files, too. The library recognises a file whose first bytes
// are no frame by its extension.
bool IsMPEG(const FileName& file) {
    const SoundFile opened(file);
    opened.RequireRead("cannot read its header");
    return opened.IsOpen()
               ? (opened.Info().format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG
               : LowerCase(std::filesystem::path(file.path).extension().string()) == ".mp3";
}

class StreamWalker {
public:
    StreamWalker(const HeaderReader& reader, std::uint64_t fileBytes)
        : m_reader(reader), m_end(fileBytes) {
        // The bytes of a tag are not those of an incomplete frame before it.
        if (m_end > kID3v1 && IsID3v1(m_reader.Name(m_end - kID3v1))) {
            m_end -= kID3v1;
        }
    }

    // Moves to the first frame.
    bool FindFirst() {
        constexpr std::uint64_t kMaxGarbage = 65536;
        while (const std::uint64_t bytes = TagBytes()) {
            m_offset += bytes;
        }
        for (std::uint64_t i = 0; i < kMaxGarbage && m_offset < m_end; ++i, ++m_offset) {
            const auto header = HeaderAt(m_offset);
            if (header.has_value() &&
                (header->IsFree() ? FindFreeBytes(*header) : IsConfirmed(*header))) {
                m_first = *HeaderAt(m_offset);
                m_stream.firstHeader = m_first.bits;
                m_stream.firstBytes = m_first.bytes;
                m_stream.samplesPerFrame = m_first.samples;
                m_stream.canDeclareFrames = m_first.layer == Layer::III && !m_first.IsFree();
                return true;
            }
        }
        return false;
    }

    // Walks over a part of the file. Returns false at its end.
    bool Step() {
        constexpr std::uint64_t kStep = std::uint64_t{16} << 20U;
        const std::uint64_t stop = m_offset + kStep;
        while (m_offset < std::min(m_end, stop)) {
            Next();
        }
        return m_offset < m_end;
    }

    MPEGStream Take() { return std::move(m_stream); }

private:
    static bool IsID3v1(const std::string& name) { return name.substr(0, 3) == "TAG"; }

    std::optional<FrameHeader> HeaderAt(std::uint64_t offset) const {
        auto header =
            ParseHeader(static_cast<std::uint32_t>(m_reader.Number(offset, kFrameHeader)));
        if (header.has_value() && header->IsFree()) {
            header->bytes += m_freeBytes;
        }
        return header;
    }

    // Finds the length of frames with a free bit rate, which is the same for all of them but for
    // padding: that of the first, if the second has it, too.
    bool FindFreeBytes(const FrameHeader& header) {
        constexpr std::uint64_t kMaxFrame = 3456; // that decoders accept
        for (std::uint64_t bytes = kFrameHeader; bytes <= kMaxFrame; ++bytes) {
            const auto second = HeaderAt(m_offset + bytes);
            if (bytes < header.bytes || !second.has_value() || !IsCompatible(header, *second)) {
                continue;
            }
            m_freeBytes = bytes - header.bytes;
            const std::uint64_t next = m_offset + bytes + second->bytes + m_freeBytes;
            const auto third = HeaderAt(next);
            if (next == m_end || (third.has_value() && IsCompatible(header, *third))) {
                return true;
            }
            m_freeBytes = 0;
        }
        return false;
    }

    // Sound may contain the bits of a header. Then no frame follows.
    bool IsConfirmed(const FrameHeader& header) const {
        const std::uint64_t next = m_offset + header.bytes;
        const auto following = HeaderAt(next);
        return next == m_end || (following.has_value() && IsCompatible(header, *following));
    }

    // Length of the tag at this place; 0 for none.
    std::uint64_t TagBytes() const {
        const std::string name = m_reader.Name(m_offset);
        return IsID3v1(name) ? kID3v1 : ID3Bytes(m_reader, m_offset);
    }

    void Next() {
        const auto header = HeaderAt(m_offset);
        const bool isFrame = header.has_value() && IsCompatible(*header, m_first) &&
                             (!m_isLost || IsConfirmed(*header));
        const std::uint64_t tag = isFrame ? 0 : TagBytes();
        m_isLost = !isFrame;
        if (tag > 0) {
            m_offset += tag;
        } else if (!isFrame && header.has_value() && IsOther(*header)) {
            AddOther(*header);
        } else if (!isFrame) {
            ++m_stream.skippedBytes;
            ++m_offset;
        } else if (header->bytes > m_end - m_offset) {
            m_stream.endsInFrame = true;
            m_offset = m_end;
        } else {
            AddFrame(*header);
            m_offset += header->bytes;
        }
    }

    // True for a frame of another kind: one of several that follow each other.
    bool IsOther(const FrameHeader& header) const {
        if (header.IsFree() || IsCompatible(header, m_first) || header.bytes > m_end - m_offset) {
            return false;
        }
        const auto following = HeaderAt(m_offset + header.bytes);
        return (m_offset == m_otherEnd && IsCompatible(header, m_other)) ||
               (following.has_value() && IsCompatible(header, *following));
    }

    void AddOther(const FrameHeader& header) {
        m_stream.otherFrames += IsDescription(header) ? 0U : 1U;
        m_stream.skippedBytes += header.bytes;
        m_offset += header.bytes;
        m_other = header;
        m_otherEnd = m_offset;
    }

    void AddFrame(const FrameHeader& header) {
        if (IsDescription(header)) {
            ReadDeclared(header);
            return;
        }
        ++m_stream.frames;
        std::vector<SamplePart>& parts = m_stream.parts;
        if (!parts.empty() && parts.back().offset + parts.back().bytes == m_offset) {
            parts.back().bytes += header.bytes;
            return;
        }
        constexpr std::size_t kMaxParts = 65536;
        if (parts.size() == kMaxParts) {
            throw std::runtime_error(fmt::format(
                "it is damaged: its MPEG frames have more than {} gaps between them", kMaxParts));
        }
        parts.push_back({m_offset, header.bytes, std::nullopt});
    }

    // True for a frame that describes the file.
    bool IsDescription(const FrameHeader& header) const {
        constexpr std::uint64_t kVBRI = 36; // in all kinds of frames
        return header.layer == Layer::III &&
               (m_reader.Name(m_offset + kVBRI) == "VBRI" || IsInfo(InfoTag(header)));
    }

    // The first description may declare the length.
    void ReadDeclared(const FrameHeader& header) {
        const std::uint64_t tag = InfoTag(header);
        const bool hasCount = IsInfo(tag) && (m_reader.Number(tag + 4, 4) & 1U) != 0;
        if (hasCount && m_stream.frames == 0) {
            m_stream.declared = m_reader.Number(tag + 8, 4);
        }
    }

    // Offset of the name in a frame that describes the file.
    std::uint64_t InfoTag(const FrameHeader& header) const {
        constexpr std::uint64_t kChecksum = 2;
        const bool hasChecksum = (header.bits & kNoChecksumBit) == 0;
        const std::uint64_t tag = m_offset + header.AfterSideInformation();
        return tag + (hasChecksum && !IsInfo(tag) ? kChecksum : 0);
    }

    bool IsInfo(std::uint64_t offset) const {
        const std::string name = m_reader.Name(offset);
        return name == "Xing" || name == "Info";
    }

    static constexpr std::uint64_t kID3v1 = 128;

    const HeaderReader& m_reader;
    std::uint64_t m_end;
    std::uint64_t m_offset = 0;
    FrameHeader m_first;
    std::uint64_t m_freeBytes = 0; // of frames with a free bit rate, without padding
    bool m_isLost = false;         // a frame has to be followed by another
    FrameHeader m_other;           // the last frame of another kind
    std::uint64_t m_otherEnd = 0;
    MPEGStream m_stream;
};

} // namespace

bool MPEGStream::IsLongerThan(std::int64_t delivered) const {
    // A frame "Info" may declare two numbers of 12 bits of samples to omit.
    constexpr std::int64_t kMaxOmitted = std::int64_t{2} * 4095;
    return !declared.has_value() || *declared < frames || delivered < Samples() - kMaxOmitted;
}

std::string MPEGStream::Describe() const {
    std::string text =
        declared.has_value()
            ? fmt::format("declares {} and contains {}", Count(*declared, "MPEG frame"), frames)
            : fmt::format("does not declare its length: {} were counted",
                          Count(frames, "MPEG frame"));
    if (skippedBytes > 0) {
        text += fmt::format("; {} between or after them {} skipped", Count(skippedBytes, "byte"),
                            skippedBytes == 1 ? "is" : "are");
    }
    return text + (endsInFrame ? "; an incomplete one at the end is left out" : "");
}

std::string MPEGStream::DescribeOther() const {
    return otherFrames == 0
               ? ""
               : fmt::format("{} of its {} have another layer, rate or number of channels than the "
                             "first",
                             otherFrames, Count(frames + otherFrames, "MPEG frame"));
}

// The library divides the length of a file by that of its first frame. A frame more covers tags and
// rounding.
std::uint64_t MPEGStream::MissingBytes() const {
    const std::uint64_t wanted = (frames + 1) * firstBytes;
    const std::uint64_t present =
        std::accumulate(parts.begin(), parts.end(), std::uint64_t{0},
                        [](std::uint64_t sum, const SamplePart& part) { return sum + part.bytes; });
    return wanted - std::min(wanted, present);
}

std::string MPEGStream::MakeInfoFrame() const {
    const FrameHeader first = ParseHeader(firstHeader).value();
    // 64 kbit/s: the frame has at least 192 bytes.
    const std::uint32_t bitRate = first.isFirstVersion ? 5 : 8;
    const FrameHeader header = ParseHeader((firstHeader & ~(kBitRateBits | kPaddingBit)) |
                                           kNoChecksumBit | (bitRate << kBitRateShift))
                                   .value();
    std::string frame(static_cast<std::size_t>(header.bytes), '\0');
    const auto write = [&](std::uint64_t offset, std::uint64_t number) {
        for (std::size_t i = 0; i < 4; ++i) {
            frame[static_cast<std::size_t>(offset) + i] = static_cast<char>(number >> (24 - 8 * i));
        }
    };
    const std::uint64_t tag = header.AfterSideInformation();
    write(0, header.bits);
    frame.replace(static_cast<std::size_t>(tag), 4, "Xing");
    write(tag + 4, 1); // the number of frames follows, and nothing else
    write(tag + 8, frames);
    return frame;
}

std::optional<MPEGStream> ReadMPEGStream(const FileName& file, const StepRunner& run) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return std::nullopt;
    }
    HeaderReader reader(file, std::move(input->descriptor), "cannot read its MPEG frames");
    reader.SetBigEndian(true);
    StreamWalker walker(reader, input->bytes);
    if (!walker.FindFirst() || !IsMPEG(file)) {
        return std::nullopt;
    }
    for (bool goesOn = true; goesOn;) {
        const auto step = [&] {
            goesOn = walker.Step();
        };
        if (run) {
            run(step);
        } else {
            step();
        }
    }
    MPEGStream stream = walker.Take();
    return stream.frames > 0 ? std::optional(std::move(stream)) : std::nullopt;
}

} // namespace kel::host
