#include "container/VOCBlocks.h"

#include "base/Text.h"
#include "container/StoredText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::string_view kSignature{"Creative Voice File\x1A"};
constexpr std::uint64_t kBlockStart = 4; // a type and a size
constexpr std::uint64_t kMaxBlockBytes = 0xFFFFFF;
// Some programs continue the sound in a new block every few milliseconds.
constexpr std::size_t kMaxVOCBlocks = std::size_t{1} << 18U; // a gigabyte in blocks of 4 KB

enum VOCBlockType : unsigned {
    kEnd = 0,
    kSound = 1,
    kContinuation = 2,
    kSilence = 3,
    kMarker = 4,
    kText = 5,
    kRepeat = 6,
    kRepeatEnd = 7,
    kExtension = 8, // replaces the format in the next block of type kSound
    kNewSound = 9,
};

struct Block {
    unsigned type = 0;
    std::uint64_t content = 0; // offset in the file, in bytes
    std::uint64_t bytes = 0;   // of the content, as declared

    std::uint64_t End() const { return content + bytes; }

    // Bytes before the samples of a block of sound.
    std::uint64_t Description() const {
        constexpr std::uint64_t kDescription = 2;
        constexpr std::uint64_t kNewDescription = 12;
        return type == kNewSound ? kNewDescription : type == kSound ? kDescription : 0;
    }

    bool IsSound() const { return type == kSound || type == kContinuation || type == kNewSound; }
};

// Goes from block to block.
class BlockCursor {
public:
    BlockCursor(const HeaderReader& header, std::uint64_t fileBytes)
        : m_header(header), m_fileBytes(fileBytes) {
        constexpr std::uint64_t kFirstBlock = 20;
        m_offset = header.Number(kFirstBlock, 2);
    }

    // The next block that begins within the file; none after the last one, and where none is known.
    std::optional<Block> Next() {
        if (m_offset >= m_fileBytes) {
            return std::nullopt;
        }
        const auto type = static_cast<unsigned>(m_header.Number(m_offset, 1));
        m_isEnded = type == kEnd;
        if (type == kEnd || type > kNewSound || m_offset + kBlockStart > m_fileBytes) {
            m_offset += m_isEnded ? 1 : 0;
            return std::nullopt;
        }
        const Block block{type, m_offset + kBlockStart, m_header.Number(m_offset + 1, 3)};
        m_offset = block.End();
        return block;
    }

    // True after the block that ends the file.
    bool IsEnded() const { return m_isEnded; }

    // The end of the blocks read so far; may be beyond the end of the file.
    std::uint64_t Offset() const { return m_offset; }

private:
    const HeaderReader& m_header;
    std::uint64_t m_fileBytes;
    std::uint64_t m_offset;
    bool m_isEnded = false;
};

// A format of samples, as the blocks have it.
struct SoundFormat {
    std::uint64_t rate = 0; // frames per second
    std::uint64_t channels = 0;
    std::uint64_t codec = 0;
    std::uint64_t bits = 0; // 0: those of the codec

    bool operator==(const SoundFormat& other) const {
        return std::tie(rate, channels, codec, bits) ==
               std::tie(other.rate, other.channels, other.codec, other.bits);
    }
};

// An encoding of samples.
struct Codec {
    std::uint64_t number = 0;
    std::uint32_t bits = 0;
    ChunkEncoding encoding = ChunkEncoding::Other;
    std::uint32_t waveTag = 0;
    const char* name = nullptr;
    unsigned char silence = 0; // each byte of it
};

const Codec* FindCodec(const SoundFormat& format) {
    static const std::vector<Codec> codecs{{0, 8, ChunkEncoding::Integer, 1, "8-bit integer", 0x80},
                                           {0, 16, ChunkEncoding::Integer, 1, "16-bit integer", 0},
                                           {4, 16, ChunkEncoding::Integer, 1, "16-bit integer", 0},
                                           {6, 8, ChunkEncoding::Other, 6, "A-law", 0xD5},
                                           {7, 8, ChunkEncoding::Other, 7, "mu-law", 0xFF}};
    const auto codec = std::find_if(codecs.begin(), codecs.end(), [&](const Codec& one) {
        return one.number == format.codec && (format.bits == 0 || format.bits == one.bits);
    });
    return codec != codecs.end() ? &*codec : nullptr;
}

