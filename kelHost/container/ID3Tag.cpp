#include "container/ID3Tag.h"

#include "container/StoredBytes.h"
#include "container/StoredText.h"
#include "container/TagNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint64_t kID3Header = 10;
constexpr std::size_t kMaxFrames = 4096;

// Encodings of texts.
constexpr char kUTF16 = 1;
constexpr char kUTF16BigEndian = 2;
constexpr char kUTF8 = 3;

// Flags of the tag.
constexpr unsigned kUnsynchronised = 0x80;
constexpr unsigned kExtended = 0x40;

// A number of 7 bits per byte.
std::uint64_t DecodeSyncsafe(std::uint64_t stored) {
    return (stored & 0x7FU) | (stored & 0x7F00U) >> 1U | (stored & 0x7F0000U) >> 2U |
           (stored & 0x7F000000U) >> 3U;
}

std::string EncodeSyncsafe(std::uint64_t number) {
    const std::uint64_t stored = (number & 0x7FU) | (number & 0x3F80U) << 1U |
                                 (number & 0x1FC000U) << 2U | (number & 0xFE00000U) << 3U;
    return NumberBytes(stored, 4, StoredOrder::Big);
}

// Removes the zeros that follow bytes 0xFF, so that no decoder takes the tag for audio.
std::string Resynchronise(std::string_view bytes) {
    std::string decoded;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 0 || bytes[i] != '\0' || bytes[i - 1] != '\xFF') {
            decoded.push_back(bytes[i]);
        }
    }
    return decoded;
}

// The name of a genre by its number in ID3v1; empty when it has none.
std::string GenreName(std::size_t number) {
    constexpr const char* kGenres[] = {"Blues",
                                       "Classic Rock",
                                       "Country",
                                       "Dance",
                                       "Disco",
                                       "Funk",
                                       "Grunge",
                                       "Hip-Hop",
                                       "Jazz",
                                       "Metal",
                                       "New Age",
                                       "Oldies",
                                       "Other",
                                       "Pop",
                                       "R&B",
                                       "Rap",
                                       "Reggae",
                                       "Rock",
                                       "Techno",
                                       "Industrial",
                                       "Alternative",
                                       "Ska",
                                       "Death Metal",
                                       "Pranks",
                                       "Soundtrack",
                                       "Euro-Techno",
                                       "Ambient",
                                       "Trip-Hop",
                                       "Vocal",
                                       "Jazz+Funk",
                                       "Fusion",
                                       "Trance",
                                       "Classical",
                                       "Instrumental",
                                       "Acid",
                                       "House",
                                       "Game",
                                       "Sound Clip",
                                       "Gospel",
                                       "Noise",
                                       "AlternRock",
                                       "Bass",
                                       "Soul",
                                       "Punk",
                                       "Space",
                                       "Meditative",
                                       "Instrumental Pop",
                                       "Instrumental Rock",
                                       "Ethnic",
                                       "Gothic",
                                       "Darkwave",
                                       "Techno-Industrial",
                                       "Electronic",
                                       "Pop-Folk",
                                       "Eurodance",
                                       "Dream",
                                       "Southern Rock",
                                       "Comedy",
                                       "Cult",
                                       "Gangsta",
                                       "Top 40",
                                       "Christian Rap",
                                       "Pop/Funk",
                                       "Jungle",
                                       "Native American",
                                       "Cabaret",
                                       "New Wave",
                                       "Psychadelic",
                                       "Rave",
                                       "Showtunes",
                                       "Trailer",
                                       "Lo-Fi",
                                       "Tribal",
                                       "Acid Punk",
                                       "Acid Jazz",
                                       "Polka",
                                       "Retro",
                                       "Musical",
                                       "Rock & Roll",
                                       "Hard Rock"};
    return number < std::size(kGenres) ? kGenres[number] : "";
}

// The genre with a number, or with one of two short forms; empty for other texts.
std::string GenreOf(const std::string& stored) {
    constexpr std::size_t kMaxDigits = 3;
    const bool isNumber = !stored.empty() && stored.size() <= kMaxDigits &&
                          stored.find_first_not_of("0123456789") == std::string::npos;
    return stored == "RX"   ? "Remix"
           : stored == "CR" ? "Cover"
           : isNumber       ? GenreName(std::stoul(stored))
                            : "";
}

