/// Metadata as text, and bytes with metadata.
#pragma once

#include "DamagedFiles.h"
#include "container/ChunkList.h"
#include "container/Metadata.h"
#include "container/NewChunk.h"

#include <TemporaryDirectory.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace kel::test {

/// A chunk of an AIFF file whose size is right.
inline std::string BigChunk(const std::string& name, const std::string& content) {
    return name + BigEndian(content.size(), 4) + content + (content.size() % 2 != 0 ? "\1" : "");
}

/// The bytes of a WAVE, RIFX or AIFF file that consists of these chunks.
inline std::string FileOf(const std::vector<host::NewChunk>& chunks, host::ChunkForm form) {
    const bool isLittle = form == host::ChunkForm::RIFF;
    std::string content = isLittle || form == host::ChunkForm::RIFX ? "WAVE" : "AIFF";
    for (const host::NewChunk& chunk : chunks) {
        content += isLittle ? Chunk(chunk.name, chunk.content) +
                                  std::string(chunk.content.size() % 2, '\0')
                            : BigChunk(chunk.name, chunk.content);
    }
    return isLittle ? Chunk("RIFF", content)
                    : BigChunk(form == host::ChunkForm::RIFX ? "RIFX" : "FORM", content);
}

/// A text that fills a field.
inline std::string Field(std::string text, std::size_t bytes) {
    text.resize(bytes, '\0');
    return text;
}

/// All of it, one line for each item, in the order of its members.
inline std::string Describe(const host::Metadata& metadata) {
    std::ostringstream text;
    if (metadata.broadcast.has_value()) {
        const host::Broadcast& broadcast = *metadata.broadcast;
        text << "bext " << broadcast.version << ": " << broadcast.description << "|"
             << broadcast.originator << "|" << broadcast.originatorReference << "|"
             << broadcast.date << "|" << broadcast.time << "|" << broadcast.timeReference << "|"
             << broadcast.umid << "|";
        if (broadcast.loudness.has_value()) {
            const host::BroadcastLoudness& loudness = *broadcast.loudness;
            text << loudness.integrated << " " << loudness.range << " " << loudness.truePeak << " "
                 << loudness.momentary << " " << loudness.shortTerm;
        }
        text << "|" << broadcast.codingHistory << "\n";
    }
    for (const host::Tag& tag : metadata.tags) {
        text << tag.name << "=" << tag.value << "\n";
    }
    for (const host::CuePoint& point : metadata.cuePoints) {
        text << "cue " << point.id << " at " << point.frame << "+" << point.length << ": "
             << point.label << "|" << point.note << "\n";
    }
    for (const host::OtherPart& other : metadata.others) {
        text << other.name << " of " << other.bytes << "\n";
    }
    for (const std::string& omission : metadata.omissions) {
        text << "omission: " << omission << "\n";
    }
    for (const std::string& problem : metadata.problems) {
        text << "problem: " << problem << "\n";
    }
    return text.str();
}

/// Describes the metadata of a file with these bytes.
inline std::string DescribeFile(const std::string& bytes) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take", bytes);
    return Describe(host::ReadMetadata(directory / "take"));
}

} // namespace kel::test
