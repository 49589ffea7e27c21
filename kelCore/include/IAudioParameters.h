/// Codec parameters of an audio stream.
#pragma once

#include "ACodecFamily.h"
#include "Export.h"
#include "IEncodingParameters.h"

#include <memory>

namespace kel {

/// Codec parameters of an audio stream. What a family has of its own is reached by a run-time cast
/// to the family's interface. Immutable once shared as const.
class KEL_CORE_EXPORT IAudioParameters : public IEncodingParameters {
public:
    ~IAudioParameters() override;

    /// The codec family that the parameters belong to.
    virtual ACodecFamily GetCodecFamily() const = 0;
};

/// Maps a codec family to the shared handle (`AudioParametersPtr`) of the family's interface.
template <ACodecFamily F>
struct AudioParameters_trait;

/// Makes parameters of a codec family: an IAudioParameters_PCM for ACodecFamily::PCM, and for any
/// other value an object that knows nothing but its family. Any thread may call it.
KEL_CORE_EXPORT std::shared_ptr<IAudioParameters> CreateAudioParameters(ACodecFamily family);

/// Makes parameters of family @p F and casts them to the family's interface; the handle is empty
/// when the framework's object is of another kind.
template <ACodecFamily F>
typename AudioParameters_trait<F>::AudioParametersPtr CreateAudioParameters() {
    using Handle = typename AudioParameters_trait<F>::AudioParametersPtr;
    return std::dynamic_pointer_cast<typename Handle::element_type>(CreateAudioParameters(F));
}

} // namespace kel
