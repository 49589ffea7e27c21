// Reads the chunks and the metadata of an arbitrary file, makes chunks from the metadata, and reads
// these. Or makes chunks from arbitrary metadata that every container can hold.

#include "Fuzz.h"
#include "HangingFiles.h"
#include "MemoryFile.h"
#include "MetadataText.h"

#include <base/Errors.h>
#include <container/ChunkList.h>
#include <container/CutPositions.h>
#include <container/HeaderReader.h>
#include <container/Metadata.h>
#include <container/MetadataBuilder.h>
#include <container/MetadataChunks.h>
#include <container/StoredText.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <utility>

namespace {

using namespace kel;
using fuzz::Input;
using host::ChunkForm;
using host::Metadata;

constexpr ChunkForm kForms[] = {ChunkForm::RIFF, ChunkForm::RIFX, ChunkForm::AIFF};

// Returns false for files without chunks.
bool CheckChunks(const std::string& path) {
    auto input = host::OpenRegularFile(path);
    KEL_FUZZ_REQUIRE(input.has_value());
    const host::FileName file(path);
    host::HeaderReader header(file, std::move(input->descriptor), "");
    const auto list = host::ReadChunkList(header, input->bytes);
    if (!list.has_value()) {
        return false;
    }
    std::uint64_t last = 0;
    for (const host::Chunk& chunk : list->chunks) {
        KEL_FUZZ_REQUIRE(chunk.name.size() == 4);
        KEL_FUZZ_REQUIRE(chunk.offset > last && chunk.offset <= input->bytes);
        KEL_FUZZ_REQUIRE(list->Present(chunk) <= std::min(chunk.bytes, input->bytes));
        last = chunk.offset;
    }
    KEL_FUZZ_REQUIRE(list->end >= last);
    return true;
}

void RequireText(const std::string& text) {
    KEL_FUZZ_REQUIRE(host::DecodeText(text) == text);
}

void CheckLimits(const Metadata& metadata) {
    KEL_FUZZ_REQUIRE(metadata.tags.size() <= host::kMaxTags);
    KEL_FUZZ_REQUIRE(metadata.others.size() <= host::kMaxOthers);
    KEL_FUZZ_REQUIRE(metadata.problems.size() <= host::kMaxProblems);
    for (const host::Tag& tag : metadata.tags) {
        RequireText(tag.name);
        RequireText(tag.value);
    }
    for (const host::CuePoint& point : metadata.cuePoints) {
        RequireText(point.label);
        RequireText(point.note);
    }
    for (const host::OtherPart& other : metadata.others) {
        RequireText(other.name);
    }
}

Metadata RoundTrip(const Metadata& metadata, ChunkForm form) {
    const fuzz::MemoryFile file(test::FileOf(host::MakeChunks(metadata, form), form));
    return host::ReadMetadata(file.Path());
}

// Metadata that is read from made chunks is whole, and survives the next time.
void CheckRoundTrip(const Metadata& metadata, ChunkForm form) {
    const Metadata made = RoundTrip(metadata, form);
    KEL_FUZZ_REQUIRE(made.problems.empty() && made.others.empty());
    KEL_FUZZ_REQUIRE(host::NotExpressible(made, form).empty());
    KEL_FUZZ_REQUIRE(test::Describe(RoundTrip(made, form)) == test::Describe(made));
}

void CheckCut(const Metadata& metadata, Input& input) {
    const std::uint64_t first = input.Word();
    const std::uint64_t frames = input.Word();
    const auto cut = host::CutPositions(metadata, first, frames);
    KEL_FUZZ_REQUIRE(cut.metadata.cuePoints.size() + cut.droppedPoints ==
                     metadata.cuePoints.size());
    for (const host::CuePoint& point : cut.metadata.cuePoints) {
        KEL_FUZZ_REQUIRE(point.frame <= frames && point.length <= frames - point.frame);
    }
}

std::string Text(Input& input) {
    return host::DecodeText(input.Text(input.Byte() % 64));
}

// Metadata that all forms hold, but for the regions that AIFF lacks.
Metadata ArbitraryMetadata(Input& input, bool isAIFF) {
    constexpr const char* kSharedNames[] = {"title", "artist",   "copyright", "comment", "album",
                                            "date",  "software", "genre",     "track",   "ieng"};
    Metadata metadata;
    for (const char* name : kSharedNames) {
        const std::string value = Text(input);
        if (!value.empty()) {
            metadata.tags.push_back({name, value});
        }
    }
    const std::size_t count = input.Byte() % 8;
    std::set<std::uint32_t> ids;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t id = input.Word() % 0x7FFF + 1;
        if (ids.insert(id).second) {
            const std::uint64_t length = isAIFF ? 0 : input.Word();
            metadata.cuePoints.push_back({id, input.Word(), length, Text(input), Text(input)});
        }
    }
    if (input.Byte() % 2 == 1) {
        host::Broadcast& broadcast = metadata.broadcast.emplace();
        broadcast.description = Text(input);
        broadcast.codingHistory = Text(input);
        broadcast.timeReference = std::uint64_t{input.Word()} << 32U | input.Word();
        broadcast.version = input.Byte() % 4;
        if (broadcast.version >= 2) {
            broadcast.loudness.emplace().range = static_cast<std::int16_t>(input.Byte());
        }
    }
    return metadata;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::DiscardRecords();
    Input input(data, size);
    if (input.Byte() % 2 == 1) {
        for (const ChunkForm form : kForms) {
            Input same = input;
            const Metadata metadata = ArbitraryMetadata(same, host::IsAIFF(form));
            KEL_FUZZ_REQUIRE(test::Describe(RoundTrip(metadata, form)) == test::Describe(metadata));
            KEL_FUZZ_REQUIRE(host::NotExpressible(metadata, form).empty());
            CheckCut(metadata, same);
        }
        return 0;
    }
    const std::string content = input.Rest();
    const fuzz::MemoryFile file(content);
    if (!CheckChunks(file.Path()) && fuzz::HangsLibsndfile(content)) {
        fuzz::CountHangingFile();
        return 0;
    }
    const Metadata metadata = host::ReadMetadata(file.Path());
    CheckLimits(metadata);
    for (const ChunkForm form : kForms) {
        CheckRoundTrip(metadata, form);
    }
    return 0;
}
