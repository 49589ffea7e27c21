/// A set of samples, the unit of transfer from a source to a sink.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup memory
#pragma once

#include "Export.h"

#include <memory>
#include <vector>

namespace kel {

class IAudioInfo;
class IAudioSample;
class IPackagingInfo;
class ISample;
class ITrack;

/// A list of samples, with an optional description of their packaging.
class KEL_CORE_EXPORT ISampleContainer {
public:
    virtual ~ISampleContainer();

    /// Returns the audio samples in their order.
    /// [any, any thread, does not throw]
    /// @param info selects the samples of this object; empty for any
    /// @param track selects the samples whose info describes channels of this object; empty for any
    virtual std::vector<std::shared_ptr<const IAudioSample>>
    GetAudioSamples(std::shared_ptr<const IAudioInfo> info,
                    std::shared_ptr<const ITrack> track) const = 0;

    /// Returns the packaging of the samples; empty when the container was made without one.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const = 0;
};

/// Makes a container of one sample. Any thread may call it.
/// @param sample the sample, shared
/// @param packaging its packaging, shared; may be empty
/// @throws KELRuntimeError when @p sample is empty
KEL_CORE_EXPORT std::shared_ptr<ISampleContainer>
CreateSampleContainer(std::shared_ptr<const ISample> sample,
                      std::shared_ptr<const IPackagingInfo> packaging);

/// Makes a container of any number of samples. Any thread may call it.
/// @param samples the samples, shared; none may be empty
/// @param packaging their packaging, shared; may be empty
/// @throws KELRuntimeError when one of @p samples is empty
KEL_CORE_EXPORT std::shared_ptr<ISampleContainer>
CreateSampleContainer(std::vector<std::shared_ptr<const ISample>> samples,
                      std::shared_ptr<const IPackagingInfo> packaging);

} // namespace kel
