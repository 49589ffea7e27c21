/// A base class for sources of PCM frames, which implements all operations of IAudioSource.
/// One thread at a time, like any element. Header-only.
///
/// A derived class implements OpenMedium and ReadFrames, and CloseMedium if its members do not
/// close the medium. It may override any operation of IAudioSource and call the one of this class.
/// The class is compiled into the plug-in, which therefore works with every later kelCore of the
/// same major version.
/// @ingroup bases
#pragma once

#include "Checks.h"
#include "EditRate.h"
#include "ElementBase.h"
#include "ElementFactoryType.h"
#include "IAudioInfo.h"
#include "IAudioSample.h"
#include "IAudioSource.h"
#include "IBuffer.h"
#include "IChannelInfo.h"
#include "IInfoContainer.h"
#include "IMemoryBlockAllocator.h"
#include "ISampleContainer.h"
#include "MediaSourceDirection.h"
#include "MediaTime.h"
#include "PCMFormat.h"
#include "PlatformString.h"
#include "TimeLimits.h"
#include "WorkflowStepImplementation.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel {

/// A source with one output of PCM frames, whose number is known when the medium is open. One edit
/// unit is one frame. Each refusal throws KELRuntimeError with the name of the element.
class AudioSourceBase : public IAudioSource, protected ElementBase {
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

    // ISourceControl

    /// Calls OpenMedium. Reading starts at the first frame; the choice of outputs stays. A failure
    /// leaves the source closed.
    /// @throws KELRuntimeError "NAME is open"; "NAME needs SetInitConfig first"; "NAME opened a
    /// medium without frames: ..." for a null rate, frames without bytes or a negative length
    void Open(const std::wstring& path) override {
        KEL_CHECK(!IsMediaOpen(), Name() << " is open");
        static_cast<void>(Settings());
        m_medium = OpenMedium(ConvertWideStringToPlatformString(path));
        try {
            Describe(path);
        } catch (...) {
            CloseMedium();
            throw;
        }
    }

    /// Refuses all directions except Forward: "NAME goes forward only".
    void SetDirection(MediaSourceDirection direction) override {
        KEL_CHECK(direction == MediaSourceDirection::Forward, Name() << " goes forward only");
    }

    /// Returns MediaSourceDirection::Forward.
    MediaSourceDirection GetDirection() const override { return MediaSourceDirection::Forward; }

    /// Sets the frame that is read next, from 0 to the length of the medium. Returns @p time.
    /// @throws KELRuntimeError "NAME is closed"; "NAME counts time in frames" for another rate than
    /// that of the limits; "NAME has no frame 11, only 10"
    MediaTime GotoTimeOffset(const MediaTime& time, std::string /*track*/) override {
        RequireOpen();
        KEL_CHECK(time.GetEditRate() == FrameRate(), Name() << " counts time in frames");
        const std::int64_t frame = time.GetTimeNumber();
        KEL_CHECK(frame >= 0 && frame <= m_medium.frames,
                  Name() << " has no frame " << frame << ", only " << m_medium.frames);
        m_position = frame;
        return time;
    }

    /// Returns true from a successful Open to Release.
    bool IsMediaOpen() const override { return m_info != nullptr; }

    /// Returns the limits from frame 0, with the length of the medium.
    /// @throws KELRuntimeError "NAME is closed"
    TimeLimits GetTimeLimits(std::string /*track*/) override {
        RequireOpen();
        return Limits(0, m_medium.frames);
    }

