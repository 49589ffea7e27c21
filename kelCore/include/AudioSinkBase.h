/// A base class for sinks of PCM frames, which implements all operations of IAudioSink.
/// One thread at a time, like any element. Header-only.
///
/// A derived class implements WriteFrames, and AdaptFormat, BeginInput and FinishInput as far as it
/// needs them. It may override any operation of IAudioSink and call the one of this class. The
/// class is compiled into the plug-in, which therefore works with every later kelCore of the same
/// major version.
/// @ingroup bases
#pragma once

#include "Checks.h"
#include "ContentType.h"
#include "ElementBase.h"
#include "IAudioInfo.h"
#include "IAudioSample.h"
#include "IAudioSink.h"
#include "IBuffer.h"
#include "IChannelInfo.h"
#include "ICheckInputReport.h"
#include "IInfoContainer.h"
#include "ISampleContainer.h"
#include "PCMFormat.h"
#include "PlatformString.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kel {

/// A sink with one input of interleaved PCM frames. Each refusal throws KELRuntimeError with the
/// name of the element.
class AudioSinkBase : public IAudioSink, protected ElementBase {
public:
    // IBasicControl

    /// Always refused: "NAME does not change its settings".
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {
        RefuseUpdate();
    }

    /// Returns the manifest that the constructor received.
    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override {
        return Manifest();
    }

    // ISinkControl

    /// Stores the path, which replaces that of the setting "FilePath" and stays for later inputs.
    /// @throws KELRuntimeError "NAME has an input already"
    void Open(const std::wstring& path) override {
        RequireNoInput();
        m_path = ConvertWideStringToPlatformString(path);
    }

    /// Always refused: "NAME takes no metadata".
    void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>& /*metadata*/) override {
        KEL_FAIL(Name() << " takes no metadata");
    }

    /// Calls FinishInput if an input is defined; another one can then be defined, also after a
    /// failure. The flag is ignored.
    void Close(bool /*flag*/) override {
        if (std::exchange(m_bytesPerFrame, 0U) != 0) {
            FinishInput();
        }
    }

    // IMediaSink

    /// Calls WriteFrames for each sample of the container, after it has checked all of them.
    /// @throws KELRuntimeError "NAME got no sample"; "NAME needs DefineInput first"; "NAME got a
    /// sample without a buffer"; "NAME got 7 bytes, not whole frames"
    void PushSample(std::shared_ptr<const ISampleContainer> container) override {
        KEL_CHECK_POINTER(container, Name() << " got no sample");
        KEL_CHECK(m_bytesPerFrame != 0, Name() << " needs DefineInput first");
        std::vector<std::shared_ptr<const IBuffer>> buffers;
        for (const auto& sample : container->GetAudioSamples(nullptr, nullptr)) {
            // Samples of kelCore have a buffer; those of other libraries may not.
            buffers.push_back(sample != nullptr ? sample->GetBuffer() : nullptr);
            KEL_CHECK_POINTER(buffers.back(), Name() << " got a sample without a buffer");
            KEL_CHECK(buffers.back()->GetSize() % m_bytesPerFrame == 0,
                      Name() << " got " << buffers.back()->GetSize() << " bytes, not whole frames");
        }
        for (const auto& buffer : buffers) {
            WriteFrames(buffer->GetData(),
                        static_cast<std::uint32_t>(buffer->GetSize() / m_bytesPerFrame));
        }
    }

    /// Calls BeginInput if CheckInputAndAdaptIfNecessary accepts the input.
    /// @throws KELRuntimeError "NAME has an input already"; "NAME accepts only ..." with the
    /// accepted format, or with "one track of PCM audio"
    void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) override {
        RequireNoInput();
        const auto report = CheckInputAndAdaptIfNecessary(input, std::move(name));
        const std::shared_ptr<const IAudioInfo> info = OnlyTrack(*input);
        KEL_CHECK(info != nullptr, Name() << " accepts only one track of PCM audio");
        const std::optional<PCMFormat> format = ReadFormat(*info);
        KEL_CHECK(report->GetErrorType() == static_cast<std::int32_t>(CheckInputErrorType::None) &&
                      format.has_value(),
                  Name() << " accepts only " << ToString(AcceptedFormat(*info)));
        BeginInput(*format);
        m_input = std::move(input);
        m_bytesPerFrame = BytesPerFrame(*format);
    }

    /// Returns the input that was defined last, also after Close.
    std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string /*name*/) const override {
        return m_input;
    }

    /// Always refused: "NAME is pushed to".
    void SetInputMediator(std::shared_ptr<IInputMediator> /*mediator*/, std::string /*input*/,
                          std::string /*name*/) override {
        KEL_FAIL(Name() << " is pushed to");
    }

    /// Does nothing: WriteFrames does not wait for another thread.
    void Interrupt() override {}

    /// Does nothing: no samples are kept.
    void ClearInternalBuffer() override {}

    /// Stores the settings. If the manifest declares the setting "FilePath", its value is the path.
    /// @throws KELRuntimeError "NAME got no settings"; "NAME has an input already"
    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) override {
        RequireNoInput();
        StoreSettings(std::move(config));
        if (WorksOnFile()) {
            Open(Settings().GetWideStringValue("FilePath"));
        }
    }

    /// Reports no error for one track of PCM audio that AdaptFormat returns unchanged. Otherwise it
    /// reports a track error, or an encoding error with the result of AdaptFormat.
    /// @throws KELRuntimeError "NAME got no input description"
    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string /*name*/) const override {
        KEL_CHECK_POINTER(input, Name() << " got no input description");
        const std::shared_ptr<const IAudioInfo> info = OnlyTrack(*input);
        if (info == nullptr) {
            return CreateCheckInputReportTrackError({ContentType::Audio});
        }
        const PCMFormat accepted = AcceptedFormat(*info);
        if (ReadFormat(*info) == accepted) {
            return CreateCheckInputReportNoError();
        }
        return CreateCheckInputReportEncodingError(
            {{info->GetId(), {CreateAudioParameters(accepted)}}});
    }

    /// The same as Close.
    void Release() override { Close(false); }

