#include "container/HeaderMetadata.h"

#include "container/StoredBytes.h"
#include "container/StoredText.h"
#include "container/TagNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

constexpr std::size_t kMaxHeaderParts = 65536;

// Chunks with their sizes, after the name of the form.
void AddSVX(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder) {
    constexpr std::uint64_t kFirstChunk = 12;
    constexpr std::uint64_t kHeaderBytes = 8;
    std::uint64_t offset = kFirstChunk;
    for (std::size_t i = 0; i < kMaxHeaderParts && offset + kHeaderBytes <= fileBytes; ++i) {
        const std::string start = header.Bytes(offset, kHeaderBytes);
        const std::string name = start.substr(0, 4);
        const std::uint64_t bytes = StoredBytes(start, StoredOrder::Big).Number(4, 4);
        const std::string tag = NameOfTextChunk(name);
        offset += kHeaderBytes;
        if (!tag.empty()) {
            builder.AddStoredTag(tag, builder.Read(PartName(name), offset, bytes));
        } else if (name == "VHDR") {
            constexpr std::uint64_t kRepeated = 4; // frames that are repeated while a note sounds
            const std::string voice = builder.Read(name, offset, bytes);
            if (StoredBytes(voice, StoredOrder::Big).Number(kRepeated, 4) != 0) {
                builder.AddOmission("loops");
            }
        } else if (name != "BODY" && name != "CHAN") {
            builder.AddOther(name, bytes);
        }
        offset += bytes + bytes % 2;
    }
}

bool DescribesSamplesOfNIST(std::string_view field) {
    constexpr std::array<std::string_view, 11> kFields{
        "channel_count",  "channels_interleaved", "sample_byte_format", "sample_checksum",
        "sample_coding",  "sample_count",         "sample_max",         "sample_min",
        "sample_n_bytes", "sample_rate",          "sample_sig_bits"};
    return std::find(kFields.begin(), kFields.end(), field) != kFields.end();
}

// Lines of text: a name, a type and a value. The second line has the length of all of them.
void AddNIST(const HeaderReader& header, MetadataBuilder& builder) {
    constexpr std::uint64_t kMaxHeader = 65536;
    const std::string text = header.Bytes(0, kMaxHeader);
    const std::size_t end = text.find("\nend_head");
    std::size_t start = text.find('\n', text.find('\n') + 1);
    while (start < end && end != std::string::npos) {
        const std::size_t next = std::min(text.find('\n', start + 1), end);
        const std::string line = text.substr(start + 1, next - start - 1);
        const std::size_t type = std::min(line.find(" -"), line.size());
        const std::size_t value = line.find(' ', type + 1);
        const std::string name = line.substr(0, type);
        if (value != std::string::npos && !DescribesSamplesOfNIST(name)) {
            builder.AddStoredTag(LowerCase(DecodeText(name)), line.substr(value + 1));
        }
        start = next;
    }
}

// After 16 bytes: a code, the length of the whole item, and its content. Code 0 is the end. Some
// programs store the length of the content: no code is then where the whole item would end.
void AddIRCAM(const HeaderReader& header, StoredOrder order, MetadataBuilder& builder) {
    constexpr std::uint64_t kFirst = 16;
    constexpr std::uint64_t kHeaderBytes = 1024;
    constexpr std::uint64_t kItem = 4;
    constexpr std::uint64_t kMaxCode = 255;
    enum Code : std::uint64_t { kEnd, kMaximum, kComment };
    const std::string bytes = header.Bytes(0, kHeaderBytes);
    const StoredBytes content(bytes, order);
    for (std::uint64_t offset = kFirst; offset + kItem <= content.Size();) {
        const std::uint64_t code = content.Number(offset, 2);
        const std::uint64_t stored = content.Number(offset + 2, 2);
        const bool isOfContent = content.Number(offset + stored, 2) > kMaxCode;
        const std::uint64_t end = offset + stored + (isOfContent ? kItem : 0);
        if (code == kEnd || end < offset + kItem) {
            return;
        }
        const std::string_view item = content.Part(offset + kItem, end - offset - kItem);
        if (code == kComment) {
            builder.AddStoredTag("comment", item);
        } else if (code != kMaximum) {
            builder.AddOther(fmt::format("item {}", code), item.size());
        }
        offset = end;
    }
}

// A field of a header may be empty.
void AddPresentTag(const char* name, const std::string& text, MetadataBuilder& builder) {
    if (!text.empty()) {
        builder.AddTag(name, text);
    }
}

