// A plug-in that fails when it has registered an element already.

#include "EntryPoint.h"

#include <ElementFactory.h>
#include <ElementFactoryType.h>
#include <ParametersCollection.h>
#include <Registry.h>

#include <cstdint>
#include <memory>
#include <stdexcept>

void RegisterAll(const char* name) {
    using Factory = kel::ElementFactory<kel::ElementFactoryType::AudioSource>;
    auto entry = kel::CreateParametersCollectionInstance(kel::GetRegistryEntryPrototype());
    entry->SetIntegerValue("class",
                           static_cast<std::int32_t>(kel::ElementFactoryType::AudioSource));
    entry->SetStringValue("type", "WAVE");
    entry->SetStringValue("implementation", "test.HalfRegistered");
    kel::RegisterFactory(name, kel::GetKELCoreIdInternal("1"),
                         std::make_shared<Factory>([](const auto&) { return nullptr; }), entry);
    throw std::runtime_error("the licence\nis missing");
}
