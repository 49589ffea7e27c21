/// An audio source with both of its sides, as factories return it.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup sources
#pragma once

#include "Export.h"
#include "IAudioSourceControl.h"
#include "IMediaSource.h"

namespace kel {

/// Data side and control side of an audio source; adds no operation. Made by factories of
/// ElementFactoryType::AudioSource.
class KEL_CORE_EXPORT IAudioSource : public IMediaSource, public IAudioSourceControl {
public:
    ~IAudioSource() override;

    // Both sides declare it; one function of the element overrides both.
    using IMediaSource::GetManifest;
};

} // namespace kel