// Genres may be stored as "17", "(17)", "(17)(18)" or "(17)Hard rock".
std::vector<std::string> DecodeGenres(const std::string& stored) {
    std::vector<std::string> genres;
    std::size_t start = 0;
    while (stored.compare(start, 1, "(") == 0) {
        const std::size_t end = std::min(stored.find(')', start), stored.size());
        const std::string genre = GenreOf(stored.substr(start + 1, end - start - 1));
        if (genre.empty() || end == stored.size()) {
            break;
        }
        genres.push_back(genre);
        start = end + 1;
    }
    const std::string rest = stored.substr(start);
    const std::string genre = start == 0 ? GenreOf(rest) : "";
    if (!rest.empty()) {
        genres.push_back(genre.empty() ? rest : genre);
    }
    return genres;
}

// The texts of a frame, which are separated by characters 0. The bytes start with the first text.
std::vector<std::string> DecodeTexts(char encoding, std::string_view bytes) {
    const bool isWide = encoding == kUTF16 || encoding == kUTF16BigEndian;
    bool isBigEndian = encoding == kUTF16BigEndian;
    const std::size_t width = isWide ? 2 : 1;
    std::vector<std::string> texts;
    std::size_t start = 0;
    while (start < bytes.size() && texts.size() < kMaxTags) {
        std::size_t end = start;
        while (end + width <= bytes.size() &&
               bytes.substr(end, width) != std::string(width, '\0')) {
            end += width;
        }
        const std::string_view text = bytes.substr(start, end - start);
        const std::string_view mark = text.substr(0, 2);
        isBigEndian = mark == "\xFE\xFF" || (isBigEndian && mark != "\xFF\xFE");
        texts.push_back(isWide ? DecodeUTF16(text, isBigEndian) : DecodeText(text));
        start = end + width;
    }
    return texts;
}

// The description at the beginning of a frame with an encoding, and the bytes up to what follows.
std::pair<std::string, std::size_t> DecodeFirst(const std::string& content) {
    const char encoding = content.empty() ? kUTF8 : content.front();
    const std::size_t width = encoding == kUTF16 || encoding == kUTF16BigEndian ? 2 : 1;
    std::size_t end = std::min<std::size_t>(1, content.size());
    while (end + width <= content.size() &&
           content.compare(end, width, std::string(width, '\0')) != 0) {
        end += width;
    }
    const auto texts = DecodeTexts(
        encoding,
        StoredBytes(content, StoredOrder::Big).Part(1, end - std::min<std::size_t>(1, end)));
    return {texts.empty() ? "" : texts.front(), end + width};
}

// The part of a frame's header that matters.
struct FrameHeader {
    std::string id;
    std::uint64_t bytes = 0;
    bool isReadable = true;        // neither compressed nor encrypted
    bool isUnsynchronised = false; // by itself
    std::uint64_t before = 0;      // bytes before the content
};

// Adds the frames of one tag.
class ID3Reader {
public:
    ID3Reader(const HeaderReader& header, const std::string& part, std::uint64_t offset,
              std::uint64_t bytes, MetadataBuilder& builder)
        : m_header(header), m_part(PartName(part)), m_builder(builder),
          m_offset(offset + kID3Header) {
        const std::string tag = header.Bytes(offset, kID3Header);
        const StoredBytes numbers(tag, StoredOrder::Big);
        m_version = static_cast<unsigned>(numbers.Number(3, 1));
        m_flags = static_cast<unsigned>(numbers.Number(5, 1));
        const std::uint64_t declared = ID3Bytes(header, offset);
        if (declared > bytes) {
            builder.AddProblem(
                fmt::format("{} declares {} bytes and has {}", m_part, declared, bytes));
        }
        m_bytes = std::min(declared, bytes) - std::min({kID3Header, declared, bytes});
    }

