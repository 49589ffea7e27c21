/// Kinds of elements, and the interface of each kind.
/// A plain value: any thread may use its own copy.
/// @ingroup registration
#pragma once

#include "Export.h"

#include <cstdint>
#include <string>

namespace kel {

class IAudioSource;
class IAudioSink;
class IMemoryBlockAllocator;

/// Kind of element that a factory makes. Registry entries store the value under "class".
enum class ElementFactoryType : std::int32_t {
    AudioSource = 2,           ///< held as IAudioSource
    AudioSink = 3,             ///< held as IAudioSink
    MemoryBlockAllocator = 23, ///< held as IMemoryBlockAllocator
};

/// Maps an element kind to the interface (`InstanceType`) that its factories return.
template <ElementFactoryType T>
struct ElementFactoryType_traits;

/// Audio sources.
template <>
struct ElementFactoryType_traits<ElementFactoryType::AudioSource> {
    using InstanceType = IAudioSource; ///< interface of these elements
};

/// Audio sinks.
template <>
struct ElementFactoryType_traits<ElementFactoryType::AudioSink> {
    using InstanceType = IAudioSink; ///< interface of these elements
};

/// Allocators of memory blocks.
template <>
struct ElementFactoryType_traits<ElementFactoryType::MemoryBlockAllocator> {
    using InstanceType = IMemoryBlockAllocator; ///< interface of these elements
};

/// Returns the label of an element kind: "AudioSource", "AudioSink" or "MemoryBlockAllocator";
/// "ElementFactoryType(N)" for a value N without a name. The labels are stable: hosts may compare
/// them and display them. Any thread may call it.
KEL_CORE_EXPORT std::string GetLabel(ElementFactoryType type);

} // namespace kel
