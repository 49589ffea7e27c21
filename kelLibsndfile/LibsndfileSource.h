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

/// The reader element. For each container and encoding, it describes the file as one output of
/// 32-bit float, little-endian, interleaved frames with all of the file's channels. A sample has at
/// most "MaxSamplesPerBuffer" frames. Media time is counted in frames.
///
/// One thread at a time; no locks, no threads of its own. The interfaces document the operations;
/// the comments here describe only the behaviour that is specific to this element.
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

    /// Requires SetInitConfig. A failure after libsndfile has opened the file, for instance that of
    /// an unknown allocator, leaves the source open. libsndfile gets the description of the
    /// previous file: after a file that it considers headerless because of its extension, it reads
    /// the next file as headerless, too. A new source has an empty description.
    void Open(const std::wstring& path) override;
    /// Always refused.
    void SetDirection(MediaSourceDirection direction) override;
    /// Always MediaSourceDirection::Forward.
    MediaSourceDirection GetDirection() const override;
    /// Moves the read position to a frame. The stamps of the samples continue without a change.
    MediaTime GotoTimeOffset(const MediaTime& time, std::string track) override;
    bool IsMediaOpen() const override;
    /// From 0, with the number of frames that libsndfile reports.
    TimeLimits GetTimeLimits(std::string track) override;
    /// Always empty.
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override;
    /// Always false.
    bool IsGrowing() const override;
    std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const override;
    /// Any list that is not empty activates the one output, whatever its elements.
    void ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) override;
    std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const override;

    // IMediaSource

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string name) const override;
    /// The next frames, at most "MaxSamplesPerBuffer" of them; empty at the end of the file,
    /// without a file, and while the output is not active.
    std::shared_ptr<const ISampleContainer> GetSample() override;
    /// Does nothing.
    void Interrupt() override;
    /// Opens the file that "FilePath" names, unless it is empty.
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
