/// Control side of an audio source.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup sources
#pragma once

#include "Export.h"
#include "ISourceControl.h"

namespace kel {

/// Control side of an audio source; adds no operation. The base is virtual, so that every path to
/// the control side of an element reaches the same object.
class KEL_CORE_EXPORT IAudioSourceControl : public virtual ISourceControl {
public:
    ~IAudioSourceControl() override;
};

} // namespace kel
