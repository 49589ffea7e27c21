// Checks of the plug-in as a whole and of elements of every kind.

#include "base/Errors.h"
#include "base/Text.h"
#include "elements/SharedLibrary.h"
#include "validation/Check.h"

#include <IAudioSinkControl.h>
#include <IAudioSourceControl.h>
#include <IBasicControl.h>
#include <IMediaSink.h>
#include <IMediaSource.h>
#include <IMemoryBlock.h>
#include <ISinkControl.h>
#include <ISourceControl.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <dlfcn.h>
#include <exception>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kEntryPoint = "RegisterAll";
constexpr auto kSource = ElementFactoryType::AudioSource;
constexpr auto kSink = ElementFactoryType::AudioSink;
constexpr auto kAllocator = ElementFactoryType::MemoryBlockAllocator;

// The library, and the function that registers. It stays loaded: what a plug-in does when it is
// unloaded is a check of its own.
class Entry {
public:
    explicit Entry(CheckContext& context) : m_entryPoint(Find(Open(context))) {}

    void Call(const char* name) const { m_entryPoint(name); }

    // Registers under a name that only this check uses, and returns what came of it.
    std::vector<Registration> Register(CheckContext& context, const char* name) const {
        context.Note(fmt::format("{}(\"{}\")", kEntryPoint, name));
        const std::size_t before = GetRegistrations().size();
        try {
            Call(name);
        } catch (const std::exception& error) {
            throw CheckFailed(fmt::format("{} failed: {}", kEntryPoint, error.what()));
        } catch (...) {
            throw CheckFailed(
                fmt::format("{} failed with an exception of an unknown type", kEntryPoint));
        }
        std::vector<Registration> all = GetRegistrations();
        return {all.begin() + static_cast<std::ptrdiff_t>(std::min(before, all.size())), all.end()};
    }

private:
    static const PluginLibrary& Open(CheckContext& context) {
        context.Note("loading");
        try {
            return *new PluginLibrary(context.Subject().plugin);
        } catch (const JobError&) {
            throw NotApplicable("it cannot be loaded, see plugin.loads");
        }
    }

    static PluginLibrary::EntryPoint Find(const PluginLibrary& library) {
        try {
            return library.FindEntryPoint();
        } catch (const JobError&) {
            throw NotApplicable("it has no entry point, see plugin.one-entry-point");
        }
    }

    PluginLibrary::EntryPoint m_entryPoint;
};

// "kel.LibsndfileSource:WAVE": an element as messages name it.
std::string NameOf(const Registration& registration) {
    return fmt::format("{}:{}", registration.entry->GetStringValue("implementation"),
                       registration.entry->GetStringValue("type"));
}

// Fails with the registrations that a condition does not hold for, and what is wrong with each.
template <typename Problem>
void RequireOfEach(CheckContext& context, Problem problem) {
    std::vector<std::string> problems;
    for (const Registration& registration : context.Registrations()) {
        const std::string text = problem(registration);
        if (!text.empty()) {
            problems.push_back(fmt::format("{} {}", NameOf(registration), text));
        }
    }
    Require(problems.empty(), fmt::format("{}", fmt::join(problems, "; ")));
}

void Loads(CheckContext& context) {
    try {
        context.Note("loading");
        static_cast<void>(new PluginLibrary(context.Subject().plugin));
    } catch (const JobError& error) {
        throw CheckFailed(error.what());
    }
}

void ExportsOneEntryPoint(CheckContext& context) {
    std::vector<ExportedSymbol> symbols;
    try {
        symbols = ReadExportedSymbols(context.Subject().plugin);
    } catch (const JobError& error) {
        // Another check reports that it cannot be loaded.
        throw NotApplicable(error.what());
    }
    bool hasEntryPoint = false;
    std::vector<std::string> others;
    for (const ExportedSymbol& symbol : symbols) {
        if (symbol.name == kEntryPoint && symbol.isFunction) {
            hasEntryPoint = true;
        } else if (!symbol.isShared) {
            others.push_back(symbol.name);
        }
    }
    Require(hasEntryPoint, fmt::format("it does not export the function {}", kEntryPoint));
    Require(others.empty(), fmt::format("it exports {} as well", fmt::join(others, ", ")));
}

void Registers(CheckContext& context) {
    const Entry entry(context);
    const std::vector<Registration> registrations = entry.Register(context, "a name");
    Require(!registrations.empty(), fmt::format("{} registered nothing", kEntryPoint));
    for (const Registration& registration : registrations) {
        Require(registration.name == "a name",
                fmt::format("{} is registered under \"{}\", not under the argument of {}",
                            NameOf(registration), registration.name, kEntryPoint));
    }
}

