#include "kelLibsndfileRegistration.h"

#include "LibsndfileSink.h"
#include "LibsndfileSource.h"

#include <Checks.h>
#include <ElementFactory.h>
#include <ElementFactoryType.h>
#include <ParametersCollection.h>
#include <Registry.h>
#include <WrapperFormat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

constexpr const char* kPluginVersion = "0.7.16.249.80659";

// Intentional: the documentation names the library by the names that users of two platforms know,
// and keeps the spacing that hosts compare it with.
constexpr const char* kSourceDocumentation =
    "This source allows loading PCM audio data from various file formats. The type attribute of "
    "the node describes the file format to read. Choices are WAVE, BWAVE (for RF64) and AIFF.\n"
    "Please note that you should load libkelLibsndFile.so/kelLibsndFile.dll to be able to use this "
    "source.This source is not available on Windows at the moment.";

constexpr const char* kSinkDocumentation =
    "This sink  allows writing PCM audio data to various file formats. The type attribute of the "
    "node describes the file format to write. Choices are WAVE, BWAVE (actually RF64), AIFF and "
    "RAW (without header). If you set its value to Unknown, the sink will try to guess the file "
    "type from the extension.\n"
    "Please note that you should load libkelLibsndFile.so/kelLibsndFile.dll to be able to use this "
    "sink.This sink is not available on Windows at the moment.";

// The differences between the registrations of the two elements.
struct ElementDescription {
    const char* implementation;
    const char* documentation;
    std::vector<WrapperFormat> formats;
};

// Registers each format with a factory and an entry of its own; all share the prototype of the
// settings.
// Intentional: each call registers everything again, because the host decides about duplicates.
template <ElementFactoryType T>
void RegisterElement(const char* name, const ElementDescription& element,
                     const std::shared_ptr<const IParametersCollectionPrototype>& prototype,
                     const typename ElementFactory<T>::Creator& creator) {
    const auto entryPrototype = GetRegistryEntryPrototype();
    for (const WrapperFormat format : element.formats) {
        auto entry = CreateParametersCollectionInstance(entryPrototype);
        entry->SetIntegerValue("class", static_cast<std::int32_t>(T));
        entry->SetStringValue("type", GetLabel(format));
        entry->SetStringValue("implementation", element.implementation);
        entry->SetStringValue("doc", element.documentation);
        entry->SetCollectionValue("init_config", prototype);
        auto factory = std::make_shared<ElementFactory<T>>(creator);
        std::string coreId = GetKELCoreIdInternal(kPluginVersion);
        RegisterFactory(std::string(name), std::move(coreId), std::move(factory), std::move(entry));
    }
}

} // namespace

std::shared_ptr<LibsndfileSource>
CreateLibsndfileSource(std::shared_ptr<const IParametersCollectionInstance> config) {
    auto source = std::make_shared<LibsndfileSource>(std::move(config));
    KEL_CHECK_POINTER(source, "can not create LibsndfileSource");
    return source;
}

std::shared_ptr<LibsndfileSink>
CreateLibsndfileSink(std::shared_ptr<const IParametersCollectionInstance> config) {
    auto sink = std::make_shared<LibsndfileSink>(std::move(config));
    KEL_CHECK_POINTER(sink, "can not create LibsndfileSink");
    return sink;
}

void RegisterLibsndfileSource(const char* name) {
    auto prototype = CreateParametersCollectionPrototype();
    prototype->AddStringParameter("FilePath", "Path to the file to open");
    prototype->AddIntegerParameter(
        "MaxSamplesPerBuffer", 1024,
        "Maximum number of samples that will be returned in each buffer. Configurable.");
    prototype->AddStringParameterWithDefault("AllocatorRef", "", "");

    // Intentional: the order is that of a host's list, in which the first format is the default.
    RegisterElement<ElementFactoryType::AudioSource>(
        name,
        {"kel.LibsndfileSource",
         kSourceDocumentation,
         {WrapperFormat::AIFF, WrapperFormat::WAVE, WrapperFormat::BWAVE}},
        prototype, CreateLibsndfileSource);
}

void RegisterLibsndfileSink(const char* name) {
    auto prototype = CreateParametersCollectionPrototype();
    // Intentional: unlike that of the source, this description ends with a period, which hosts
    // show.
    prototype->AddStringParameter("FilePath", "Path to the file to write.");
    prototype->AddStringParameterWithDefault("AllocatorRef", "", "");

    RegisterElement<ElementFactoryType::AudioSink>(
        name,
        {"kel.LibsndfileSink",
         kSinkDocumentation,
         {WrapperFormat::Unknown, WrapperFormat::AIFF, WrapperFormat::WAVE, WrapperFormat::BWAVE,
          WrapperFormat::RAW}},
        prototype, CreateLibsndfileSink);
}

} // namespace kel

// Intentional: a null name is not checked, so that it fails like every other bad call of the host.
// Intentional: the source comes first, because hosts search the registrations in this order.
void RegisterAll(const char* name) {
    kel::RegisterLibsndfileSource(name);
    kel::RegisterLibsndfileSink(name);
}
