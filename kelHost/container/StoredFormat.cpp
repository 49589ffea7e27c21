#include "container/StoredFormat.h"

#include "base/Errors.h"
#include "container/ChannelOrder.h"
#include "container/FormatChunk.h"
#include "container/LayoutChunk.h"
#include "container/Metadata.h"
#include "container/SndfileLibrary.h"
#include "container/SoundFile.h"
#include "container/VOCBlocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <sndfile.h>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kCannotReadHeader = "cannot read its header";

std::string LinearName(Coding coding, std::uint32_t bits) {
    return fmt::format("{}-bit {}", bits, coding == Coding::Float ? "float" : "integer");
}

// Sets the speakers of a file whose layout may be another than those of WAVE.
void SetSpeakers(std::optional<SpeakerLayout> layout, StoredFormat& stored) {
    if (layout.has_value()) {
        stored.channelMask = layout->mask;
        stored.speakers = std::move(layout->speakers);
        stored.otherLayout = std::move(layout->name);
    }
}

// The format of samples that are not compressed; none for others.
std::optional<StoredFormat> LinearFormat(const HeaderReader& header, const ChunkList& chunks) {
    const auto format = ReadFormatChunk(header, chunks);
    if (!format.has_value() || format->encoding == ChunkEncoding::Other) {
        return std::nullopt;
    }
    StoredFormat stored;
    stored.container = FormName(chunks.form);
    stored.coding = format->encoding == ChunkEncoding::Float ? Coding::Float : Coding::Integer;
    stored.bits = format->bits;
    stored.encoding = LinearName(stored.coding, stored.bits);
    constexpr std::uint32_t kByte = 8;
    stored.paddedBits = kByte * format->frameBytes / std::max(format->channels, 1U);
    stored.channelMask = format->channelMask;
    if (IsAIFF(chunks.form)) {
        SetSpeakers(ReadAIFFLayout(header, chunks, format->channels), stored);
    }
    return stored;
}

const std::map<int, std::string>& ContainerNames() {
    static const std::map<int, std::string> names{
        {SF_FORMAT_WAV, "WAVE"},         {SF_FORMAT_AIFF, "AIFF"}, {SF_FORMAT_AU, "AU"},
        {SF_FORMAT_RAW, "headerless"},   {SF_FORMAT_PAF, "PAF"},   {SF_FORMAT_SVX, "8SVX"},
        {SF_FORMAT_NIST, "NIST SPHERE"}, {SF_FORMAT_VOC, "VOC"},   {SF_FORMAT_IRCAM, "IRCAM"},
        {SF_FORMAT_W64, "W64"},          {SF_FORMAT_MAT4, "MAT4"}, {SF_FORMAT_MAT5, "MAT5"},
        {SF_FORMAT_PVF, "PVF"},          {SF_FORMAT_XI, "XI"},     {SF_FORMAT_HTK, "HTK"},
        {SF_FORMAT_SDS, "SDS"},          {SF_FORMAT_AVR, "AVR"},   {SF_FORMAT_WAVEX, "WAVE"},
        {SF_FORMAT_SD2, "SD2"},          {SF_FORMAT_FLAC, "FLAC"}, {SF_FORMAT_CAF, "CAF"},
        {SF_FORMAT_WVE, "WVE"},          {SF_FORMAT_OGG, "Ogg"},   {SF_FORMAT_MPC2K, "MPC2000"},
        {SF_FORMAT_RF64, "RF64"},        {SF_FORMAT_MPEG, "MPEG"}};
    return names;
}

// An encoding of libsndfile.
struct EncodingEntry {
    std::string name; // empty: by coding and bits
    Coding coding;
    std::uint32_t bits;
};

