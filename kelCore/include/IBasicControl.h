/// Operations that the control side of every element has.
#pragma once

#include "Export.h"

#include <memory>

namespace kel {

class IParametersCollectionInstance;

/// Control side common to all elements. One element has exactly one, whichever of its interfaces a
/// host comes from. Like all element interfaces it carries no lock: one thread at a time drives an
/// element.
class KEL_CORE_EXPORT IBasicControl {
public:
    virtual ~IBasicControl();

    /// Changes the configuration of a running element.
    /// @param config shared with the element from here on
    /// @throws KELRuntimeError where the element cannot be reconfigured
    virtual void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> config) = 0;

    /// Returns the collection that the element was constructed with, the registry entry's keys
    /// ("type" among them).
    virtual std::shared_ptr<const IParametersCollectionInstance> GetManifest() const = 0;
};

} // namespace kel
