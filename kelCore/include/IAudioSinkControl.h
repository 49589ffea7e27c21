/// Control side of an audio sink.
#pragma once

#include "Export.h"
#include "ISinkControl.h"

namespace kel {

/// Control side of an audio sink; adds no operation. The base is virtual, so that every way to an
/// element's control side reaches the same one.
class KEL_CORE_EXPORT IAudioSinkControl : public virtual ISinkControl {
public:
    ~IAudioSinkControl() override;
};

} // namespace kel
