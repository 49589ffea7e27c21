/// Factories, which plug-ins register and hosts use to make elements.
/// Immutable: any thread may use a factory as far as the function in it allows.
/// @ingroup registration
#pragma once

#include "ElementFactoryType.h"
#include "Export.h"

#include <functional>
#include <memory>
#include <utility>

namespace kel {

class IParametersCollectionInstance;

/// Base of all factories.
class KEL_CORE_EXPORT IElementFactory {
public:
    virtual ~IElementFactory();

    /// Returns the kind of element that the factory makes.
    /// [any, any thread, does not throw]
    virtual ElementFactoryType GetFactoryType() const = 0;
};

/// Makes elements of one kind.
template <ElementFactoryType T>
class KEL_CORE_EXPORT ElementFactory : public IElementFactory {
public:
    /// Makes a new element from its manifest. Each call makes another one, owned by the
    /// caller.
    using Creator =
        std::function<std::shared_ptr<typename ElementFactoryType_traits<T>::InstanceType>(
            std::shared_ptr<const IParametersCollectionInstance>)>;

    /// @param function kept as the creator; an empty one throws std::bad_function_call when called
    explicit ElementFactory(Creator function) : creator(std::move(function)) {}

    ElementFactoryType GetFactoryType() const override { return T; }

    const Creator creator; ///< called on the thread that needs an element
};

// Instantiated in kelCore, so that the type information that run-time casts rely on exists once.
extern template class KEL_CORE_EXPORT ElementFactory<ElementFactoryType::AudioSource>;
extern template class KEL_CORE_EXPORT ElementFactory<ElementFactoryType::AudioSink>;
extern template class KEL_CORE_EXPORT ElementFactory<ElementFactoryType::MemoryBlockAllocator>;

} // namespace kel