// Judges the blocks of a file.
class BlockJudge {
public:
    // @param builder receives metadata; may be null
    BlockJudge(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder* builder)
        : m_header(header), m_fileBytes(fileBytes), m_builder(builder) {
        m_result.fileBytes = fileBytes;
        m_result.container = "VOC";
    }

    InputHeader Run() {
        FindFormat();
        if (m_format.has_value()) {
            AddParts();
            if (!IsEndClean() && m_first.has_value() && ContinuesToTheEnd(*m_first)) {
                ReplaceParts();
            }
            m_result.FindTruncation(m_declared, m_end);
            m_result.obstacle = FindObstacle();
        }
        return std::move(m_result);
    }

private:
    // The format of the first sound, which silence may precede.
    void FindFormat() {
        BlockCursor cursor(m_header, m_fileBytes);
        for (auto block = cursor.Next(); block.has_value() && !m_format.has_value();
             block = cursor.Next()) {
            m_format = FormatIn(*block);
        }
        m_extension.reset();
        if (!m_format.has_value()) {
            return;
        }
        m_codec = FindCodec(*m_format);
        FormatChunk format;
        format.channels = static_cast<std::uint32_t>(m_format->channels);
        format.rate = static_cast<std::uint32_t>(m_format->rate);
        if (m_codec != nullptr) {
            format.encoding = m_codec->encoding;
            format.bits = m_codec->bits;
            format.frameBytes = format.channels * (m_codec->bits / 8);
            format.waveTag = m_codec->waveTag;
            const bool isInteger = m_codec->encoding == ChunkEncoding::Integer;
            StoredFormat stored;
            stored.container = m_result.container;
            stored.encoding = m_codec->name;
            stored.coding = isInteger ? Coding::Integer : Coding::Lossy;
            stored.bits = isInteger ? format.bits : 0;
            stored.paddedBits = stored.bits;
            m_result.stored = std::move(stored);
        }
        m_result.format = format;
    }

    // The format in a block of sound; none for the others, and for continuations.
    std::optional<SoundFormat> FormatIn(const Block& block) {
        const auto number = [&](std::uint64_t offset, std::size_t bytes) {
            return m_header.Number(block.content + offset, bytes);
        };
        constexpr std::uint64_t kUnits = 1000000;
        constexpr std::uint64_t kMaxByte = 256;
        if (block.type == kExtension) {
            constexpr std::uint64_t kMaxRate = 65536;
            const std::uint64_t channels = number(3, 1) + 1;
            const std::uint64_t rate = kMaxByte * kUnits / (kMaxRate - number(0, 2)) / channels;
            m_extension = SoundFormat{rate, channels, number(2, 1), 0};
        } else if (block.type == kSound) {
            const SoundFormat own{kUnits / (kMaxByte - number(0, 1)), 1, number(1, 1), 0};
            const SoundFormat format = m_extension.value_or(own);
            m_extension.reset();
            return format;
        } else if (block.type == kNewSound) {
            return SoundFormat{number(0, 4), number(5, 1), number(6, 2), number(4, 1)};
        }
        return std::nullopt;
    }

    void AddParts() {
        BlockCursor cursor(m_header, m_fileBytes);
        std::size_t count = 0;
        for (auto block = cursor.Next(); block.has_value(); block = cursor.Next()) {
            if (++count > kMaxVOCBlocks) {
                m_hasTooMany = true;
                break;
            }
            AddBlock(*block);
        }
        m_isEnded = cursor.IsEnded();
        m_end = cursor.Offset();
    }

