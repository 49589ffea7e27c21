/// A run of audio frames.
#pragma once

#include "Export.h"
#include "ISample.h"
#include "TimeLimits.h"

#include <memory>
#include <vector>

namespace kel {

class IAudioInfo;
class IAudioParameters;
class IBuffer;
class IMetadata;

/// A run of interleaved audio frames with what describes them. Immutable; the handles that it
/// returns are shared with it.
class KEL_CORE_EXPORT IAudioSample : public ISample {
public:
    ~IAudioSample() override;

    /// The bytes of the frames.
    virtual std::shared_ptr<const IBuffer> GetBuffer() const = 0;
    /// The codec parameters of the frames.
    virtual std::shared_ptr<const IAudioParameters> GetAudioParameters() const = 0;
    /// The stream that the frames belong to.
    virtual std::shared_ptr<const IAudioInfo> GetAudioInfo() const = 0;
    /// Where the frames lie on the stream's timeline.
    virtual const TimeLimits& GetTimeLimits() const = 0;
    /// The metadata that the sample was made with.
    virtual std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const = 0;
};

/// Makes an audio sample. All handles are shared with the sample. Any thread may call it.
/// @param parameters codec parameters of the frames; may be empty
/// @param info the stream that they belong to; may be empty
/// @param buffer their bytes
/// @param limits where they lie on the stream's timeline
/// @param metadata their metadata; may be empty
/// @throws KELRuntimeError when @p buffer is empty
KEL_CORE_EXPORT std::shared_ptr<IAudioSample>
CreateAudioSample(std::shared_ptr<const IAudioParameters> parameters,
                  std::shared_ptr<const IAudioInfo> info, std::shared_ptr<const IBuffer> buffer,
                  const TimeLimits& limits, std::vector<std::shared_ptr<const IMetadata>> metadata);

} // namespace kel
