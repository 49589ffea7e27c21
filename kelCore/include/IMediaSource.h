/// Data side of a media source: configuration, description, samples.
#pragma once

#include "Export.h"

#include <memory>
#include <string>

namespace kel {

class IInfoContainer;
class IOutputMediator;
class IParametersCollectionInstance;
class ISampleContainer;

/// Data side of any media source. One thread at a time drives an element; it may be another thread
/// at each call.
class KEL_CORE_EXPORT IMediaSource {
public:
    virtual ~IMediaSource();

    /// Returns the description of what an output delivers.
    /// @param name the output; sources with one output ignore it
    /// @return a container with the description; empty without an open medium
    virtual std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string name) const = 0;

    /// Delivers the next run of media.
    /// @return the next samples, owned by the caller; an empty handle when nothing more is
    /// delivered
    /// @throws whatever the framework's creation functions throw
    virtual std::shared_ptr<const ISampleContainer> GetSample() = 0;

    /// Asks a source that waits to stop waiting.
    virtual void Interrupt() = 0;

    /// Gives the element its settings; must be called once before the element is used.
    /// @param config an instance of the registry entry's "init_config" prototype, shared with the
    /// element from here on
    /// @throws KELRuntimeError when the settings cannot be read, or the medium that they name can
    /// not be opened
    virtual void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) = 0;

    /// Hands the source an object to push its samples to.
    /// @param mediator the host's object, shared with the source
    /// @param output the output that is meant
    /// @param name what the host calls it
    virtual void SetOutputMediator(std::shared_ptr<IOutputMediator> mediator, std::string output,
                                   std::string name) = 0;

    /// Drops what the source has read ahead.
    virtual void ClearInternalBuffer() = 0;

    /// See IBasicControl::GetManifest; one operation of the element answers both.
    virtual std::shared_ptr<const IParametersCollectionInstance> GetManifest() const = 0;

    /// Gives up the medium. Without one it does nothing.
    virtual void Release() = 0;
};

} // namespace kel
