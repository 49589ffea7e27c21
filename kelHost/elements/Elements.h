/// Elements as the host uses them: made by name through the registry, and ended whatever happens.
#pragma once

#include "audio/Formats.h"

#include <ElementFactoryType.h>
#include <IAudioInfo.h>
#include <IAudioSink.h>
#include <IAudioSource.h>
#include <IInfoContainer.h>
#include <ParametersCollection.h>
#include <TimeLimits.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace kel::host {

/// Where a file lies, and what the user knows it as: an output has a name of its own until it is
/// whole.
struct FileName {
    FileName(std::string name) : path(name), shown(std::move(name)) {} // NOLINT: a name is both
    FileName(std::string where, std::string name)
        : path(std::move(where)), shown(std::move(name)) {}

    std::string path;  ///< any bytes that Linux allows
    std::string shown; ///< as the user gave it
};

/// Makes sure that there is something to read under a name.
/// @throws JobError when the file is missing, is no file, or has too long a path
void RequireReadable(const FileName& file);

/// The label of the format that a source is chosen by which is to read a file: what the extension
/// means, else WAVE, as sources look into the file themselves.
std::string TypeForReading(const std::string& path);

/// The setting of elements that work on a file: its path.
constexpr const char* kFilePath = "FilePath";

/// Tells an element which file it is to work on.
void SetFilePath(IParametersCollectionInstance& settings, const std::string& path);

/// An element that is to be made, as it is registered, with its settings.
struct ElementRecipe {
    std::string implementation;
    std::string type; ///< label of the format
    std::shared_ptr<IParametersCollectionInstance> settings;
};

/// A source that is open. Releases it at the end, if Release was not called. One thread at a time.
class SourceReader {
public:
    /// Makes a source for the format that the path's extension means, the first registered one, and
    /// opens the file.
    /// @param file the file to read
    /// @param blockFrames most frames in a sample
    /// @throws JobError when the file is missing, is no file, or cannot be opened
    SourceReader(const FileName& file, std::uint32_t blockFrames);

    /// Makes a source and opens it.
    /// @param shownName the file that it reads, or the source itself, as the user knows it
    /// @throws JobError when it cannot be opened
    SourceReader(std::string shownName, const ElementRecipe& recipe);

    ~SourceReader();
    SourceReader(const SourceReader&) = delete;
    SourceReader& operator=(const SourceReader&) = delete;

    IAudioSource& Element() const { return *m_element; }

    /// The file or the source, as the user knows it.
    const std::string& ShownName() const { return m_shownName; }

    /// Closes the file, where a failure of that is to be known.
    void Release();

    /// The description of its output.
    const std::shared_ptr<const IInfoContainer>& Description() const { return m_description; }

    /// The audio info in the description.
    const std::shared_ptr<const IAudioInfo>& Info() const { return m_info; }

    /// Number of channels.
    std::uint32_t Channels() const;

    /// Frames per second.
    std::uint32_t Rate() const;

    /// What the source promises.
    const TimeLimits& Limits() const { return m_limits; }

    /// Number of frames that the source promises.
    std::int64_t Frames() const;

private:
    void Open(const ElementRecipe& recipe);

    std::string m_shownName;
    std::shared_ptr<IAudioSource> m_element;
    std::shared_ptr<const IInfoContainer> m_description;
    std::shared_ptr<const IAudioInfo> m_info;
    TimeLimits m_limits;
};

/// A sink with its input defined. Closes it at the end, if Close was not called. One thread at a
/// time.
class SinkWriter {
public:
    /// Makes a sink for a container, the first registered one, asks it whether it takes the input,
    /// and has it create the file.
    /// @param file the file to write
    /// @throws JobError when no sink is registered, the input is refused or the file cannot be
    /// created
    SinkWriter(const Container& container, const FileName& file,
               const std::shared_ptr<const IInfoContainer>& input);

    /// Makes a sink, asks it whether it takes the input, and defines that.
    /// @param shownName the file that it writes, or the sink itself, as the user knows it
    /// @param refusal what to say when it does not take the input
    /// @throws JobError when it does not, or fails
    SinkWriter(const std::string& shownName, const ElementRecipe& recipe,
               const std::shared_ptr<const IInfoContainer>& input, const std::string& refusal);

    ~SinkWriter();
    SinkWriter(const SinkWriter&) = delete;
    SinkWriter& operator=(const SinkWriter&) = delete;

    IAudioSink& Element() const { return *m_element; }

    /// Finishes the file.
    void Close();

private:
    void Define(const std::string& shownName, const ElementRecipe& recipe,
                const std::shared_ptr<const IInfoContainer>& input, const std::string& refusal);

    std::shared_ptr<IAudioSink> m_element;
};

/// What a source says that it delivers: "32-bit float little-endian".
std::string DescribeDelivery(const IAudioInfo& info);

/// Makes sure that a file opens again with these frames, channels and rate.
/// @throws JobError when it does not
void VerifyReopens(const FileName& file, std::int64_t frames, std::uint32_t channels,
                   std::uint32_t rate);

/// Asks a sink for a container whether it would take an input. No file is created.
/// @throws JobError when no sink is registered, KELRuntimeError when the sink cannot judge it
bool SinkAccepts(const Container& container, const std::shared_ptr<const IInfoContainer>& input);

/// The name of the first registered element of a kind for a format.
/// @param type label of the format
/// @throws JobError when there is none
std::string FindImplementation(ElementFactoryType kind, const std::string& type);

} // namespace kel::host