void RefusesNullName(CheckContext& context) {
    const Entry entry(context);
    const std::size_t before = GetRegistrations().size();
    context.Note(fmt::format("{} with a null name", kEntryPoint));
    bool refused = false;
    try {
        entry.Call(nullptr);
    } catch (const std::exception&) {
        refused = true;
    } catch (...) {
        throw CheckFailed("a null name is refused with something other than a std::exception");
    }
    Require(refused, "a null name is not refused");
    Require(GetRegistrations().size() == before, "something is registered under a null name");
}

// The key by which hosts find an element.
using Key = std::tuple<std::int32_t, std::string, std::string>;

Key KeyOf(const Registration& registration) {
    const IParametersCollectionInstance& entry = *registration.entry;
    return {entry.GetIntegerValue("class"), entry.GetStringValue("implementation"),
            entry.GetStringValue("type")};
}

std::vector<Key> KeysOf(const std::vector<Registration>& registrations) {
    std::vector<Key> keys;
    std::transform(registrations.begin(), registrations.end(), std::back_inserter(keys), KeyOf);
    return keys;
}

void RegistersAgain(CheckContext& context) {
    const Entry entry(context);
    const auto first = Prepare("it does not register, see plugin.registers",
                               [&] { return KeysOf(entry.Register(context, "first name")); });
    const auto second = KeysOf(entry.Register(context, "second name"));
    Require(first == second, fmt::format("the second call of {} registered {} elements, the first "
                                         "one {}, or others",
                                         kEntryPoint, second.size(), first.size()));
    const std::size_t removed = UnregisterFactories("first name");
    Require(removed == first.size() && UnregisterFactories("second name") == second.size(),
            "the registrations of one call are not all under its name");
}

