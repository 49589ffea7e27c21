// Copies the metadata of an arbitrary file into an output without samples, and from there into the
// next one. Verifies both outputs.

#include "Fuzz.h"
#include "HangingFiles.h"
#include "MemoryFile.h"

#include <TemporaryDirectory.h>
#include <audio/Formats.h>
#include <container/ChunkWriter.h>
#include <container/HeaderSizes.h>
#include <container/MetadataCopy.h>
#include <container/StoredBytes.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using namespace kel;
using host::StoredOrder;

std::string Chunk(const std::string& name, const std::string& content, StoredOrder order) {
    return name + host::NumberBytes(content.size(), 4, order) + content;
}

// A file without samples.
std::string EmptyFile(WrapperFormat format) {
    const std::string zeros(28, '\0');
    if (format == WrapperFormat::AIFF) {
        return Chunk("FORM",
                     "AIFC" + Chunk("COMM", zeros.substr(0, 24), StoredOrder::Big) +
                         Chunk("SSND", zeros.substr(0, 8), StoredOrder::Big),
                     StoredOrder::Big);
    }
    const std::string chunks = Chunk("fmt ", zeros.substr(0, 16), StoredOrder::Little) +
                               Chunk("data", "", StoredOrder::Little);
    return format == WrapperFormat::WAVE
               ? Chunk("RIFF", "WAVE" + chunks, StoredOrder::Little)
               : "RF64\xFF\xFF\xFF\xFFWAVE" + Chunk("ds64", zeros, StoredOrder::Little) + chunks;
}

// Copies the metadata; returns the output.
std::string CopyInto(const std::string& path, const host::Container& container,
                     const host::CopiedSamples& samples, host::MetadataReport& report) {
    const host::MetadataCopy copy(host::FileName(path), container);
    const std::string before = EmptyFile(container.format);
    const fuzz::MemoryFile output(before);
    const host::FileName file(output.Path());
    report = copy.Write(file, container, samples,
                        {[] {},
                         [] {
                         }});
    const std::string after = test::ReadFile(output.Path());
    KEL_FUZZ_REQUIRE(after.size() - before.size() <= copy.MaxBytes());
    KEL_FUZZ_REQUIRE(report.appended.has_value() == !report.kept.empty());
    if (report.appended.has_value()) {
        host::VerifyHeaderSizes(file, 0, 0);
        host::VerifyAppended(file, *report.appended);
    }
    return after;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::DiscardRecords();
    fuzz::Input input(data, size);
    const std::uint8_t choice = input.Byte();
    const host::Container& container = host::Containers().at(choice % 4U % 3U);
    host::CopiedSamples samples;
    samples.hasOtherChannels = (choice & 4U) != 0;
    samples.part.isWhole = (choice & 8U) == 0;
    if (!samples.part.isWhole) {
        samples.part.first = input.Byte();
        samples.part.frames = input.Byte();
    }
    const std::string content = input.Rest();
    if (fuzz::HangsLibsndfile(content)) {
        fuzz::CountHangingFile();
        return 0;
    }
    const fuzz::MemoryFile file(content);
    host::MetadataReport report;
    const std::string first = CopyInto(file.Path(), container, samples, report);
    // The coding history gets another line in the next copy.
    if (std::find(report.kept.begin(), report.kept.end(), "bext") == report.kept.end()) {
        const fuzz::MemoryFile again(first);
        KEL_FUZZ_REQUIRE(CopyInto(again.Path(), container, {}, report) == first);
        KEL_FUZZ_REQUIRE(report.notPreserved.empty() && report.warnings.empty());
    }
    return 0;
}