    void Read() {
        constexpr unsigned kFirstVersion = 2;
        constexpr unsigned kLastVersion = 4;
        const bool isCompressed = m_version == kFirstVersion && (m_flags & kExtended) != 0;
        if (m_version < kFirstVersion || m_version > kLastVersion || isCompressed) {
            m_builder.AddProblem(fmt::format("{} has a version that is not known", m_part));
            return;
        }
        if (m_version < kLastVersion && (m_flags & kUnsynchronised) != 0) {
            m_decoded = Resynchronise(m_builder.Read(m_part, m_offset, m_bytes));
            m_bytes = m_decoded.size();
            m_isDecoded = true;
        }
        std::uint64_t at = ExtendedHeaderBytes();
        for (std::size_t count = 0; at < m_bytes; ++count) {
            const FrameHeader frame = ReadHeader(at);
            if (frame.id.empty()) {
                return; // padding
            }
            if (count == kMaxFrames) {
                m_builder.AddProblem(fmt::format("{} has more than {} frames", m_part, kMaxFrames));
                return;
            }
            at += HeaderBytes();
            if (frame.bytes > m_bytes - std::min(at, m_bytes)) {
                m_builder.AddProblem(fmt::format("{} in {} declares {} bytes and has {}", frame.id,
                                                 m_part, frame.bytes,
                                                 m_bytes - std::min(at, m_bytes)));
                return;
            }
            AddFrame(frame, at);
            at += frame.bytes;
        }
    }

private:
    std::uint64_t HeaderBytes() const { return m_version == 2 ? 6 : kID3Header; }

    // Bytes of the tag, by their offset after its header.
    std::string Part(std::uint64_t at, std::uint64_t count) const {
        const std::uint64_t part = at < m_bytes ? std::min(count, m_bytes - at) : 0;
        return m_isDecoded ? m_decoded.substr(static_cast<std::size_t>(std::min(at, m_bytes)),
                                              static_cast<std::size_t>(part))
                           : m_header.Bytes(m_offset + at, static_cast<std::size_t>(part));
    }

    std::uint64_t ExtendedHeaderBytes() const {
        if ((m_flags & kExtended) == 0) {
            return 0;
        }
        const std::string start = Part(0, 4);
        const std::uint64_t size = StoredBytes(start, StoredOrder::Big).Number(0, 4);
        return m_version == 4 ? DecodeSyncsafe(size) : 4 + size;
    }

    FrameHeader ReadHeader(std::uint64_t at) const {
        const std::size_t idLength = m_version == 2 ? 3 : 4;
        const std::string bytes = Part(at, HeaderBytes());
        const StoredBytes numbers(bytes, StoredOrder::Big);
        FrameHeader frame;
        const auto isIdCharacter = [](char character) {
            return (character >= 'A' && character <= 'Z') || (character >= '0' && character <= '9');
        };
        if (bytes.size() < HeaderBytes() ||
            !std::all_of(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(idLength),
                         isIdCharacter)) {
            return frame;
        }
        frame.id = bytes.substr(0, idLength);
        frame.bytes = numbers.Number(idLength, idLength);
        const auto flags = m_version == 2 ? 0U : static_cast<unsigned>(numbers.Number(9, 1));
        if (m_version == 3) {
            frame.isReadable = (flags & 0xC0U) == 0;
            frame.before = (flags & 0x20U) != 0 ? 1 : 0;
        } else if (m_version == 4) {
            frame.bytes = DecodeSyncsafe(frame.bytes);
            frame.isReadable = (flags & 0x0CU) == 0;
            frame.isUnsynchronised = (flags & 0x02U) != 0 || (m_flags & kUnsynchronised) != 0;
            frame.before = ((flags & 0x40U) != 0 ? 1U : 0U) + ((flags & 0x01U) != 0 ? 4U : 0U);
        }
        return frame;
    }

    void AddFrame(const FrameHeader& frame, std::uint64_t at) {
        const bool isComment = frame.id == "COMM" || frame.id == "COM";
        const bool isLyrics = frame.id == "USLT" || frame.id == "ULT";
        const bool isURL = frame.id.front() == 'W';
        const bool isText = frame.id.front() == 'T' || isComment || isLyrics || isURL;
        if (!isText || !frame.isReadable) {
            m_builder.AddOther(frame.id, frame.bytes);
            return;
        }
        std::string content = m_isDecoded ? Part(at, frame.bytes)
                                          : m_builder.Read(frame.id, m_offset + at, frame.bytes);
        content.erase(0, static_cast<std::size_t>(frame.before));
        if (frame.isUnsynchronised) {
            content = Resynchronise(content);
        }
        if (isURL) {
            AddLink(frame.id, content);
        } else if (isComment || isLyrics) {
            AddTextInLanguage(frame.id, isComment ? "comment" : "lyrics", content);
        } else {
            AddTexts(frame.id, "", DecodeContent(content, 1));
        }
    }