void Unloads(CheckContext& context) {
    for (int round = 0; round < 3; ++round) {
        context.Note("loading");
        try {
            const LoadedPlugin plugin(context.Subject().plugin);
            context.Note("unloading");
        } catch (const JobError&) {
            throw NotApplicable("it cannot be loaded, see plugin.loads and plugin.registers");
        }
        // The loader keeps libraries with names that must be unique in a process, and marked ones.
        if (dlopen(context.Subject().plugin.c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr) {
            throw NotApplicable("the loader keeps it loaded; hide all symbols but RegisterAll");
        }
    }
}

void ClassAgrees(CheckContext& context) {
    RequireOfEach(context, [](const Registration& registration) -> std::string {
        const std::int32_t stated = registration.entry->GetIntegerValue("class");
        const ElementFactoryType own = registration.factory->GetFactoryType();
        if (KindOf(*registration.factory) != own) {
            return fmt::format(
                "has a factory of kind {} that is not an ElementFactory of that kind",
                GetLabel(own));
        }
        return stated == static_cast<std::int32_t>(own)
                   ? ""
                   : fmt::format("is registered as {} and its factory makes {}",
                                 GetLabel(static_cast<ElementFactoryType>(stated)), GetLabel(own));
    });
}

void HasText(CheckContext& context, const std::string& key) {
    RequireOfEach(context, [&](const Registration& registration) {
        return registration.entry->GetStringValue(key).empty() ? fmt::format("has no {}", key) : "";
    });
}

void HasType(CheckContext& context) {
    HasText(context, "type");
}

void HasImplementation(CheckContext& context) {
    HasText(context, "implementation");
}

void HasDocumentation(CheckContext& context) {
    HasText(context, "doc");
}

void HasSettings(CheckContext& context) {
    RequireOfEach(context, [](const Registration& registration) {
        return registration.entry->GetCollectionValue("init_config") == nullptr
                   ? "has no init_config"
                   : "";
    });
}

void DocumentsSettings(CheckContext& context) {
    RequireOfEach(context, [](const Registration& registration) -> std::string {
        const auto prototype = registration.entry->GetCollectionValue("init_config");
        if (prototype == nullptr) {
            throw NotApplicable("there are no settings, see registration.settings");
        }
        std::vector<std::string> names;
        for (const ParameterDescription& parameter : prototype->GetParameters()) {
            // AllocatorRef is the same in all elements.
            if (parameter.description.empty() && parameter.name != "AllocatorRef") {
                names.push_back(parameter.name);
            }
        }
        return names.empty()
                   ? ""
                   : fmt::format("does not describe its settings {}", fmt::join(names, ", "));
    });
}

void HasCoreId(CheckContext& context) {
    const std::string core = GetKELCoreIdInternal("");
    RequireOfEach(context, [&](const Registration& registration) {
        const bool isCoreId = registration.coreId.size() > core.size() &&
                              registration.coreId.compare(0, core.size(), core) == 0;
        return isCoreId ? ""
                        : fmt::format("was registered with the core id \"{}\", which "
                                      "GetKELCoreIdInternal does not return for any version",
                                      registration.coreId);
    });
}

void IsUnique(CheckContext& context) {
    std::set<Key> keys;
    RequireOfEach(context, [&](const Registration& registration) {
        return keys.insert(KeyOf(registration)).second ? "" : "is registered twice";
    });
}

// ---- Elements of every kind

// Calls a function with the kind of the element that is checked, as a constant.
template <typename Function>
void WithKind(CheckContext& context, Function function) {
    switch (KindOf(*context.Element().factory).value()) {
    case kSource:
        function(std::integral_constant<ElementFactoryType, kSource>());
        break;
    case kSink:
        function(std::integral_constant<ElementFactoryType, kSink>());
        break;
    case kAllocator:
        function(std::integral_constant<ElementFactoryType, kAllocator>());
        break;
    }
}

void IsNewEachTime(CheckContext& context) {
    WithKind(context, [&](auto kind) {
        const auto first = MakeElement<kind>(context);
        const auto second = MakeElement<kind>(context);
        Require(first != second, "the creator returns the same element twice");
    });
}

void HasManifest(CheckContext& context) {
    WithKind(context, [&](auto kind) {
        if constexpr (kind == kAllocator) {
            throw NotApplicable("an allocator has no manifest");
        } else {
            const auto element = Prepare(kCannotBeMade, [&] { return MakeElement<kind>(context); });
            const auto manifest =
                context.Call("GetManifest", [&] { return element->GetManifest(); });
            Require(manifest == context.Element().entry,
                    "GetManifest does not return the collection that the creator received");
        }
    });
}

// Returns the complete object of an interface.
template <typename Interface>
const void* WholeOf(const Interface* element) {
    return element != nullptr ? dynamic_cast<const void*>(element) : nullptr;
}

// Casts from one interface to another through the run-time type.
template <typename To, typename From>
void RequireCast(const From* element, const void* whole, const char* from, const char* to) {
    const auto* other = dynamic_cast<const To*>(element);
    Require(other != nullptr, fmt::format("{} does not lead to {}, or to several", from, to));
    Require(WholeOf(other) == whole,
            fmt::format("{} leads to the {} of another element", from, to));
}

// Casts from every interface of a list to every other.
template <typename... All>
struct Casts {
    template <typename From>
    static void RequireFrom(const From* element, const void* whole, const char* from,
                            const std::vector<const char*>& names) {
        std::size_t place = 0;
        (RequireCast<All>(element, whole, from, names[place++]), ...);
    }

    template <typename Element>
    static void Require(const Element* element, const std::vector<const char*>& names) {
        const void* whole = WholeOf(element);
        RequireFrom(element, whole, names.front(), names);
        std::size_t place = 0;
        (RequireFrom(dynamic_cast<const All*>(element), whole, names[place++], names), ...);
    }
};

void ReachesOneElement(CheckContext& context) {
    WithKind(context, [&](auto kind) {
        if constexpr (kind == kAllocator) {
            throw NotApplicable("an allocator has one interface");
        } else {
            const auto element = Prepare(kCannotBeMade, [&] { return MakeElement<kind>(context); });
            context.Note("casting");
            if constexpr (kind == kSource) {
                Casts<IAudioSource, IMediaSource, IAudioSourceControl, ISourceControl,
                      IBasicControl>::Require(element.get(), {"IAudioSource", "IMediaSource",
                                                              "IAudioSourceControl",
                                                              "ISourceControl", "IBasicControl"});
            } else {
                Casts<IAudioSink, IMediaSink, IAudioSinkControl, ISinkControl,
                      IBasicControl>::Require(element.get(),
                                              {"IAudioSink", "IMediaSink", "IAudioSinkControl",
                                               "ISinkControl", "IBasicControl"});
            }
            const auto* control = dynamic_cast<const IBasicControl*>(element.get());
            const bool isSame = context.Call(
                "GetManifest", [&] { return control->GetManifest() == element->GetManifest(); });
            Require(isSame, "both sides have a GetManifest of their own");
        }
    });
}

void MayStayUnused(CheckContext& context) {
    WithKind(context, [&](auto kind) {
        for (const bool releases : {false, true}) {
            auto element = Prepare(kCannotBeMade, [&] { return MakeElement<kind>(context); });
            if constexpr (kind != kAllocator) {
                if (releases) {
                    context.Call("Release without SetInitConfig", [&] { element->Release(); });
                }
            }
            context.Note("the destructor of an element that was not used");
            element.reset();
        }
    });
}

void AcceptsDefaultSettings(CheckContext& context) {
    WithKind(context, [&](auto kind) {
        if constexpr (kind == kAllocator) {
            throw NotApplicable("an allocator has no settings");
        } else {
            const auto element = Prepare(kCannotBeMade, [&] { return MakeElement<kind>(context); });
            const auto settings = context.MakeDefaultSettings();
            context.Try("SetInitConfig with the defaults",
                        [&] { element->SetInitConfig(settings); });
            context.Call("Release", [&] { element->Release(); });
        }
    });
}

void ReturnsBlocks(CheckContext& context) {
    const auto allocator = Prepare(kCannotBeMade, [&] { return MakeElement<kAllocator>(context); });
    std::set<std::uint8_t*> places;
    std::vector<std::shared_ptr<IMemoryBlock>> blocks;
    for (const std::uint32_t bytes : {1U, 64U, 4096U, 1048576U, 4096U}) {
        const auto block = context.Call(fmt::format("Allocate({})", bytes),
                                        [&] { return allocator->Allocate(bytes); });
        Require(block != nullptr, fmt::format("Allocate({}) returned no block", bytes));
        Require(block->GetSize() >= bytes,
                fmt::format("Allocate({}) returned a block of {} bytes", bytes, block->GetSize()));
        Require(block->GetData() != nullptr, fmt::format("Allocate({}) returned no memory", bytes));
        Require(places.insert(block->GetData()).second, "two blocks have the same memory");
        context.Note("writing into a block");
        std::fill_n(block->GetData(), block->GetSize(), std::uint8_t{1});
        blocks.push_back(block);
    }
}

void AllocatorReportsErrors(CheckContext& context) {
    context.WatchLog();
    const auto allocator = Prepare(kCannotBeMade, [&] { return MakeElement<kAllocator>(context); });
    for (const std::uint32_t bytes : {1U, 4096U}) {
        Prepare("it returns no blocks, see allocator.returns-blocks", [&] {
            context.Call(fmt::format("Allocate({})", bytes),
                         [&] { return allocator->Allocate(bytes); });
        });
    }
    context.RequireNoLoggedErrors();
}

} // namespace

