/// A run of audio frames.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup memory
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

/// A run of interleaved audio frames with their description. The handles that it returns are shared
/// with it.
class KEL_CORE_EXPORT IAudioSample : public ISample {
public:
    ~IAudioSample() override;

    /// Returns the bytes of the frames.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const IBuffer> GetBuffer() const = 0;
    /// Returns the codec parameters of the frames; may be empty.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const IAudioParameters> GetAudioParameters() const = 0;
    /// Returns the stream that the frames belong to; may be empty.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const IAudioInfo> GetAudioInfo() const = 0;
    /// Returns the interval of the frames on the timeline of the stream.
    /// [any, any thread, does not throw]
    virtual const TimeLimits& GetTimeLimits() const = 0;
    /// Returns the metadata that the sample was made with.
    /// [any, any thread, does not throw]
    virtual std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const = 0;
};

/// Makes an audio sample. All handles are shared with the sample. Any thread may call it.
/// @param parameters codec parameters of the frames; may be empty
/// @param info the stream that they belong to; may be empty
/// @param buffer their bytes
/// @param limits their interval on the timeline of the stream
/// @param metadata their metadata; may be empty
/// @throws KELRuntimeError when @p buffer is empty
KEL_CORE_EXPORT std::shared_ptr<IAudioSample>
CreateAudioSample(std::shared_ptr<const IAudioParameters> parameters,
                  std::shared_ptr<const IAudioInfo> info, std::shared_ptr<const IBuffer> buffer,
                  const TimeLimits& limits, std::vector<std::shared_ptr<const IMetadata>> metadata);

} // namespace kel
