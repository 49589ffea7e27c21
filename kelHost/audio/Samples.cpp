#include "audio/Samples.h"

#include <IAudioSample.h>
#include <IBuffer.h>

#include <memory>

namespace kel::host {

std::shared_ptr<const IAudioSample> AudioSampleIn(const ISampleContainer& container) {
    return container.GetAudioSamples(nullptr, nullptr).at(0);
}

FloatView FloatsIn(const ISampleContainer& container) {
    const std::shared_ptr<const IBuffer> buffer = AudioSampleIn(container)->GetBuffer();
    return {static_cast<const float*>(static_cast<const void*>(buffer->GetData())),
            buffer->GetSize() / sizeof(float)};
}

} // namespace kel::host
