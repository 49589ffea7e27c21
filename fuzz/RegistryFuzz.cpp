// Compares arbitrary registrations, look-ups and removals with a plain list.

#include "Fuzz.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace kel;
using fuzz::Input;

constexpr ElementFactoryType kKinds[] = {ElementFactoryType::AudioSource,
                                         ElementFactoryType::AudioSink,
                                         ElementFactoryType::MemoryBlockAllocator};

struct Key {
    ElementFactoryType kind;
    std::string implementation;
    std::string type;

    bool operator==(const Key& other) const {
        return kind == other.kind && implementation == other.implementation && type == other.type;
    }
};

struct Entry {
    std::string name;
    Key key;
    std::shared_ptr<IElementFactory> factory;
    std::shared_ptr<const IParametersCollectionInstance> entry;
};

Key AnyKey(Input& input) {
    // Few values, so that they occur repeatedly.
    Key key{kKinds[input.Byte() % 3],
            "fuzz." + std::string(1, static_cast<char>('a' + input.Byte() % 3)),
            std::string(1, static_cast<char>('x' + input.Byte() % 3))};
    if (input.Byte() % 8 == 0) {
        key.type = input.Text(4);
    }
    return key;
}

std::string AnyName(Input& input) {
    return "fuzz " + std::to_string(input.Byte() % 4);
}

Entry Register(Input& input) {
    Entry entry{AnyName(input), AnyKey(input),
                std::make_shared<ElementFactory<ElementFactoryType::AudioSource>>(nullptr),
                nullptr};
    auto collection = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    collection->SetIntegerValue("class", static_cast<std::int32_t>(entry.key.kind));
    collection->SetStringValue("implementation", entry.key.implementation);
    collection->SetStringValue("type", entry.key.type);
    entry.entry = collection;
    RegisterFactory(entry.name, "core", entry.factory, collection);
    return entry;
}

std::size_t Remove(std::vector<Entry>& entries, const std::string& name) {
    const std::size_t before = entries.size();
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&name](const Entry& entry) { return entry.name == name; }),
                  entries.end());
    return before - entries.size();
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::DiscardRecords();
    Input input(data, size);
    std::vector<Entry> entries;
    const std::size_t others = GetRegistrations().size();
    while (!input.IsAtEnd() && entries.size() < 64) {
        switch (input.Byte() % 3) {
        case 0:
            entries.push_back(Register(input));
            break;
        case 1: {
            const Key key = AnyKey(input);
            const auto found =
                std::find_if(entries.begin(), entries.end(),
                             [&key](const Entry& entry) { return entry.key == key; });
            const bool exists = found != entries.end();
            KEL_FUZZ_REQUIRE(GetFactory(key.kind, key.implementation, key.type) ==
                             (exists ? found->factory : nullptr));
            KEL_FUZZ_REQUIRE(GetManifest(key.kind, key.implementation, key.type) ==
                             (exists ? found->entry : nullptr));
            break;
        }
        default: {
            const std::string name = AnyName(input);
            KEL_FUZZ_REQUIRE(UnregisterFactories(name) == Remove(entries, name));
            break;
        }
        }
        KEL_FUZZ_REQUIRE(GetRegistrations().size() == others + entries.size());
    }
    for (int name = 0; name < 4; ++name) {
        UnregisterFactories("fuzz " + std::to_string(name));
    }
    return 0;
}
