/// Codec parameters of an audio stream.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup formats
#pragma once

#include "ACodecFamily.h"
#include "Export.h"
#include "IEncodingParameters.h"

#include <memory>

namespace kel {

/// Codec parameters of an audio stream. A cast at run time to the interface of the family reaches
/// the parameters that only this family has.
class KEL_CORE_EXPORT IAudioParameters : public IEncodingParameters {
public:
    ~IAudioParameters() override;

    /// Returns the codec family that the parameters belong to.
    /// [any, any thread, does not throw]
    virtual ACodecFamily GetCodecFamily() const = 0;
};

/// Maps a codec family to the shared handle (`AudioParametersPtr`) of the interface of the family.
template <ACodecFamily F>
struct AudioParameters_trait;

/// Makes parameters of a codec family: an IAudioParameters_PCM for ACodecFamily::PCM, and for any
/// other value an object that has only its family. Any thread may call it.
KEL_CORE_EXPORT std::shared_ptr<IAudioParameters> CreateAudioParameters(ACodecFamily family);

/// Makes parameters of family @p F and casts them to the interface of the family; the handle is
/// empty when the object of the framework is of another kind. Any thread may call it.
template <ACodecFamily F>
typename AudioParameters_trait<F>::AudioParametersPtr CreateAudioParameters() {
    using Handle = typename AudioParameters_trait<F>::AudioParametersPtr;
    return std::dynamic_pointer_cast<typename Handle::element_type>(CreateAudioParameters(F));
}

} // namespace kel
