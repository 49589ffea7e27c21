/// An audio sink with both of its sides, as factories return it.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup sinks
#pragma once

#include "Export.h"
#include "IAudioSinkControl.h"
#include "IMediaSink.h"

namespace kel {

/// Data side and control side of an audio sink; adds no operation. Made by factories of
/// ElementFactoryType::AudioSink.
class KEL_CORE_EXPORT IAudioSink : public IMediaSink, public virtual IAudioSinkControl {
public:
    ~IAudioSink() override;

    // Both sides declare it; one function of the element overrides both.
    using IMediaSink::GetManifest;
};

} // namespace kel