const std::map<int, EncodingEntry>& EncodingEntries() {
    static const std::map<int, EncodingEntry> entries{
        {SF_FORMAT_PCM_S8, {"", Coding::Integer, 8}},
        {SF_FORMAT_PCM_U8, {"", Coding::Integer, 8}},
        {SF_FORMAT_PCM_16, {"", Coding::Integer, 16}},
        {SF_FORMAT_PCM_24, {"", Coding::Integer, 24}},
        {SF_FORMAT_PCM_32, {"", Coding::Integer, 32}},
        {SF_FORMAT_FLOAT, {"", Coding::Float, 32}},
        {SF_FORMAT_DOUBLE, {"", Coding::Float, 64}},
        {SF_FORMAT_ULAW, {"mu-law", Coding::Lossy, 0}},
        {SF_FORMAT_ALAW, {"A-law", Coding::Lossy, 0}},
        {SF_FORMAT_IMA_ADPCM, {"IMA ADPCM", Coding::Lossy, 0}},
        {SF_FORMAT_MS_ADPCM, {"Microsoft ADPCM", Coding::Lossy, 0}},
        {SF_FORMAT_GSM610, {"GSM 6.10", Coding::Lossy, 0}},
        {SF_FORMAT_VOX_ADPCM, {"VOX ADPCM", Coding::Lossy, 0}},
        {SF_FORMAT_NMS_ADPCM_16, {"NMS ADPCM 16 kbit/s", Coding::Lossy, 0}},
        {SF_FORMAT_NMS_ADPCM_24, {"NMS ADPCM 24 kbit/s", Coding::Lossy, 0}},
        {SF_FORMAT_NMS_ADPCM_32, {"NMS ADPCM 32 kbit/s", Coding::Lossy, 0}},
        {SF_FORMAT_G721_32, {"G.721 ADPCM 32 kbit/s", Coding::Lossy, 0}},
        {SF_FORMAT_G723_24, {"G.723 ADPCM 24 kbit/s", Coding::Lossy, 0}},
        {SF_FORMAT_G723_40, {"G.723 ADPCM 40 kbit/s", Coding::Lossy, 0}},
        {SF_FORMAT_DWVW_12, {"DWVW 12-bit", Coding::Integer, 12}},
        {SF_FORMAT_DWVW_16, {"DWVW 16-bit", Coding::Integer, 16}},
        {SF_FORMAT_DWVW_24, {"DWVW 24-bit", Coding::Integer, 24}},
        {SF_FORMAT_DPCM_8, {"DPCM 8-bit", Coding::Integer, 8}},
        {SF_FORMAT_DPCM_16, {"DPCM 16-bit", Coding::Integer, 16}},
        {SF_FORMAT_VORBIS, {"Vorbis", Coding::Lossy, 0}},
        {SF_FORMAT_OPUS, {"Opus", Coding::Lossy, 0}},
        {SF_FORMAT_ALAC_16, {"ALAC 16-bit", Coding::Integer, 16}},
        {SF_FORMAT_ALAC_20, {"ALAC 20-bit", Coding::Integer, 20}},
        {SF_FORMAT_ALAC_24, {"ALAC 24-bit", Coding::Integer, 24}},
        {SF_FORMAT_ALAC_32, {"ALAC 32-bit", Coding::Integer, 32}},
        {SF_FORMAT_MPEG_LAYER_I, {"MP1", Coding::Lossy, 0}},
        {SF_FORMAT_MPEG_LAYER_II, {"MP2", Coding::Lossy, 0}},
        {SF_FORMAT_MPEG_LAYER_III, {"MP3", Coding::Lossy, 0}}};
    return entries;
}

// Returns the bit of dwChannelMask for a speaker of libsndfile; 0 when it has none.
std::uint32_t SpeakerBit(int speaker) {
    static const std::map<int, std::uint32_t> bits{{SF_CHANNEL_MAP_MONO, 0x4},
                                                   {SF_CHANNEL_MAP_LEFT, 0x1},
                                                   {SF_CHANNEL_MAP_RIGHT, 0x2},
                                                   {SF_CHANNEL_MAP_CENTER, 0x4},
                                                   {SF_CHANNEL_MAP_FRONT_LEFT, 0x1},
                                                   {SF_CHANNEL_MAP_FRONT_RIGHT, 0x2},
                                                   {SF_CHANNEL_MAP_FRONT_CENTER, 0x4},
                                                   {SF_CHANNEL_MAP_LFE, 0x8},
                                                   {SF_CHANNEL_MAP_REAR_LEFT, 0x10},
                                                   {SF_CHANNEL_MAP_REAR_RIGHT, 0x20},
                                                   {SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER, 0x40},
                                                   {SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER, 0x80},
                                                   {SF_CHANNEL_MAP_REAR_CENTER, 0x100},
                                                   {SF_CHANNEL_MAP_SIDE_LEFT, 0x200},
                                                   {SF_CHANNEL_MAP_SIDE_RIGHT, 0x400},
                                                   {SF_CHANNEL_MAP_TOP_CENTER, 0x800},
                                                   {SF_CHANNEL_MAP_TOP_FRONT_LEFT, 0x1000},
                                                   {SF_CHANNEL_MAP_TOP_FRONT_CENTER, 0x2000},
                                                   {SF_CHANNEL_MAP_TOP_FRONT_RIGHT, 0x4000},
                                                   {SF_CHANNEL_MAP_TOP_REAR_LEFT, 0x8000},
                                                   {SF_CHANNEL_MAP_TOP_REAR_CENTER, 0x10000},
                                                   {SF_CHANNEL_MAP_TOP_REAR_RIGHT, 0x20000}};
    const auto bit = bits.find(speaker);
    return bit == bits.end() ? 0 : bit->second;
}

std::optional<std::uint32_t> DeclaredMask(SNDFILE* file, int channels) {
    std::vector<int> speakers(static_cast<std::size_t>(std::max(channels, 0)));
    const auto bytes = static_cast<int>(speakers.size() * sizeof(int));
    if (Sndfile().sf_command(file, SFC_GET_CHANNEL_MAP_INFO, speakers.data(), bytes) == SF_FALSE) {
        return std::nullopt;
    }
    std::uint32_t mask = 0;
    for (const int speaker : speakers) {
        const std::uint32_t bit = SpeakerBit(speaker);
        if (bit <= mask) {
            return std::nullopt; // unknown, or not in the order of the bits
        }
        mask |= bit;
    }
    return mask;
}

