/// Control side of a media sink: the path, metadata, closing.
#pragma once

#include "Export.h"
#include "IBasicControl.h"

#include <memory>
#include <string>
#include <vector>

namespace kel {

class IMetadata;

/// Control side of any media sink. One thread at a time.
class KEL_CORE_EXPORT ISinkControl : public virtual IBasicControl {
public:
    ~ISinkControl() override;

    /// Tells the sink where to write.
    /// @param path wide path, see ConvertWideStringToPlatformString
    /// @throws KELRuntimeError when the sink is writing already
    virtual void Open(const std::wstring& path) = 0;

    /// Hands the sink metadata to write.
    /// @throws KELRuntimeError where the sink takes none
    virtual void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>& metadata) = 0;

    /// Finishes the medium. A sink that is not writing does nothing.
    /// @param flag for sinks that can finish in two ways; others ignore it
    virtual void Close(bool flag) = 0;
};

} // namespace kel