    // The texts after an encoding and other bytes.
    static std::vector<std::string> DecodeContent(const std::string& content, std::size_t before) {
        return DecodeTexts(content.empty() ? kUTF8 : content.front(),
                           StoredBytes(content, StoredOrder::Big).From(before));
    }

    // A link is in ISO 8859-1, whatever the encoding of its description.
    void AddLink(const std::string& id, const std::string& content) {
        if (id != "WXXX" && id != "WXX") {
            m_builder.AddTag(LowerCase(id), DecodeText(content));
            return;
        }
        const auto [description, bytes] = DecodeFirst(content);
        m_builder.AddTag(description.empty() ? LowerCase(id) : NameOfComment(description),
                         DecodeText(StoredBytes(content, StoredOrder::Big).From(bytes)));
    }

    void AddTextInLanguage(const std::string& id, const std::string& kind,
                           const std::string& content) {
        constexpr std::size_t kLanguage = 3;
        const std::string language =
            UpperCase(StoredBytes(content, StoredOrder::Big).Part(1, kLanguage));
        const bool isDeclared =
            language != "XXX" && language.find_first_not_of('\0') != std::string::npos;
        if (isDeclared) {
            m_builder.AddOmission(kind == "lyrics" ? "languages of lyrics"
                                                   : "languages of comments");
        }
        AddTexts(id, kind, DecodeContent(content, 1 + kLanguage));
    }

    // Texts of comments, lyrics and frames of the user have a description, the first of them.
    void AddTexts(const std::string& id, const std::string& kind,
                  const std::vector<std::string>& texts) {
        const bool isUserFrame = id.substr(1) == "XXX" || id.substr(1) == "XX";
        const std::size_t first = isUserFrame || !kind.empty() ? 1 : 0;
        if (texts.size() <= first) {
            m_builder.AddOmission("empty tags");
            return;
        }
        std::string name = NameOfFrame(id);
        if (isUserFrame) {
            name = NameOfComment(texts.front());
        } else if (!kind.empty()) {
            name = kind + (texts.front().empty() ? "" : ":" + LowerCase(texts.front()));
        }
        for (std::size_t i = first; i < texts.size(); ++i) {
            const bool isGenre = name == "genre" && !isUserFrame && !texts[i].empty();
            for (const std::string& text :
                 isGenre ? DecodeGenres(texts[i]) : std::vector{texts[i]}) {
                m_builder.AddTag(name, text);
            }
        }
    }

    const HeaderReader& m_header;
    std::string m_part;
    MetadataBuilder& m_builder;
    std::uint64_t m_offset; // of the first byte after the header
    std::uint64_t m_bytes = 0;
    unsigned m_version = 0;
    unsigned m_flags = 0;
    bool m_isDecoded = false;
    std::string m_decoded;
};

// Adds a text of ID3v1. It may be the beginning of one that is known already. Any other text is an
// omission then.
void AddShortTag(const std::string& name, const std::string& value, MetadataBuilder& builder) {
    bool isKnown = false;
    bool isBeginning = false;
    for (const Tag& known : builder.metadata.tags) {
        const std::size_t zeros =
            name == "track" ? std::min(known.value.find_first_not_of('0'), known.value.size()) : 0;
        isKnown = isKnown || known.name == name;
        isBeginning = isBeginning ||
                      (known.name == name && known.value.compare(zeros, value.size(), value) == 0);
    }
    if (!isKnown) {
        builder.AddTag(name, value);
    } else if (!isBeginning) {
        builder.AddOmission(name + " of ID3v1");
    }
}

std::string FormatFrame(const std::string& id, const std::string& content) {
    const std::string noFlags(2, '\0');
    return id + EncodeSyncsafe(content.size()) + noFlags + content;
}

