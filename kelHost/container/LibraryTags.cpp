#include "container/LibraryTags.h"

#include "container/SndfileLibrary.h"
#include "container/StoredText.h"

#include <memory>
#include <sndfile.h>
#include <string>
#include <utility>

namespace kel::host {

void AddLibraryTags(const FileName& file, MetadataBuilder& builder) {
    constexpr std::pair<int, const char*> kStrings[] = {
        {SF_STR_TITLE, "title"},         {SF_STR_ARTIST, "artist"},
        {SF_STR_ALBUM, "album"},         {SF_STR_DATE, "date"},
        {SF_STR_GENRE, "genre"},         {SF_STR_TRACKNUMBER, "track"},
        {SF_STR_COPYRIGHT, "copyright"}, {SF_STR_SOFTWARE, "software"},
        {SF_STR_COMMENT, "comment"},     {SF_STR_LICENSE, "license"}};
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, decltype(&sf_close)> opened(
        Sndfile().sf_open(file.path.c_str(), SFM_READ, &info), Sndfile().sf_close);
    if (opened == nullptr) {
        return;
    }
    for (const auto& [number, name] : kStrings) {
        const char* text = Sndfile().sf_get_string(opened.get(), number);
        if (text != nullptr) {
            builder.AddTag(name, DecodeText(text));
        }
    }
}

} // namespace kel::host
