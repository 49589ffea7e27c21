/// Factories: what plug-ins register and hosts make elements with.
#pragma once

#include "ElementFactoryType.h"
#include "Export.h"

#include <functional>
#include <memory>
#include <utility>

namespace kel {

class IParametersCollectionInstance;

/// Base of all factories. Immutable; any thread may use it.
class KEL_CORE_EXPORT IElementFactory {
public:
    virtual ~IElementFactory();

    /// The kind of element that the factory makes.
    virtual ElementFactoryType GetFactoryType() const = 0;
};

/// Makes elements of one kind.
template <ElementFactoryType T>
class KEL_CORE_EXPORT ElementFactory : public IElementFactory {
public:
    /// Makes a new element from its manifest. Each call makes another one, owned by whoever called.
    using Creator =
        std::function<std::shared_ptr<typename ElementFactoryType_traits<T>::InstanceType>(
            std::shared_ptr<const IParametersCollectionInstance>)>;

    /// @param function kept as the creator; an empty one fails when it is called
    explicit ElementFactory(Creator function) : creator(std::move(function)) {}

    ElementFactoryType GetFactoryType() const override { return T; }

    const Creator creator; ///< may be called from any thread if the function allows it
};

// Instantiated in kelCore, so that the type information that run-time casts rely on exists once.
extern template class KEL_CORE_EXPORT ElementFactory<ElementFactoryType::AudioSource>;
extern template class KEL_CORE_EXPORT ElementFactory<ElementFactoryType::AudioSink>;
extern template class KEL_CORE_EXPORT ElementFactory<ElementFactoryType::MemoryBlockAllocator>;

} // namespace kel
