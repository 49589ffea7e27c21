/// Control side of an audio source.
#pragma once

#include "Export.h"
#include "ISourceControl.h"

namespace kel {

/// Control side of an audio source; adds no operation. The base is virtual, so that every way to an
/// element's control side reaches the same one.
class KEL_CORE_EXPORT IAudioSourceControl : public virtual ISourceControl {
public:
    ~IAudioSourceControl() override;
};

} // namespace kel
