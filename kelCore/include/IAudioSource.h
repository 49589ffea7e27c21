/// An audio source, as hosts hold it.
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

    // Both sides declare it; the element answers both with one function.
    using IMediaSource::GetManifest;
};

} // namespace kel
