/// Operations on the control side of every element.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup elements
#pragma once

#include "Export.h"

#include <memory>

namespace kel {

class IParametersCollectionInstance;

/// Control side common to all elements. An element has exactly one, which a host reaches through
/// any of its interfaces.
class KEL_CORE_EXPORT IBasicControl {
public:
    virtual ~IBasicControl();

    /// Changes the configuration of a running element.
    /// [any, one thread]
    /// @param config shared with the element from now on
    /// @throws KELRuntimeError if the element cannot be reconfigured
    virtual void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> config) = 0;

    /// Returns the collection that the element was constructed with; it has the keys of the
    /// registry entry ("type" among them).
    /// [any, one thread, does not throw]
    virtual std::shared_ptr<const IParametersCollectionInstance> GetManifest() const = 0;
};

} // namespace kel
