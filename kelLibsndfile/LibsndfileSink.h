/// Writes PCM audio files through libsndfile.
#pragma once

#include <IAudioSink.h>

#include <memory>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel {

/// The writer element. Accepts one PCM audio input, creates an extensible WAVE, RF64 or AIFF file
/// for it and writes the bytes of each pushed sample unchanged.
///
/// Only Close and Release finish the file. One thread at a time; no locks, no threads of its own.
/// The interfaces document the operations; the comments here describe only the behaviour that is
/// specific to this element.
class LibsndfileSink : public IAudioSink {
public:
    /// @param manifest the manifest, shared; "type" is read from it when the input is checked
    explicit LibsndfileSink(std::shared_ptr<const IParametersCollectionInstance> manifest);

    /// Does not finish the file: without Close or Release it stays as it is, with its handle open.
    ~LibsndfileSink() override;

    LibsndfileSink(const LibsndfileSink&) = delete;
    LibsndfileSink& operator=(const LibsndfileSink&) = delete;

    // IBasicControl

    /// Always refused.
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> newConfig) override;
    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override;

    // ISinkControl

    /// Keeps the path; DefineInput creates the file.
    void Open(const std::wstring& path) override;
    /// Always refused.
    void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>& metadata) override;
    /// Finishes the file. The flag has no effect, and a failure is not reported.
    void Close(bool flag) override;

    // IMediaSink

    /// Writes the bytes of the one audio sample of the container. A short write is logged at level
    /// Error and does not throw; so is a push without a file.
    void PushSample(std::shared_ptr<const ISampleContainer> container) override;
    /// Creates the file. The container format comes from the manifest's "type", or else from the
    /// extension of the path. A file is created only if "type" is AIFF, WAVE or BWAVE. A second
    /// call creates a second file and does not finish the first one.
    void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) override;
    std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string name) const override;
    /// Always refused.
    void SetInputMediator(std::shared_ptr<IInputMediator> mediator, std::string input,
                          std::string name) override;
    /// Does nothing.
    void Interrupt() override;
    /// Does nothing: the sink keeps no buffer.
    void ClearInternalBuffer() override;
    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> newConfig) override;
    /// Checks the input for the manifest's "type". The path has no effect.
    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string name) const override;
    /// The same as Close.
    void Release() override;

private:
    std::shared_ptr<const IInfoContainer> definedInput;
    std::shared_ptr<const IParametersCollectionInstance> initConfig;
    std::shared_ptr<const IParametersCollectionInstance> config; // the manifest
    SNDFILE* sndFile = nullptr;                                  // null while no file is open
    std::wstring openedFilePath; // the path from Open; empty again when the file is finished
};

} // namespace kel
