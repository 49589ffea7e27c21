/// The registration of the plug-in's elements with the framework.
#pragma once

#include <memory>

namespace kel {

class IParametersCollectionInstance;
class LibsndfileSink;
class LibsndfileSource;

/// Makes a closed source. Any thread may call it.
/// @param config the element's manifest, shared; nothing is read from it here
std::shared_ptr<LibsndfileSource>
CreateLibsndfileSource(std::shared_ptr<const IParametersCollectionInstance> config);

/// Makes a sink without a file. Any thread may call it.
/// @param config the element's manifest, shared; nothing is read from it here
std::shared_ptr<LibsndfileSink>
CreateLibsndfileSink(std::shared_ptr<const IParametersCollectionInstance> config);

/// Registers the source for AIFF, WAVE and BWAVE.
/// @param name the name passed to RegisterAll
/// @throws std::logic_error if @p name is null, and the exceptions of the framework. Earlier
/// registrations stay.
void RegisterLibsndfileSource(const char* name);

/// Registers the sink for Unknown, AIFF, WAVE, BWAVE and RAW.
/// @param name the name passed to RegisterAll
/// @throws as RegisterLibsndfileSource
void RegisterLibsndfileSink(const char* name);

} // namespace kel

/// The plug-in's entry point: registers the source, then the sink. A host calls it once after
/// loading the library; a second call registers everything a second time.
/// @param name the host's name for the registrations; not null
/// @throws as RegisterLibsndfileSource
extern "C" __attribute__((visibility("default"))) void RegisterAll(const char* name);
