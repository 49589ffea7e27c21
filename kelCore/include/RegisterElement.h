/// Registration of an element in one call, for the entry points of plug-ins.
/// Any thread may call the function. Header-only.
/// @ingroup registration
#pragma once

#include "ElementFactory.h"
#include "ElementFactoryType.h"
#include "IAudioSink.h"
#include "IAudioSource.h"
#include "IMemoryBlockAllocator.h"
#include "ParametersCollection.h"
#include "Registry.h"
#include "WrapperFormat.h"

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace kel {

/// The information of a registry entry, except the kind of the element.
struct ElementDescription {
    std::string implementation; ///< name of the element, unique with its type
    std::string documentation;  ///< a sentence for users
    /// Declares the settings of the element.
    std::shared_ptr<const IParametersCollectionPrototype> settings;
    std::string type = GetLabel(WrapperFormat::Unknown); ///< the label of its format
};

/// Registers a class of elements. An element for several formats is registered once for each.
/// @tparam Element derives from IAudioSource, IAudioSink or IMemoryBlockAllocator; its constructor
/// receives the manifest
/// @param name the argument of the entry point
/// @param pluginVersion version of the plug-in, see GetKELCoreIdInternal
/// @param element the information for the registry entry
/// @throws KELRuntimeError when the framework cannot create the entry; nothing is added then
template <typename Element>
void RegisterElement(const std::string& name, const std::string& pluginVersion,
                     const ElementDescription& element) {
    constexpr ElementFactoryType kKind =
        std::is_base_of_v<IAudioSource, Element> ? ElementFactoryType::AudioSource
        : std::is_base_of_v<IAudioSink, Element> ? ElementFactoryType::AudioSink
                                                 : ElementFactoryType::MemoryBlockAllocator;
    auto entry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    entry->SetIntegerValue("class", static_cast<std::int32_t>(kKind));
    entry->SetStringValue("type", element.type);
    entry->SetStringValue("implementation", element.implementation);
    entry->SetStringValue("doc", element.documentation);
    entry->SetCollectionValue("init_config", element.settings);
    auto factory = std::make_shared<ElementFactory<kKind>>(
        [](std::shared_ptr<const IParametersCollectionInstance> manifest) {
            return std::make_shared<Element>(std::move(manifest));
        });
    RegisterFactory(name, GetKELCoreIdInternal(pluginVersion), std::move(factory),
                    std::move(entry));
}

} // namespace kel
