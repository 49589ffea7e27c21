/// Data side of a media source: configuration, description, samples.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup sources
#pragma once

#include "Export.h"

#include <memory>
#include <string>

namespace kel {

class IInfoContainer;
class IOutputMediator;
class IParametersCollectionInstance;
class ISampleContainer;

/// Data side of any media source.
class KEL_CORE_EXPORT IMediaSource {
public:
    virtual ~IMediaSource();

    /// Returns the description of the samples of an output.
    /// [any, one thread, does not throw]
    /// @param name the name of the output; sources with one output ignore it
    /// @return a container with the description; empty without an open medium
    virtual std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string name) const = 0;

    /// Delivers the next run of media.
    /// [open, one thread]
    /// @return the next samples, owned by the caller; an empty handle after the last, without an
    /// open medium, and while no output is active
    /// @throws KELRuntimeError when the medium cannot be read, or an object of the framework cannot
    /// be created
    virtual std::shared_ptr<const ISampleContainer> GetSample() = 0;

    /// Asks a source that waits to stop waiting. Others do nothing.
    /// [any, one thread, does not throw]
    virtual void Interrupt() = 0;

    /// Passes the element its settings; must be called once before the element is used.
    /// [closed, one thread]
    /// @param config an instance of the registry entry's "init_config" prototype, shared with the
    /// element from now on
    /// @throws KELRuntimeError when the settings cannot be read, or the medium that they name
    /// cannot be opened
    virtual void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) = 0;

    /// Passes the source an object to push its samples to. Sources that do not push ignore it.
    /// [any, one thread]
    /// @param mediator an object of the host, shared with the source
    /// @param output the name of the output
    /// @param name the name of the mediator in the host
    /// @throws KELRuntimeError if the source pushes and refuses the mediator
    virtual void SetOutputMediator(std::shared_ptr<IOutputMediator> mediator, std::string output,
                                   std::string name) = 0;

    /// Drops the samples that were read ahead. Without any it does nothing.
    /// [any, one thread, does not throw]
    virtual void ClearInternalBuffer() = 0;

    /// See IBasicControl::GetManifest; one function of the element overrides both.
    /// [any, one thread, does not throw]
    virtual std::shared_ptr<const IParametersCollectionInstance> GetManifest() const = 0;

    /// Releases the medium. Without one it does nothing.
    /// [any, one thread, does not throw]
    virtual void Release() = 0;
};

} // namespace kel