    void AddBlock(const Block& block) {
        const auto format = FormatIn(block);
        m_isMixed = m_isMixed || (format.has_value() && !(*format == *m_format));
        if (block.type == kSilence) {
            AddSilence(block);
        } else if (block.IsSound()) {
            AddSound(block);
        } else {
            // libsndfile knows texts and a format in front of the samples.
            const bool isKnown = block.type == kText || block.type == kExtension;
            m_hasOthersBefore = m_hasOthersBefore || (!isKnown && m_result.parts.empty());
            m_hasOthersAfter = m_hasOthersAfter || !m_result.parts.empty();
            if (m_builder != nullptr) {
                AddMetadata(block);
            }
        }
    }

    void AddMetadata(const Block& block) const {
        auto& points = m_builder->metadata.cuePoints;
        if (block.type == kText) {
            const std::string text = m_builder->Read("text", block.content, block.bytes);
            m_builder->AddTag("comment", DecodeText(text.substr(0, text.find('\0'))));
        } else if (block.type == kMarker && points.size() <= kMaxCuePoints) {
            CuePoint point;
            point.id = static_cast<std::uint32_t>(m_header.Number(block.content, 2));
            point.frame = m_declared / std::max<std::uint64_t>(m_result.FrameBytes(), 1);
            points.push_back(std::move(point));
        } else if (block.type == kRepeat) {
            m_builder->AddOther("repeat", block.bytes);
        }
    }

    void AddSound(const Block& block) {
        const std::uint64_t first = std::min(block.content + block.Description(), m_fileBytes);
        const std::uint64_t left = m_fileBytes - first;
        const std::uint64_t declared = block.bytes - std::min(block.bytes, block.Description());
        if (!m_first.has_value()) {
            m_first = block;
            m_metadataBefore = m_builder != nullptr ? m_builder->metadata : Metadata();
        }
        m_result.parts.push_back({first, std::min(declared, left), std::nullopt});
        m_declared += declared;
    }

    // Silence has a number of frames, less one, and a rate.
    void AddSilence(const Block& block) {
        constexpr std::uint64_t kUnits = 1000000;
        const std::uint64_t frames = m_header.Number(block.content, 2) + 1;
        const std::uint64_t period = 256 - m_header.Number(block.content + 2, 1);
        const std::uint64_t rate = std::max<std::uint64_t>(m_format->rate, 1);
        const auto isOf = [&](std::uint64_t other) {
            return period * other <= kUnits + other && kUnits <= (period + 1) * other;
        };
        // A period of a whole number of microseconds is not quite that of the sound.
        const bool isSame = isOf(rate) || isOf(rate * m_format->channels);
        const std::uint64_t scaled = (frames * period * rate + kUnits / 2) / kUnits;
        const std::uint64_t bytes = (isSame ? frames : scaled) * m_result.FrameBytes();
        m_result.parts.push_back(
            {block.content, bytes, m_codec != nullptr ? m_codec->silence : std::uint8_t{0}});
        m_declared += bytes;
    }

    // True when the blocks are followed by their end and nothing else, or by nothing.
    bool IsEndClean() const { return m_end == m_fileBytes; }

    bool ContinuesToTheEnd(const Block& block) const {
        constexpr std::uint64_t kTooLarge = kMaxBlockBytes + 1;
        constexpr std::uint64_t kMissing = 8;
        if (block.End() > m_fileBytes) {
            return block.bytes == kMaxBlockBytes;
        }
        // The end of the file may have a byte.
        const std::uint64_t left = m_fileBytes - block.End();
        const std::uint64_t rest = left % kTooLarge;
        return block.bytes <= block.Description() || (left >= kTooLarge && rest <= 1) ||
               rest == kMissing || rest == kMissing + 1;
    }

