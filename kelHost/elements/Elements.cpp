#include "elements/Elements.h"

#include "base/Errors.h"

#include <PlatformString.h>
#include <Registry.h>
#include <WrapperFormat.h>

#include <fmt/format.h>

#include <cstdint>
#include <memory>
#include <string>

namespace kel::host {

namespace {

ElementRecipe RecipeFor(ElementFactoryType kind, const std::string& type, const std::string& path) {
    ElementRecipe recipe{FindImplementation(kind, type), type, nullptr};
    recipe.settings = CreateParametersCollectionInstance(
        GetManifest(kind, recipe.implementation, type)->GetCollectionValue("init_config"));
    SetFilePath(*recipe.settings, path);
    return recipe;
}

} // namespace

// A file may be called "-", which libraries take for standard input.
void SetFilePath(IParametersCollectionInstance& settings, const std::string& path) {
    settings.SetWideStringValue(kFilePath,
                                ConvertPlatformStringToWideString(path == "-" ? "./-" : path));
}

std::string TypeForReading(const std::string& path) {
    const Container* container = ContainerByExtension(path);
    return GetLabel(container != nullptr ? container->format : WrapperFormat::WAVE);
}

ElementRecipe FileSource(const FileName& file, std::uint32_t blockFrames) {
    ElementRecipe recipe =
        RecipeFor(ElementFactoryType::AudioSource, TypeForReading(file.shown), file.path);
    recipe.settings->SetIntegerValue("MaxSamplesPerBuffer", static_cast<std::int32_t>(blockFrames));
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

} // namespace kel::host
