/// An audio sink, as hosts hold it.
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

    // Both sides declare it; the element answers both with one function.
    using IMediaSink::GetManifest;
};

} // namespace kel
