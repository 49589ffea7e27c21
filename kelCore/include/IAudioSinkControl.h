/// Control side of an audio sink.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup sinks
#pragma once

#include "Export.h"
#include "ISinkControl.h"

namespace kel {

/// Control side of an audio sink; adds no operation. The base is virtual, so that every path to the
/// control side of an element reaches the same object.
class KEL_CORE_EXPORT IAudioSinkControl : public virtual ISinkControl {
public:
    ~IAudioSinkControl() override;
};

} // namespace kel
