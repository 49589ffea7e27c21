/// Data side of a media sink: configuration, input, samples.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup sinks
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

/// Data side of any media sink.
///
/// Order of calls: SetInitConfig, ISinkControl::Open if the configuration names no path,
/// optionally CheckInputAndAdaptIfNecessary, DefineInput, PushSample for each sample, and at the
/// end ISinkControl::Close or Release: without it a sink may leave its medium unfinished.
class KEL_CORE_EXPORT IMediaSink {
public:
    virtual ~IMediaSink();

    /// Writes the samples of a container. Without an input, and when it cannot write, a sink throws
    /// or writes a record at level Error.
    /// [open, one thread]
    /// @throws KELRuntimeError when the sink does not accept the container
    virtual void PushSample(std::shared_ptr<const ISampleContainer> container) = 0;

    /// Describes the samples that follow; a sink that writes creates its medium here.
    /// [closed, one thread]
    /// @param input the description of the samples that will be pushed, shared with the sink
    /// @param name the name of the input; sinks with one input ignore it
    /// @throws KELRuntimeError when the input is refused or the medium cannot be created
    virtual void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) = 0;

    /// Returns the description that DefineInput accepted last; empty before.
    /// [any, one thread, does not throw]
    /// @param name the name of the input; sinks with one input ignore it
    virtual std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string name) const = 0;

    /// Passes the sink an object to pull its samples from.
    /// [any, one thread]
    /// @param mediator an object of the host, shared with the sink
    /// @param input the name of the input
    /// @param name the name of the mediator in the host
    /// @throws KELRuntimeError if the sink does not pull
    virtual void SetInputMediator(std::shared_ptr<IInputMediator> mediator, std::string input,
                                  std::string name) = 0;

    /// Asks a sink that waits to stop waiting. Others do nothing.
    /// [any, one thread, does not throw]
    virtual void Interrupt() = 0;

    /// Drops the samples that are not written yet. Without any it does nothing.
    /// [any, one thread, does not throw]
    virtual void ClearInternalBuffer() = 0;

    /// Passes the element its settings; must be called once before the element is used.
    /// [closed, one thread]
    /// @param config an instance of the registry entry's "init_config" prototype, shared with the
    /// element from now on
    /// @throws KELRuntimeError when the settings cannot be read
    virtual void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) = 0;

    /// Reports whether the sink would accept an input. Changes nothing.
    /// [any, one thread]
    /// @param input the description of the samples that would be pushed
    /// @param name the name of the input; sinks with one input ignore it
    /// @throws KELRuntimeError when the input cannot be judged at all
    virtual std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string name) const = 0;

    /// See IBasicControl::GetManifest; one function of the element overrides both.
    /// [any, one thread, does not throw]
    virtual std::shared_ptr<const IParametersCollectionInstance> GetManifest() const = 0;

    /// Finishes and releases the medium. Without one it does nothing.
    /// [any, one thread]
    /// @throws KELRuntimeError when the medium is not complete; see ISinkControl::Close
    virtual void Release() = 0;
};

} // namespace kel