    /// Returns an empty list.
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }

    /// Returns false: the length is known when the medium is open.
    bool IsGrowing() const override { return false; }

    /// Returns the one output; empty without an open medium.
    std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const override {
        if (!IsMediaOpen()) {
            return {};
        }
        return {m_info->GetChannelInfo()};
    }

    /// Activates the one output, or for an empty list none.
    /// @throws KELRuntimeError "NAME is closed"
    void ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) override {
        RequireOpen();
        m_isActive = !outputs.empty();
    }

    /// Returns the one output if it is active, as it is in a new source.
    std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const override {
        if (!m_isActive) {
            return {};
        }
        return GetAvailableOutputs();
    }

    // IMediaSource

    /// Returns the description of the medium; an empty handle while the source is closed.
    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string /*name*/) const override {
        return IsMediaOpen() ? CreateInfoContainer(m_info, nullptr) : nullptr;
    }

    /// Returns one sample with the frames of one call of ReadFrames, stamped with their position.
    /// Returns an empty handle after the last frame, while the source is closed, while the output
    /// is not active, and when ReadFrames returns 0.
    std::shared_ptr<const ISampleContainer> GetSample() override {
        if (!IsMediaOpen() || !m_isActive || m_position >= m_medium.frames) {
            return nullptr;
        }
        const auto wanted = static_cast<std::uint32_t>(
            std::min<std::int64_t>(m_medium.maxFrames, m_medium.frames - m_position));
        const auto bytesPerFrame = static_cast<std::uint32_t>(BytesPerFrame(m_medium.format));
        const std::shared_ptr<IBuffer> buffer = CreateBuffer(m_allocator, nullptr);
        buffer->Reserve(wanted * bytesPerFrame);
        const std::uint32_t frames = ReadFrames(m_position, wanted, buffer->GetData());
        if (frames == 0) {
            return nullptr;
        }
        buffer->SetSize(frames * bytesPerFrame);
        auto container =
            CreateSampleContainer(CreateAudioSample(m_info->GetAudioParameters(), m_info, buffer,
                                                    Limits(m_position, frames), {}),
                                  nullptr);
        m_position += frames;
        return container;
    }

    /// Does nothing: ReadFrames does not wait for another thread.
    void Interrupt() override {}

    /// Stores the settings. Then opens the file that the setting "FilePath" names, if it is not
    /// empty. A source whose manifest does not declare "FilePath" is opened with an empty path.
    /// @throws KELRuntimeError "NAME got no settings"; "NAME is open"; what Open throws
    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) override {
        KEL_CHECK(!IsMediaOpen(), Name() << " is open");
        StoreSettings(std::move(config));
        const bool worksOnFile = WorksOnFile();
        const std::wstring path = worksOnFile ? Settings().GetWideStringValue("FilePath") : L"";
        if (!path.empty() || !worksOnFile) {
            Open(path);
        }
    }

    /// Does nothing: samples are pulled.
    void SetOutputMediator(std::shared_ptr<IOutputMediator> /*mediator*/, std::string /*output*/,
                           std::string /*name*/) override {}

    /// Does nothing: no samples are kept.
    void ClearInternalBuffer() override {}

    /// Calls CloseMedium if a medium is open. The settings and the choice of outputs stay.
    void Release() override {
        if (std::exchange(m_info, nullptr) != nullptr) {
            CloseMedium();
        }
    }

protected:
    /// An open medium.
    struct Medium {
        PCMFormat format;               ///< of its frames
        std::int64_t frames = 0;        ///< its length
        std::uint32_t maxFrames = 1024; ///< most frames in one sample; fewer if 32 bits cannot
                                        ///< count their bytes
    };

    /// @param name the name of the element in its messages
    /// @param manifest the registry entry, shared
    AudioSourceBase(std::string name, std::shared_ptr<const IParametersCollectionInstance> manifest)
        : ElementBase(std::move(name), std::move(manifest)) {}

    /// Opens the medium. Called without an open medium, with settings stored.
    /// [closed, one thread]
    /// @param path path for the file functions of the platform; empty for a source without a file
    /// @throws KELRuntimeError when the medium cannot be opened; the class then keeps nothing open
    virtual Medium OpenMedium(const std::string& path) = 0;

    /// Reads frames. Called only while a medium is open. The position is the frame after the last
    /// one, unless the host has moved it.
    /// [open, one thread]
    /// @param position the first frame to read
    /// @param frames how many to read, at least 1; all of them are within the length of the medium
    /// @param data memory for these frames, aligned to 64 bytes and not cleared
    /// @return the number of frames in @p data, at most @p frames; 0 ends the stream early
    /// @throws KELRuntimeError when they cannot be read; the position stays
    virtual std::uint32_t ReadFrames(std::int64_t position, std::uint32_t frames, void* data) = 0;

    /// Closes the medium. Does nothing in this class. The destructor of a derived class closes a
    /// medium that is still open.
    /// [open, one thread, does not throw]
    virtual void CloseMedium() {}

private:
    void RequireOpen() const { KEL_CHECK(IsMediaOpen(), Name() << " is closed"); }

    EditRate FrameRate() const { return {m_medium.format.rate, 1}; }

    TimeLimits Limits(std::int64_t start, std::int64_t frames) const {
        return {MediaTime(FrameRate(), start, nullptr), frames};
    }

    void Describe(const std::wstring& path) {
        const std::uint64_t bytes = BytesPerFrame(m_medium.format);
        constexpr std::uint64_t kMaxBytes = std::numeric_limits<std::uint32_t>::max();
        KEL_CHECK(m_medium.format.rate != 0 && bytes != 0 && bytes <= kMaxBytes &&
                      m_medium.frames >= 0 && m_medium.maxFrames != 0,
                  Name() << " opened a medium without frames: " << ToString(m_medium.format) << ", "
                         << m_medium.frames << " frames, " << m_medium.maxFrames << " in a sample");
        m_medium.maxFrames = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(m_medium.maxFrames, kMaxBytes / bytes));
        if (m_allocator == nullptr) {
            // Reuses the memory of released samples.
            m_allocator = ImplementElement<ElementFactoryType::MemoryBlockAllocator>(
                "kel", "Recycler", nullptr);
        }
        const std::string file = ConvertWideStringToPlatformString(ExtractFilenameFromPath(path));
        m_position = 0;
        m_info = CreateAudioInfo(m_medium.format, file.empty() ? Name() : file);
    }

    Medium m_medium;
    std::shared_ptr<const IAudioInfo> m_info; // empty while the source is closed
    std::shared_ptr<IMemoryBlockAllocator> m_allocator;
    std::int64_t m_position = 0; // of the next frame
    bool m_isActive = true;
};

} // namespace kel
