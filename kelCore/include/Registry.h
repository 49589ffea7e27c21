/// The registry of element factories, one in each process.
/// Any thread may call all functions at any time.
/// @ingroup making
#pragma once

#include "ElementFactoryType.h"
#include "Export.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace kel {

class IElementFactory;
class IParametersCollectionInstance;
class IParametersCollectionPrototype;

/// One registration: the arguments of RegisterFactory.
struct Registration {
    std::string name;   ///< text that the host passed to the entry point of the plug-in
    std::string coreId; ///< see GetKELCoreIdInternal
    std::shared_ptr<IElementFactory> factory; ///< makes the elements
    /// Describes the element, see GetRegistryEntryPrototype.
    std::shared_ptr<const IParametersCollectionInstance> entry;
};

/// Adds one registration after the others. Nothing is replaced: look-ups return the first of two
/// registrations that match.
/// @param name the text that the host passed to the entry point of the plug-in
/// @param coreId the result of GetKELCoreIdInternal
/// @param factory makes the elements, shared
/// @param registryEntry describes the element, an instance of GetRegistryEntryPrototype, shared
/// @throws KELRuntimeError when @p factory or @p registryEntry is empty, or the entry does not
/// declare "class", "implementation" and "type"; nothing is added then
KEL_CORE_EXPORT void
RegisterFactory(std::string name, std::string coreId, std::shared_ptr<IElementFactory> factory,
                std::shared_ptr<const IParametersCollectionInstance> registryEntry);

/// Returns all registrations in their order. Those of the framework come first, under the name
/// "kelCore".
KEL_CORE_EXPORT std::vector<Registration> GetRegistrations();

/// Removes all registrations that were made under @p name, so that a host can unload the library
/// that they come from once it has released the elements as well. It removes them one after the
/// other, takes no memory and does not throw.
/// @return the number of removed registrations
KEL_CORE_EXPORT std::size_t UnregisterFactories(const std::string& name);

/// Returns a text that identifies this framework core to a plug-in built with version text
/// @p version: "kelCore MAJOR.MINOR.PATCH for plug-in VERSION", see Version.h.
KEL_CORE_EXPORT std::string GetKELCoreIdInternal(std::string version);

/// Returns the prototype of registry entries. It declares "class" (integer, the numeric
/// ElementFactoryType), "type" (string, the label of the format), "implementation" (string), "doc"
/// (string) and "init_config" (collection, the prototype of the element's settings).
KEL_CORE_EXPORT std::shared_ptr<const IParametersCollectionPrototype> GetRegistryEntryPrototype();

/// Returns the factory of the first registration whose entry has this class, implementation and
/// type; empty without one.
KEL_CORE_EXPORT std::shared_ptr<IElementFactory>
GetFactory(ElementFactoryType kind, const std::string& implementation, const std::string& type);

/// Returns the manifest to create that element with, the registry entry itself; empty without
/// one.
KEL_CORE_EXPORT std::shared_ptr<const IParametersCollectionInstance>
GetManifest(ElementFactoryType kind, const std::string& implementation, const std::string& type);

} // namespace kel
