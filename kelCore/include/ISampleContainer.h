/// What travels from a source to a sink: one or more samples.
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

/// One or more samples, with a description of their packaging if there is one. Immutable.
class KEL_CORE_EXPORT ISampleContainer {
public:
    virtual ~ISampleContainer();

    /// The audio samples, in the order given.
    /// @param info only samples of this very info; empty for any
    /// @param track only samples whose info describes channels of this very track; empty for any
    virtual std::vector<std::shared_ptr<const IAudioSample>>
    GetAudioSamples(std::shared_ptr<const IAudioInfo> info,
                    std::shared_ptr<const ITrack> track) const = 0;

    /// How the samples are packaged; empty when nothing was said.
    virtual std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const = 0;
};

/// Makes a container of one sample. Any thread may call it.
/// @param sample the sample, shared
/// @param packaging how it is packaged; may be empty
/// @throws KELRuntimeError when @p sample is empty
KEL_CORE_EXPORT std::shared_ptr<ISampleContainer>
CreateSampleContainer(std::shared_ptr<const ISample> sample,
                      std::shared_ptr<const IPackagingInfo> packaging);

/// Makes a container of any number of samples. Any thread may call it.
/// @param samples the samples, shared; none may be empty
/// @param packaging how they are packaged; may be empty
/// @throws KELRuntimeError when one of @p samples is empty
KEL_CORE_EXPORT std::shared_ptr<ISampleContainer>
CreateSampleContainer(std::vector<std::shared_ptr<const ISample>> samples,
                      std::shared_ptr<const IPackagingInfo> packaging);

} // namespace kel