std::vector<Check> PluginChecks() {
    constexpr auto kPlugin = CheckScope::Plugin;
    return {
        {"plugin.loads", "The file is a library for this machine, and all its symbols exist.",
         kPlugin, Loads},
        {"plugin.one-entry-point",
         "It exports the function RegisterAll, and nothing else except what C++ must share.",
         kPlugin, ExportsOneEntryPoint},
        {"plugin.registers", "RegisterAll registers elements, all under the name in its argument.",
         kPlugin, Registers},
        {"plugin.null-name",
         "RegisterAll refuses a null name with a std::exception and registers nothing.", kPlugin,
         RefusesNullName},
        {"plugin.registers-again", "A second RegisterAll registers the same elements once more.",
         kPlugin, RegistersAgain},
        {"plugin.unloads", "It can be unloaded and loaded again.", kPlugin, Unloads},
        {"registration.class", "The class of each registration is what its factory makes.", kPlugin,
         ClassAgrees},
        {"registration.type", "Each registration has a type.", kPlugin, HasType},
        {"registration.implementation", "Each registration has an implementation name.", kPlugin,
         HasImplementation},
        {"registration.documentation", "Each registration has a documentation text.", kPlugin,
         HasDocumentation},
        {"registration.settings", "Each registration has the prototype of its element's settings.",
         kPlugin, HasSettings},
        {"registration.documented-settings", "Each setting has a description.", kPlugin,
         DocumentsSettings},
        {"registration.core-id",
         "Each registration has a core id that GetKELCoreIdInternal returns for a version.",
         kPlugin, HasCoreId},
        {"registration.unique",
         "No two registrations have the same class, implementation and type.", kPlugin, IsUnique},
    };
}

std::vector<Check> ElementChecks() {
    constexpr auto kElement = CheckScope::Element;
    return {
        {"element.new-each-time", "The creator makes a new element each time.", kElement,
         IsNewEachTime},
        {"element.manifest", "GetManifest returns the collection that the creator received.",
         kElement, HasManifest},
        {"element.one-element", "Every interface leads to every other, and to the same element.",
         kElement, ReachesOneElement},
        {"element.unused", "An element that is not used, or only released, is destroyed cleanly.",
         kElement, MayStayUnused},
        {"element.default-settings",
         "SetInitConfig accepts settings in which nothing is set, or refuses them with an error.",
         kElement, AcceptsDefaultSettings},
        {"allocator.returns-blocks", "Allocate returns blocks of the requested size.",
         CheckScope::Allocator, ReturnsBlocks},
        {"allocator.reports-errors", kReportsErrors, CheckScope::Allocator, AllocatorReportsErrors},
    };
}

} // namespace kel::host
