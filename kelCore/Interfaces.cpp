// The destructors of all interfaces. They are defined here so that only this library contains the
// type information of an interface.

#include "kelCore.h"

namespace kel {

ILoggerWriter::~ILoggerWriter() = default;
IMilestone::~IMilestone() = default;

IBasicControl::~IBasicControl() = default;
ISourceControl::~ISourceControl() = default;
IAudioSourceControl::~IAudioSourceControl() = default;
IMediaSource::~IMediaSource() = default;
IAudioSource::~IAudioSource() = default;
ISinkControl::~ISinkControl() = default;
IAudioSinkControl::~IAudioSinkControl() = default;
IMediaSink::~IMediaSink() = default;
IAudioSink::~IAudioSink() = default;
IOutputMediator::~IOutputMediator() = default;
IInputMediator::~IInputMediator() = default;

IInfo::~IInfo() = default;
IAudioInfo::~IAudioInfo() = default;
IEncodingParameters::~IEncodingParameters() = default;
IAudioParameters::~IAudioParameters() = default;
IAudioParameters_PCM::~IAudioParameters_PCM() = default;
IChannelInfo::~IChannelInfo() = default;
ITrack::~ITrack() = default;
ITrackGroup::~ITrackGroup() = default;
IInfoContainer::~IInfoContainer() = default;
IPackagingInfo::~IPackagingInfo() = default;
IMetadata::~IMetadata() = default;
IClockInfo::~IClockInfo() = default;
ICheckInputReport::~ICheckInputReport() = default;

ISample::~ISample() = default;
IAudioSample::~IAudioSample() = default;
ISampleContainer::~ISampleContainer() = default;
IBuffer::~IBuffer() = default;
IMemoryBlock::~IMemoryBlock() = default;
IMemoryBlockAllocator::~IMemoryBlockAllocator() = default;

IStep::~IStep() = default;
IElementFactory::~IElementFactory() = default;
IParametersCollectionPrototype::~IParametersCollectionPrototype() = default;
IParametersCollectionInstance::~IParametersCollectionInstance() = default;

template class ElementFactory<ElementFactoryType::AudioSource>;
template class ElementFactory<ElementFactoryType::AudioSink>;
template class ElementFactory<ElementFactoryType::MemoryBlockAllocator>;

} // namespace kel
