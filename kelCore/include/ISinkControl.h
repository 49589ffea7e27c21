/// Control side of a media sink: the path, metadata, closing.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup sinks
#pragma once

#include "Export.h"
#include "IBasicControl.h"

#include <memory>
#include <string>
#include <vector>

namespace kel {

class IMetadata;

/// Control side of any media sink.
class KEL_CORE_EXPORT ISinkControl : public virtual IBasicControl {
public:
    ~ISinkControl() override;

    /// Sets the path of the medium to write.
    /// [closed, one thread]
    /// @param path wide path, see ConvertWideStringToPlatformString
    /// @throws KELRuntimeError when the sink is writing already
    virtual void Open(const std::wstring& path) = 0;

    /// Passes the sink metadata to write.
    /// [any, one thread]
    /// @throws KELRuntimeError if the sink accepts none
    virtual void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>& metadata) = 0;

    /// Finishes the medium. A sink that is not writing does nothing.
    /// [any, one thread]
    /// @param flag for sinks that can finish in two ways; others ignore it
    /// @throws KELRuntimeError when the medium is not complete. Not every sink notices that: to be
    /// sure, read the medium
    virtual void Close(bool flag) = 0;
};

} // namespace kel
