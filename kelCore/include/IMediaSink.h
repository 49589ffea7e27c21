/// Data side of a media sink: configuration, input, samples.
#pragma once

#include "Export.h"

#include <memory>
#include <string>

namespace kel {

class ICheckInputReport;
class IInfoContainer;
class IInputMediator;
class IParametersCollectionInstance;
class ISampleContainer;

/// Data side of any media sink. One thread at a time drives an element; it may be another thread at
/// each call.
///
/// Order of calls: SetInitConfig, ISinkControl::Open if the configuration names no path,
/// CheckInputAndAdaptIfNecessary if wanted, DefineInput, PushSample for each sample, and at the end
/// ISinkControl::Close or Release: a sink may leave its medium unfinished without it.
class KEL_CORE_EXPORT IMediaSink {
public:
    virtual ~IMediaSink();

    /// Writes the samples of a container.
    /// @throws KELRuntimeError when the container is not one that the sink takes
    virtual void PushSample(std::shared_ptr<const ISampleContainer> container) = 0;

    /// Tells the sink what it will receive; a sink that writes creates its medium here.
    /// @param input the description of what will be pushed, shared with the sink
    /// @param name the input that is meant; sinks with one input ignore it
    /// @throws KELRuntimeError when the input is refused or the medium cannot be created
    virtual void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) = 0;

    /// Returns what DefineInput accepted last; empty before.
    /// @param name the input that is meant; sinks with one input ignore it
    virtual std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string name) const = 0;

    /// Hands the sink an object to pull its samples from.
    /// @param mediator the host's object, shared with the sink
    /// @param input the input that is meant
    /// @param name what the host calls it
    /// @throws KELRuntimeError where the sink is only pushed to
    virtual void SetInputMediator(std::shared_ptr<IInputMediator> mediator, std::string input,
                                  std::string name) = 0;

    /// Asks a sink that waits to stop waiting.
    virtual void Interrupt() = 0;

    /// Drops what the sink has not written yet.
    virtual void ClearInternalBuffer() = 0;

    /// Gives the element its settings; must be called once before the element is used.
    /// @param config an instance of the registry entry's "init_config" prototype, shared with the
    /// element from here on
    /// @throws KELRuntimeError when the settings cannot be read
    virtual void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) = 0;

    /// Says whether the sink would take an input. Changes nothing.
    /// @param input the description of what would be pushed
    /// @param name the input that is meant; sinks with one input ignore it
    /// @throws KELRuntimeError when the input cannot be judged at all
    virtual std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string name) const = 0;

    /// See IBasicControl::GetManifest; one operation of the element answers both.
    virtual std::shared_ptr<const IParametersCollectionInstance> GetManifest() const = 0;

    /// Gives up the medium, finished as far as it was written. Without one it does nothing.
    virtual void Release() = 0;
};

} // namespace kel
