#include "Registry.h"

#include "Checks.h"
#include "ElementFactory.h"
#include "IMemoryBlockAllocator.h"
#include "ParametersCollection.h"
#include "RecyclerInternal.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

// A registration with those keys of its entry that look-ups compare.
struct IndexedRegistration {
    Registration registration;
    std::int32_t kind;
    std::string implementation;
    std::string type;
};

IndexedRegistration Index(Registration registration) {
    const IParametersCollectionInstance& entry = *registration.entry;
    const std::int32_t kind = entry.GetIntegerValue("class");
    std::string implementation = entry.GetStringValue("implementation");
    std::string type = entry.GetStringValue("type");
    return {std::move(registration), kind, std::move(implementation), std::move(type)};
}

Registration MakeRecyclerRegistration() {
    constexpr const char* kRecyclerDocumentation =
        "This allocator gives released memory blocks out again, so that a stream of samples needs "
        "only a handful of blocks from the system. Each allocator made here has a pool of its own.";
    auto entry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    entry->SetIntegerValue("class",
                           static_cast<std::int32_t>(ElementFactoryType::MemoryBlockAllocator));
    entry->SetStringValue("type", "Recycler");
    entry->SetStringValue("implementation", "kel");
    entry->SetStringValue("doc", kRecyclerDocumentation);
    entry->SetCollectionValue("init_config", CreateParametersCollectionPrototype());
    auto factory = std::make_shared<ElementFactory<ElementFactoryType::MemoryBlockAllocator>>(
        [](const std::shared_ptr<const IParametersCollectionInstance>&) {
            return CreateRecycler();
        });
    return {"kelCore", GetKELCoreIdInternal(KEL_CORE_VERSION), std::move(factory),
            std::move(entry)};
}

struct Registry {
    std::shared_mutex mutex;
    std::vector<IndexedRegistration> registrations{Index(MakeRecyclerRegistration())};
    std::map<std::string, std::shared_ptr<IMemoryBlockAllocator>> allocators;
};

// Intentional: never destroyed, because the factories may belong to libraries that are unloaded
// before the process ends.
Registry& TheRegistry() {
    static Registry& registry = *new Registry;
    return registry;
}

// Returns one handle of the first registration that matches; empty without one.
template <typename Handle>
Handle Find(Handle Registration::*handle, ElementFactoryType kind,
            const std::string& implementation, const std::string& type) {
    Registry& registry = TheRegistry();
    const std::shared_lock<std::shared_mutex> lock(registry.mutex);
    const auto found = std::find_if(registry.registrations.begin(), registry.registrations.end(),
                                    [&](const IndexedRegistration& candidate) {
                                        return candidate.kind == static_cast<std::int32_t>(kind) &&
                                               candidate.implementation == implementation &&
                                               candidate.type == type;
                                    });
    return found == registry.registrations.end() ? Handle() : found->registration.*handle;
}

} // namespace

void RegisterFactory(std::string name, std::string coreId, std::shared_ptr<IElementFactory> factory,
                     std::shared_ptr<const IParametersCollectionInstance> registryEntry) {
    KEL_CHECK_POINTER(factory, "the registration under \"" << name << "\" has no factory");
    KEL_CHECK_POINTER(registryEntry,
                      "the registration under \"" << name << "\" has no registry entry");
    IndexedRegistration indexed =
        Index({std::move(name), std::move(coreId), std::move(factory), std::move(registryEntry)});
    Registry& registry = TheRegistry();
    const std::unique_lock<std::shared_mutex> lock(registry.mutex);
    registry.registrations.push_back(std::move(indexed));
}

std::vector<Registration> GetRegistrations() {
    Registry& registry = TheRegistry();
    const std::shared_lock<std::shared_mutex> lock(registry.mutex);
    std::vector<Registration> registrations;
    registrations.reserve(registry.registrations.size());
    for (const IndexedRegistration& indexed : registry.registrations) {
        registrations.push_back(indexed.registration);
    }
    return registrations;
}

std::size_t UnregisterFactories(const std::string& name) {
    Registry& registry = TheRegistry();
    std::vector<IndexedRegistration>& all = registry.registrations;
    // One after the other, which takes no memory: a host must always be able to unload a library.
    for (std::size_t count = 0;; ++count) {
        std::optional<IndexedRegistration> removed; // released outside of the lock
        const std::unique_lock<std::shared_mutex> lock(registry.mutex);
        const auto place =
            std::find_if(all.begin(), all.end(), [&name](const IndexedRegistration& candidate) {
                return candidate.registration.name == name;
            });
        if (place == all.end()) {
            return count;
        }
        removed = std::move(*place);
        all.erase(place);
    }
}

std::string GetKELCoreIdInternal(std::string version) {
    return version.insert(0, "kelCore " KEL_CORE_VERSION " for plug-in ");
}

std::shared_ptr<const IParametersCollectionPrototype> GetRegistryEntryPrototype() {
    static const std::shared_ptr<const IParametersCollectionPrototype>& prototype = *[] {
        auto entry = CreateParametersCollectionPrototype();
        entry->AddIntegerParameter("class", 0, "Kind of element, a numeric ElementFactoryType.");
        entry->AddStringParameter("type", "Label of the format that the element is for.");
        entry->AddStringParameter("implementation", "Name of the element.");
        entry->AddStringParameter("doc", "Documentation of the element.");
        entry->AddCollectionParameter("init_config", "Settings of the element.");
        return new std::shared_ptr<const IParametersCollectionPrototype>(std::move(entry));
    }();
    return prototype;
}

std::shared_ptr<IElementFactory>
GetFactory(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    return Find(&Registration::factory, kind, implementation, type);
}

std::shared_ptr<const IParametersCollectionInstance>
GetManifest(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    return Find(&Registration::entry, kind, implementation, type);
}

void RegisterAllocator(const std::string& name, std::shared_ptr<IMemoryBlockAllocator> allocator) {
    KEL_CHECK_POINTER(allocator, "the allocator to register as \"" << name << "\" is empty");
    Registry& registry = TheRegistry();
    const std::unique_lock<std::shared_mutex> lock(registry.mutex);
    registry.allocators[name].swap(allocator);
}

std::shared_ptr<IMemoryBlockAllocator> GetAllocator(const std::string& name) {
    Registry& registry = TheRegistry();
    const std::shared_lock<std::shared_mutex> lock(registry.mutex);
    const auto found = registry.allocators.find(name);
    return found == registry.allocators.end() ? nullptr : found->second;
}

} // namespace kel