void AddAVR(const HeaderReader& header, MetadataBuilder& builder) {
    constexpr std::uint64_t kHeaderBytes = 128;
    constexpr std::uint64_t kName = 4;
    constexpr std::uint64_t kNameBytes = 8;
    constexpr std::uint64_t kIsLooped = 18;
    constexpr std::uint64_t kKeys = 20;
    constexpr std::uint64_t kFrames = 26;
    constexpr std::uint64_t kLoopStart = 30;
    constexpr std::uint64_t kLoopEnd = 34;
    constexpr std::uint64_t kNameEnd = 44;
    constexpr std::uint64_t kNameEndBytes = 20;
    constexpr std::uint64_t kUser = 64;
    const std::string bytes = header.Bytes(0, kHeaderBytes);
    const StoredBytes content(bytes, StoredOrder::Big);
    AddPresentTag("title",
                  DecodeText(content.Part(kName, kNameBytes)) +
                      DecodeText(content.Part(kNameEnd, kNameEndBytes)),
                  builder);
    AddPresentTag("comment", DecodeText(content.From(kUser)), builder);
    // Some programs declare the whole file as a loop.
    const std::uint64_t loopEnd = content.Number(kLoopEnd, 4);
    const bool isPart = content.Number(kLoopStart, 4) != 0 ||
                        (loopEnd != 0 && loopEnd != content.Number(kFrames, 4));
    if (content.Number(kIsLooped, 2) != 0 && isPart) {
        builder.AddOmission("loops");
    }
    constexpr std::uint64_t kNoKeys = 0xFFFF;
    const std::uint64_t keys = content.Number(kKeys, 2);
    if (keys != 0 && keys != kNoKeys) {
        builder.AddOmission("MIDI notes");
    }
}

// A text in a field that ends with spaces or zeros.
std::string FieldText(const StoredBytes& content, std::uint64_t offset, std::uint64_t bytes) {
    return PartName(content.Part(offset, bytes));
}

void AddMPC2000(const HeaderReader& header, MetadataBuilder& builder) {
    constexpr std::uint64_t kHeaderBytes = 42;
    constexpr std::uint64_t kName = 2;
    constexpr std::uint64_t kNameBytes = 16;
    constexpr std::uint64_t kLoopMode = 38;
    const std::string bytes = header.Bytes(0, kHeaderBytes);
    const StoredBytes content(bytes, StoredOrder::Little);
    AddPresentTag("title", FieldText(content, kName, kNameBytes), builder);
    if (content.Number(kLoopMode, 1) != 0) {
        builder.AddOmission("loops");
    }
}

void AddSDS(const HeaderReader& header, MetadataBuilder& builder) {
    constexpr std::uint64_t kHeaderBytes = 21;
    constexpr std::uint64_t kLoopEnd = 13; // three bytes
    constexpr std::uint64_t kLoopKind = 19;
    constexpr std::uint64_t kNoLoop = 0x7F;
    const std::string bytes = header.Bytes(0, kHeaderBytes);
    const StoredBytes content(bytes, StoredOrder::Little);
    if (content.Number(kLoopKind, 1) != kNoLoop && content.Number(kLoopEnd, 3) != 0) {
        builder.AddOmission("loops");
    }
}

// An instrument with one sample.
void AddXI(const HeaderReader& header, MetadataBuilder& builder) {
    constexpr std::uint64_t kHeaderBytes = 338;
    constexpr std::uint64_t kName = 21;
    constexpr std::uint64_t kNameBytes = 22;
    constexpr std::uint64_t kProgram = 44;
    constexpr std::uint64_t kProgramBytes = 20;
    constexpr std::uint64_t kKind = 312; // of the sample
    constexpr std::uint64_t kLoopBits = 3;
    constexpr std::uint64_t kSampleName = 316;
    const std::string bytes = header.Bytes(0, kHeaderBytes);
    const StoredBytes content(bytes, StoredOrder::Little);
    AddPresentTag("title", FieldText(content, kName, kNameBytes), builder);
    AddPresentTag("software", FieldText(content, kProgram, kProgramBytes), builder);
    AddPresentTag("sample name", FieldText(content, kSampleName, kNameBytes), builder);
    if ((content.Number(kKind, 1) & kLoopBits) != 0) {
        builder.AddOmission("loops");
    }
}

} // namespace

bool AddHeaderMetadata(const HeaderReader& header, std::uint64_t fileBytes,
                       MetadataBuilder& builder) {
    constexpr std::size_t kMagic = 12;
    const std::string start = header.Bytes(0, kMagic);
    const std::string name = start.substr(0, 4);
    const std::string form = start.substr(std::min<std::size_t>(start.size(), 8), 4);
    const auto isIRCAM = [](std::string_view magic, std::size_t first) {
        return magic.size() == 4 && magic[first] == '\x64' && magic[first == 0 ? 1 : 2] == '\xA3' &&
               magic[3 - first] == '\0';
    };
    if (name == "FORM" && (form == "8SVX" || form == "16SV")) {
        AddSVX(header, fileBytes, builder);
    } else if (start.substr(0, 8) == "NIST_1A\n") {
        AddNIST(header, builder);
    } else if (isIRCAM(name, 0) || isIRCAM(name, 3)) {
        AddIRCAM(header, name.front() == '\x64' ? StoredOrder::Little : StoredOrder::Big, builder);
    } else if (name == "2BIT") {
        AddAVR(header, builder);
    } else if (name.substr(0, 2) == "\1\4") {
        AddMPC2000(header, builder);
    } else if (name.substr(0, 2) == "\xF0\x7E") {
        AddSDS(header, builder);
    } else if (start == "Extended Ins") {
        AddXI(header, builder);
    } else {
        return false;
    }
    return true;
}

} // namespace kel::host
