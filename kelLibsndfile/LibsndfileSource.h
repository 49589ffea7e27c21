/// Reads PCM audio files through libsndfile.
#pragma once

#include <IAudioParameters_PCM.h>
#include <IAudioSource.h>

#include <cstdint>
#include <memory>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel {

class IAudioInfo;
class IMemoryBlockAllocator;
class ITrack;

/// The reader element. Whatever the file's container and encoding, it describes the file as one
/// output of 32-bit float, little-endian, interleaved frames with all of the file's channels, and
/// delivers at most "MaxSamplesPerBuffer" frames a sample. Media time is counted in frames.
///
/// One thread at a time; no locks, no threads of its own. The operations are documented with their
/// interfaces; said here is what is particular to this element.
class LibsndfileSource : public IAudioSource {
public:
    /// @param config the manifest, shared; nothing is read from it
    explicit LibsndfileSource(std::shared_ptr<const IParametersCollectionInstance> config);

    /// Closes the file.
    ~LibsndfileSource() override;

    LibsndfileSource(const LibsndfileSource&) = delete;
    LibsndfileSource& operator=(const LibsndfileSource&) = delete;

    // IBasicControl

    /// Always refused.
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> config) override;
    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override;

    // ISourceControl

    /// Needs SetInitConfig before. A failure after libsndfile has opened the file, one of the
    /// allocator for instance, leaves the source open. libsndfile is handed the description of the
    /// file before: after one that it took for headerless, by its extension, it reads the next file
    /// as headerless, too. A new source starts from nothing.
    void Open(const std::wstring& path) override;
    /// Always refused.
    void SetDirection(MediaSourceDirection direction) override;
    /// Always MediaSourceDirection::Forward.
    MediaSourceDirection GetDirection() const override;
    /// Moves the read position by frames. The stamps of the samples go on from where they were: a
    /// seek does not change them.
    MediaTime GotoTimeOffset(const MediaTime& time, std::string track) override;
    bool IsMediaOpen() const override;
    /// From 0, as many frames as libsndfile found in the file.
    TimeLimits GetTimeLimits(std::string track) override;
    /// Always empty.
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override;
    /// Always false.
    bool IsGrowing() const override;
    std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const override;
    /// Any list that is not empty activates the one output; what is in it does not matter.
    void ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) override;
    std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const override;

    // IMediaSource

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string name) const override;
    /// The next frames, at most "MaxSamplesPerBuffer" of them; empty at the end of the file,
    /// without a file, and while the output is not active.
    std::shared_ptr<const ISampleContainer> GetSample() override;
    /// Does nothing.
    void Interrupt() override;
    /// Opens the file that "FilePath" names, if it names one.
    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) override;
    /// Does nothing: samples are pulled.
    void SetOutputMediator(std::shared_ptr<IOutputMediator> mediator, std::string output,
                           std::string name) override;
    /// Does nothing: the source does not read ahead.
    void ClearInternalBuffer() override;
    /// Closes the file and keeps everything else, the stamp of the next sample included.
    void Release() override;

private:
    std::shared_ptr<const IParametersCollectionInstance> manifest;
    std::shared_ptr<const IParametersCollectionInstance> initConfig;
    SNDFILE* sndFile = nullptr; // not null exactly while a file is open
    std::int64_t position = 0;  // in frames, the stamp of the next sample
    std::shared_ptr<IAudioParameters_PCM> audioParameters;
    std::shared_ptr<const IAudioInfo> audioInfo;
    std::shared_ptr<IMemoryBlockAllocator> allocator;
    SF_INFO sfInfo{};
    std::shared_ptr<const ITrack> track;
    bool outputsActivated = true;
};

} // namespace kel
