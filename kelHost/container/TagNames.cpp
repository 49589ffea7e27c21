#include "container/TagNames.h"

#include "container/StoredText.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

namespace {

// Names of a tag; null where a container has none. The first row of a tag is the one to write.
struct TagNameRow {
    const char* name;
    const char* info;
    const char* frame;
    const char* comment;
};

constexpr TagNameRow kTagNames[] = {
    {"title", "INAM", "TIT2", "title"},
    {"artist", "IART", "TPE1", "artist"},
    {"album", "IPRD", "TALB", "album"},
    {"date", "ICRD", "TDRC", "date"},
    {"genre", "IGNR", "TCON", "genre"},
    {"track", "ITRK", "TRCK", "tracknumber"},
    {"copyright", "ICOP", "TCOP", "copyright"},
    {"software", "ISFT", "TSSE", "encoder"},
    {"comment", "ICMT", nullptr, "comment"},
    {"license", nullptr, nullptr, "license"},
    // Other ids of the same.
    {"track", "IPRT", "TRK", nullptr},
    {"title", nullptr, "TT2", nullptr},
    {"artist", nullptr, "TP1", nullptr},
    {"album", nullptr, "TAL", nullptr},
    {"date", nullptr, "TYER", nullptr},
    {"date", nullptr, "TYE", nullptr},
    {"genre", nullptr, "TCO", nullptr},
    {"copyright", nullptr, "TCR", nullptr},
    {"software", nullptr, "TSS", nullptr},
};

// Tags that have the name of their container, and that LIST INFO or ID3v2 has under another.
constexpr TagNameRow kEquivalents[] = {
    {"composer", "IMUS", "TCOM", nullptr},  {"tcom", "IMUS", "TCOM", nullptr},
    {"imus", "IMUS", "TCOM", nullptr},      {"engineer", "IENG", nullptr, nullptr},
    {"isrc", "ISRC", "TSRC", nullptr},      {"tsrc", "ISRC", "TSRC", nullptr},
    {"language", "ILNG", "TLAN", nullptr},  {"tlan", "ILNG", "TLAN", nullptr},
    {"encodedby", "ITCH", "TENC", nullptr}, {"encoded-by", "ITCH", "TENC", nullptr},
    {"tenc", "ITCH", "TENC", nullptr},      {"description", "ICMT", nullptr, nullptr},
    {"publisher", nullptr, "TPUB", nullptr}};

// Tags of AIFF and their chunks.
constexpr std::pair<const char*, const char*> kTextChunks[] = {{"title", "NAME"},
                                                               {"artist", "AUTH"},
                                                               {"copyright", "(c) "},
                                                               {"comment", "ANNO"},
                                                               {"description", "ANNO"}};

constexpr std::size_t kIdLength = 4;

// The name in the first row that has a text in a column.
template <typename Column>
std::string FindName(std::string_view stored, Column column) {
    const auto* row =
        std::find_if(std::begin(kTagNames), std::end(kTagNames), [&](const TagNameRow& names) {
            return names.*column != nullptr && stored == names.*column;
        });
    return row != std::end(kTagNames) ? row->name : LowerCase(stored);
}

// The text of a column in the first row that has a name; empty without.
template <typename Column, typename Rows>
std::string FindStored(const std::string& name, const Rows& rows, Column column) {
    const auto* row = std::find_if(std::begin(rows), std::end(rows), [&](const TagNameRow& names) {
        return name == names.name && names.*column != nullptr;
    });
    return row != std::end(rows) ? row->*column : "";
}

template <typename Column>
std::string FindStored(const std::string& name, Column column) {
    const std::string stored = FindStored(name, kTagNames, column);
    return !stored.empty() ? stored : FindStored(name, kEquivalents, column);
}

// True for a name that an id of four capital letters and digits has in Metadata.
bool IsLowerCaseId(const std::string& name, char first) {
    return name.size() == kIdLength && name.front() == first &&
           std::all_of(name.begin(), name.end(), [](unsigned char character) {
               return std::islower(character) != 0 || std::isdigit(character) != 0;
           });
}

} // namespace

std::string NameOfInfo(std::string_view id) {
    return FindName(id, &TagNameRow::info);
}

std::string NameOfFrame(std::string_view id) {
    return FindName(id, &TagNameRow::frame);
}

std::string NameOfComment(std::string_view key) {
    return FindName(LowerCase(key), &TagNameRow::comment);
}

std::string NameOfTextChunk(std::string_view chunk) {
    const auto* entry = std::find_if(std::begin(kTextChunks), std::end(kTextChunks),
                                     [&](const auto& names) { return chunk == names.second; });
    return entry != std::end(kTextChunks) ? entry->first : "";
}

std::string TextChunk(const std::string& name) {
    const auto* entry = std::find_if(std::begin(kTextChunks), std::end(kTextChunks),
                                     [&](const auto& names) { return name == names.first; });
    return entry != std::end(kTextChunks) ? entry->second : "";
}

std::string InfoId(const std::string& name) {
    const std::string id = FindStored(name, &TagNameRow::info);
    const bool isOwnName = IsLowerCaseId(name, 'i') && NameOfInfo(UpperCase(name)) == name;
    return id.empty() && isOwnName ? UpperCase(name) : id;
}

std::string FrameId(const std::string& name) {
    const std::string id = FindStored(name, &TagNameRow::frame);
    const bool isOwnName = IsLowerCaseId(name, 't') && NameOfFrame(UpperCase(name)) == name;
    return id.empty() && isOwnName && name != "txxx" ? UpperCase(name) : id;
}

} // namespace kel::host