// A frame with all texts of a name.
std::string FormatTexts(const std::string& name, const std::string& texts) {
    const std::string comment = "comment";
    const std::string encoding(1, kUTF8);
    if (name == comment || name.rfind(comment + ":", 0) == 0) {
        const std::string description =
            name == comment ? std::string() : name.substr(comment.size() + 1);
        return FormatFrame("COMM", encoding + "XXX" + description + '\0' + texts);
    }
    // The frame for genres has numbers and short forms for some of them; a text may look like one.
    const bool isMistakable =
        name == "genre" &&
        (texts.find_first_of("(0123456789") != std::string::npos ||
         texts.find("RX") != std::string::npos || texts.find("CR") != std::string::npos);
    const std::string id = isMistakable ? "" : FrameId(name);
    return id.empty() ? FormatFrame("TXXX", encoding + name + '\0' + texts)
                      : FormatFrame(id, encoding + texts);
}

} // namespace

std::uint64_t ID3Bytes(const HeaderReader& header, std::uint64_t offset) {
    constexpr unsigned kFooter = 0x10;
    const std::string tag = header.Bytes(offset, kID3Header);
    if (tag.size() < kID3Header || tag.substr(0, 3) != "ID3") {
        return 0;
    }
    const StoredBytes numbers(tag, StoredOrder::Big);
    const bool hasFooter = (numbers.Number(5, 1) & kFooter) != 0;
    return kID3Header + DecodeSyncsafe(numbers.Number(6, 4)) + (hasFooter ? kID3Header : 0);
}

void AddID3(const HeaderReader& header, const std::string& name, std::uint64_t offset,
            std::uint64_t bytes, MetadataBuilder& builder) {
    if (ID3Bytes(header, offset) == 0) {
        builder.AddProblem(fmt::format("{} has no ID3v2 tag", PartName(name)));
        builder.AddOther(name, bytes);
        return;
    }
    ID3Reader(header, name, offset, bytes, builder).Read();
}

void AddID3BeforeFooter(const HeaderReader& header, std::uint64_t end, MetadataBuilder& builder) {
    const std::string footer = end < kID3Header ? "" : header.Bytes(end - kID3Header, kID3Header);
    if (footer.substr(0, 3) != "3DI") {
        return;
    }
    const std::uint64_t bytes =
        2 * kID3Header + DecodeSyncsafe(StoredBytes(footer, StoredOrder::Big).Number(6, 4));
    if (bytes <= end) {
        AddID3(header, "ID3", end - bytes, bytes, builder);
    } else {
        builder.AddProblem(fmt::format("ID3 at the end declares {} bytes and has {}", bytes, end));
    }
}

void AddID3v1(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder) {
    constexpr std::uint64_t kTag = 128;
    constexpr std::size_t kNoGenre = 255;
    const std::string bytes =
        fileBytes < kTag ? "" : header.Bytes(fileBytes - kTag, static_cast<std::size_t>(kTag));
    if (bytes.substr(0, 3) != "TAG") {
        return;
    }
    const StoredBytes tag(bytes, StoredOrder::Big);
    const auto add = [&](const char* name, std::string value) {
        value.erase(value.find_last_not_of(' ') + 1);
        if (!value.empty()) {
            AddShortTag(name, value, builder);
        }
    };
    add("title", DecodeText(tag.Part(3, 30)));
    add("artist", DecodeText(tag.Part(33, 30)));
    add("album", DecodeText(tag.Part(63, 30)));
    add("date", DecodeText(tag.Part(93, 4)));
    add("comment", DecodeText(tag.Part(97, 30)));
    const auto genre = static_cast<std::size_t>(tag.Number(127, 1));
    const std::string known = GenreName(genre);
    add("genre", known.empty() && genre != kNoGenre ? fmt::format("({})", genre) : known);
    // A track number follows a comment of 28 bytes that ends with a 0.
    const std::uint64_t track = tag.Number(126, 1);
    if (tag.Number(125, 1) == 0 && track != 0) {
        add("track", std::to_string(track));
    }
}

std::string FormatID3(const std::vector<Tag>& tags) {
    std::string frames;
    std::vector<std::string> done;
    for (const Tag& tag : tags) {
        if (std::find(done.begin(), done.end(), tag.name) != done.end()) {
            continue;
        }
        done.push_back(tag.name);
        std::string texts;
        for (const Tag& other : tags) {
            if (other.name == tag.name) {
                texts += (texts.empty() ? "" : std::string(1, '\0')) + other.value;
            }
        }
        frames += FormatTexts(tag.name, texts);
    }
    const std::string version("\4\0\0", 3);
    return frames.empty() ? frames : "ID3" + version + EncodeSyncsafe(frames.size()) + frames;
}

} // namespace kel::host