// FLAC, Vorbis, Opus and MPEG files of up to 8 channels have these speakers (RFC 9639,
// section 9.1.3; Vorbis I, section 4.3.9; RFC 7845, section 5.1.1.2).
std::optional<std::uint32_t> ImpliedMask(int channels) {
    static const std::vector<std::uint32_t> masks{0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x70F, 0x63F};
    return channels >= 1 && static_cast<std::size_t>(channels) <= masks.size()
               ? std::optional(masks[static_cast<std::size_t>(channels) - 1])
               : std::nullopt;
}

// A comment may declare other speakers (RFC 9639, section 8.6.2).
std::optional<std::uint32_t> FLACMask(const FileName& path, const SF_INFO& info) {
    const auto declared = ReadMetadata(path).channelMask;
    return declared.has_value() ? declared : ImpliedMask(info.channels);
}

std::optional<std::uint32_t> OggMask(const FileName& path, const SF_INFO& info) {
    const auto ogg = ReadOggChannels(path);
    return ogg.has_value() && !ogg->HasVorbisLayout() ? std::nullopt : ImpliedMask(info.channels);
}

std::optional<std::uint32_t> LibraryMask(const SoundFile& file) {
    const SF_INFO& info = file.Info();
    return (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG
               ? ImpliedMask(info.channels)
               : DeclaredMask(file.Handle(), info.channels);
}

std::string EncodingName(int container, const EncodingEntry& entry) {
    if (!entry.name.empty()) {
        return entry.name;
    }
    if (container == SF_FORMAT_FLAC) {
        return fmt::format("{}-bit", entry.bits);
    }
    return container == SF_FORMAT_OGG ? fmt::format("FLAC {}-bit", entry.bits)
                                      : LinearName(entry.coding, entry.bits);
}

// Returns the format of a file that libsndfile has opened.
StoredFormat FormatOf(const FileName& path, const SoundFile& file) {
    const SF_INFO& info = file.Info();
    StoredFormat stored;
    const int container = info.format & SF_FORMAT_TYPEMASK;
    const auto name = ContainerNames().find(container);
    stored.container = name != ContainerNames().end() ? name->second : "unknown container";
    const auto entry = EncodingEntries().find(info.format & SF_FORMAT_SUBMASK);
    if (entry == EncodingEntries().end()) {
        stored.encoding = "unknown encoding";
    } else {
        stored.coding = entry->second.coding;
        stored.bits = entry->second.bits;
        stored.encoding = EncodingName(container, entry->second);
    }
    const bool isOgg = container == SF_FORMAT_OGG;
    const bool isFLAC = container == SF_FORMAT_FLAC || (isOgg && stored.coding == Coding::Integer);
    if (container == SF_FORMAT_CAF || container == SF_FORMAT_AIFF) {
        SetSpeakers(ReadSpeakerLayout(path, static_cast<std::uint32_t>(info.channels)), stored);
        return stored;
    }
    stored.channelMask = isFLAC  ? FLACMask(path, info)
                         : isOgg ? OggMask(path, info)
                                 : LibraryMask(file);
    return stored;
}

// The format of a file with chunks and samples that are not compressed, or with blocks of VOC; none
// for others.
std::optional<StoredFormat> LinearFormatOf(const FileName& file) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return std::nullopt;
    }
    HeaderReader header(file, std::move(input->descriptor), kCannotReadHeader);
    if (const auto chunks = ReadChunkList(header, input->bytes)) {
        return ReadLinearFormat(header, *chunks);
    }
    const auto blocks = JudgeVOC(header, input->bytes);
    return blocks.has_value() ? blocks->stored : std::nullopt;
}

} // namespace

std::string Describe(const StoredFormat& format) {
    return format.container == "MPEG" ? format.encoding
                                      : fmt::format("{} {}", format.container, format.encoding);
}

std::optional<StoredFormat> ReadLinearFormat(const HeaderReader& header, const ChunkList& chunks) {
    return LinearFormat(header, chunks);
}

StoredFormat ReadStoredFormat(const FileName& file) {
    if (auto linear = LinearFormatOf(file); linear.has_value()) {
        return *std::move(linear);
    }
    const SoundFile opened(file);
    opened.RequireRead(kCannotReadHeader);
    if (!opened.IsOpen()) {
        throw JobError(file.shown,
                       fmt::format("{}: {}", kCannotReadHeader, Sndfile().sf_strerror(nullptr)));
    }
    return FormatOf(file, opened);
}

std::optional<StoredFormat> FindStoredFormat(const FileName& file) {
    if (auto linear = LinearFormatOf(file); linear.has_value()) {
        return linear;
    }
    const SoundFile opened(file);
    opened.RequireRead(kCannotReadHeader);
    return opened.IsOpen() ? std::optional(FormatOf(file, opened)) : std::nullopt;
}

} // namespace kel::host