    // Reads all bytes after the beginning of the first sound as sound.
    void ReplaceParts() {
        const std::uint64_t first =
            std::min(m_first->content + m_first->Description(), m_fileBytes);
        m_isEnded = m_header.Number(m_fileBytes - 1, 1) == kEnd;
        m_end = m_fileBytes;
        m_declared = m_fileBytes - first - (m_isEnded && first < m_fileBytes ? 1 : 0);
        m_result.declaresLength = false;
        m_result.parts.assign(1, {first, m_declared, std::nullopt});
        m_isMixed = false;
        m_hasOthersAfter = false;
        m_hasTooMany = false;
        if (m_builder != nullptr) {
            m_builder->metadata = m_metadataBefore;
        }
    }

    std::string FindObstacle() {
        m_result.isRepairable = m_codec != nullptr && !m_isMixed && !m_hasTooMany &&
                                m_format->channels != 0 && m_format->rate != 0 &&
                                !m_result.parts.empty();
        if (m_codec == nullptr) {
            constexpr std::uint64_t kLastADPCM = 3;
            const bool isADPCM = m_format->codec >= 1 && m_format->codec <= kLastADPCM;
            return isADPCM ? "its samples are Creative ADPCM (ffmpeg reads it)"
                           : fmt::format("its samples have the unknown encoding {}{}",
                                         m_format->codec, DescribeBits());
        }
        if (m_hasTooMany) {
            return fmt::format("it has more than {} blocks", kMaxVOCBlocks);
        }
        if (m_isMixed) {
            return "its blocks have different rates, encodings or numbers of channels";
        }
        if (m_result.truncation.has_value()) {
            return "it " + DescribeCounts(*m_result.truncation);
        }
        return DescribeOrder();
    }

    // The number of bits, where a block has it.
    std::string DescribeBits() const {
        return m_format->bits == 0 ? "" : fmt::format(" of {} bits", m_format->bits);
    }

    // The reason why libsndfile refuses the blocks, or takes all that follow the first for sound;
    // empty for none.
    std::string DescribeOrder() const {
        const std::uint64_t unit = std::max<std::uint64_t>(m_result.FrameBytes(), 1);
        const std::string frames = Count(m_result.SampleBytes() / unit, "frame");
        if (m_result.parts.size() > 1) {
            return fmt::format("it contains {} in {} blocks", frames, m_result.parts.size());
        }
        if (m_hasOthersBefore || (IsOld() && m_hasOthersAfter)) {
            return fmt::format("it contains {} between other blocks", frames);
        }
        if (IsOld() && m_end < m_fileBytes) {
            const std::uint64_t bytes = m_fileBytes - m_end;
            return fmt::format("{} follow{} its last block", Count(bytes, "byte"),
                               bytes == 1 ? "s" : "");
        }
        return IsOld() && !m_isEnded ? "it does not declare its end" : "";
    }

    // True for sound whose size libsndfile compares with that of the file.
    bool IsOld() const { return m_first.has_value() && m_first->type != kNewSound; }

    const HeaderReader& m_header;
    std::uint64_t m_fileBytes;
    MetadataBuilder* m_builder;
    Metadata m_metadataBefore; // the first sound
    InputHeader m_result;
    std::optional<SoundFormat> m_format; // of the first sound
    const Codec* m_codec = nullptr;
    std::optional<SoundFormat> m_extension; // for the next block of type kSound
    std::optional<Block> m_first;           // of sound
    std::uint64_t m_declared = 0;           // bytes of samples
    std::uint64_t m_end = 0;                // of the blocks
    bool m_isEnded = false;
    bool m_isMixed = false;
    bool m_hasOthersBefore = false;
    bool m_hasOthersAfter = false; // after the beginning of the samples
    bool m_hasTooMany = false;
};

} // namespace

bool IsVOC(const HeaderReader& header) {
    return header.Bytes(0, kSignature.size()) == kSignature;
}

std::optional<InputHeader> JudgeVOC(const HeaderReader& header, std::uint64_t fileBytes) {
    return IsVOC(header) ? std::optional(BlockJudge(header, fileBytes, nullptr).Run())
                         : std::nullopt;
}

void AddVOCMetadata(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder) {
    BlockJudge(header, fileBytes, &builder).Run();
}

} // namespace kel::host
