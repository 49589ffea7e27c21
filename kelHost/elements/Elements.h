/// Elements by name: finding them in the registry, and their settings. Any thread.
#pragma once

#include "audio/Formats.h"
#include "base/FileName.h"

#include <ElementFactoryType.h>
#include <ParametersCollection.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// The setting with the path of the file that an element works on.
constexpr const char* kFilePath = "FilePath";

/// An element to create, as it is registered, with its settings.
struct ElementRecipe {
    std::string implementation;
    std::string type; ///< label of the format
    std::shared_ptr<IParametersCollectionInstance> settings;
};

/// Sets the file that an element works on.
void SetFilePath(IParametersCollectionInstance& settings, const std::string& path);

/// Sets the maximum number of frames in a sample of a source. Sources read this setting for each
/// sample.
void SetBlockFrames(IParametersCollectionInstance& settings, std::uint32_t frames);

/// Returns the maximum number of frames in a sample of a source; none when it has no such setting.
std::optional<std::uint32_t> BlockFramesIn(const ElementRecipe& recipe);

/// Returns true when a source is to read a file: it has a setting "FilePath" that is not empty.
bool ReadsFile(const ElementRecipe& recipe);

/// Returns the label of the format whose source reads a file: by the extension, else WAVE, because
/// sources recognise the content themselves.
std::string TypeForReading(const std::string& path);

/// Returns the recipe of the first registered source for a file.
/// @param blockFrames maximum number of frames in a sample
/// @throws JobError when no source is registered for the type of the file
ElementRecipe FileSource(const FileName& file, std::uint32_t blockFrames);

/// Returns the recipe of the first registered sink for a container.
/// @throws JobError when no sink is registered for it
ElementRecipe FileSink(const Container& container, const std::string& path);

/// Returns the name of the first registered element of a kind for a format.
/// @param type label of the format
/// @throws JobError when there is none
std::string FindImplementation(ElementFactoryType kind, const std::string& type);

/// Describes the elements that two plug-ins register, of which the first is used: "b.so: its
/// AudioSource NAME for WAVE, AIFF is not used, because a.so registers it, too".
std::vector<std::string> DescribeDuplicates();

} // namespace kel::host