protected:
    /// @param name the name of the element in its messages
    /// @param manifest the registry entry, shared
    AudioSinkBase(std::string name, std::shared_ptr<const IParametersCollectionInstance> manifest)
        : ElementBase(std::move(name), std::move(manifest)) {}

    /// Returns the path of the file to write, for the file functions of the platform; empty without
    /// one.
    const std::string& Path() const { return m_path; }

    /// Returns the accepted format that is nearest to an offered one: the offered one itself if it
    /// is accepted, as in this class. Changes nothing. An input that is not PCM is offered as
    /// 32-bit float, little-endian, at 0 Hz.
    /// [any, one thread, does not throw]
    virtual PCMFormat AdaptFormat(const PCMFormat& offered) const { return offered; }

    /// Starts an input that AdaptFormat accepts, for instance by creating the file. The argument is
    /// the format of the frames that WriteFrames receives. Does nothing in this class.
    /// [closed, one thread]
    /// @throws KELRuntimeError when it cannot start; the sink then has no input
    virtual void BeginInput(const PCMFormat& /*format*/) {}

    /// Accepts frames. Called only between BeginInput and FinishInput.
    /// [open, one thread]
    /// @param data the first byte, perhaps not aligned for a value; may be null without frames
    /// @param frames the number of whole frames; may be 0
    /// @throws KELRuntimeError when they cannot be written
    virtual void WriteFrames(const std::uint8_t* data, std::uint32_t frames) = 0;

    /// Finishes the input, for instance by closing the file. Does nothing in this class. It is not
    /// called when a sink is destroyed without Close or Release.
    /// [open, one thread]
    /// @throws KELRuntimeError when the output is not complete
    virtual void FinishInput() {}

private:
    void RequireNoInput() const {
        KEL_CHECK(m_bytesPerFrame == 0, Name() << " has an input already");
    }

    // Returns the only track if it is audio with channels; otherwise empty.
    static std::shared_ptr<const IAudioInfo> OnlyTrack(const IInfoContainer& input) {
        const auto infos = input.GetAudioInfos();
        if (infos.empty() || input.GetInfos().size() != 1) {
            return nullptr;
        }
        const auto channels = infos.front()->GetChannelInfo();
        return channels != nullptr && channels->GetNumberOfChannels() != 0 ? infos.front()
                                                                           : nullptr;
    }

    PCMFormat AcceptedFormat(const IAudioInfo& info) const {
        const PCMFormat other{0, info.GetChannelInfo()->GetNumberOfChannels()};
        return AdaptFormat(ReadFormat(info).value_or(other));
    }

    std::string m_path;
    std::shared_ptr<const IInfoContainer> m_input;
    std::uint64_t m_bytesPerFrame = 0; // 0 while no input is defined
};

} // namespace kel
