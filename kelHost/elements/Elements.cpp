#include "elements/Elements.h"

#include "base/Errors.h"

#include <PlatformString.h>
#include <Registry.h>
#include <WrapperFormat.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kBlockFrames = "MaxSamplesPerBuffer";

ElementRecipe RecipeFor(ElementFactoryType kind, const std::string& type, const std::string& path) {
    ElementRecipe recipe{FindImplementation(kind, type), type, nullptr};
    recipe.settings = CreateParametersCollectionInstance(
        GetManifest(kind, recipe.implementation, type)->GetCollectionValue("init_config"));
    SetFilePath(*recipe.settings, path);
    return recipe;
}

bool SourceHasSetting(const ElementRecipe& recipe, std::string_view name, ParameterKind kind) {
    const auto declared =
        GetManifest(ElementFactoryType::AudioSource, recipe.implementation, recipe.type)
            ->GetCollectionValue("init_config")
            ->GetParameters();
    return std::any_of(declared.begin(), declared.end(),
                       [&](const ParameterDescription& parameter) {
                           return parameter.name == name && parameter.kind == kind;
                       });
}

// The name by which hosts find an element: the number of its kind, its implementation, its type.
using ElementKey = std::tuple<std::int32_t, std::string, std::string>;

ElementKey KeyOf(const IParametersCollectionInstance& entry) {
    return {entry.GetIntegerValue("class"), entry.GetStringValue("implementation"),
            entry.GetStringValue("type")};
}

// An element of one plug-in that another one registers, too.
struct Duplicate {
    std::int32_t kind;
    std::string implementation;
    std::string used;   // the plug-in of the element that is used
    std::string unused; // the other plug-in
    std::vector<std::string> types;

    bool IsSameAs(const Duplicate& other) const {
        return kind == other.kind && implementation == other.implementation && used == other.used &&
               unused == other.unused;
    }
};

} // namespace

// A file may be called "-", which libraries take for standard input.
void SetFilePath(IParametersCollectionInstance& settings, const std::string& path) {
    settings.SetWideStringValue(kFilePath,
                                ConvertPlatformStringToWideString(path == "-" ? "./-" : path));
}

void SetBlockFrames(IParametersCollectionInstance& settings, std::uint32_t frames) {
    settings.SetIntegerValue(kBlockFrames, static_cast<std::int32_t>(frames));
}

std::optional<std::uint32_t> BlockFramesIn(const ElementRecipe& recipe) {
    return SourceHasSetting(recipe, kBlockFrames, ParameterKind::Integer)
               ? std::optional(
                     static_cast<std::uint32_t>(recipe.settings->GetIntegerValue(kBlockFrames)))
               : std::nullopt;
}

bool ReadsFile(const ElementRecipe& recipe) {
    return SourceHasSetting(recipe, kFilePath, ParameterKind::String) &&
           !recipe.settings->GetWideStringValue(kFilePath).empty();
}

std::string TypeForReading(const std::string& path) {
    const Container* container = ContainerByExtension(path);
    return GetLabel(container != nullptr ? container->format : WrapperFormat::WAVE);
}

ElementRecipe FileSource(const FileName& file, std::uint32_t blockFrames) {
    ElementRecipe recipe =
        RecipeFor(ElementFactoryType::AudioSource, TypeForReading(file.shown), file.path);
    SetBlockFrames(*recipe.settings, blockFrames);
    return recipe;
}

ElementRecipe FileSink(const Container& container, const std::string& path) {
    return RecipeFor(ElementFactoryType::AudioSink, GetLabel(container.format), path);
}

std::string FindImplementation(ElementFactoryType kind, const std::string& type) {
    for (const Registration& registration : GetRegistrations()) {
        const IParametersCollectionInstance& entry = *registration.entry;
        if (entry.GetIntegerValue("class") == static_cast<std::int32_t>(kind) &&
            entry.GetStringValue("type") == type) {
            return entry.GetStringValue("implementation");
        }
    }
    throw JobError(
        fmt::format("no plug-in has an {} for {}; see kelhost inspect", GetLabel(kind), type));
}

std::vector<std::string> DescribeDuplicates() {
    std::map<ElementKey, std::string> plugins;
    std::vector<Duplicate> duplicates;
    for (const Registration& registration : GetRegistrations()) {
        const ElementKey key = KeyOf(*registration.entry);
        const std::string& used = plugins.emplace(key, registration.name).first->second;
        if (used == registration.name) {
            continue;
        }
        const auto& [kind, implementation, type] = key;
        const Duplicate duplicate{kind, implementation, used, registration.name, {type}};
        const auto known =
            std::find_if(duplicates.begin(), duplicates.end(),
                         [&](const Duplicate& other) { return other.IsSameAs(duplicate); });
        if (known == duplicates.end()) {
            duplicates.push_back(duplicate);
        } else {
            known->types.push_back(type);
        }
    }
    std::vector<std::string> texts;
    for (const Duplicate& duplicate : duplicates) {
        texts.push_back(fmt::format(
            "{}: its {} {} for {} is not used, because {} registers it, too", duplicate.unused,
            GetLabel(static_cast<ElementFactoryType>(duplicate.kind)), duplicate.implementation,
            fmt::join(duplicate.types, ", "), duplicate.used));
    }
    return texts;
}

} // namespace kel::host
