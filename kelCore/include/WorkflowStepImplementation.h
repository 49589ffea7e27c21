/// Creation of elements by name.
/// Any thread may call the function.
/// @ingroup making
#pragma once

#include "Checks.h"
#include "ElementFactory.h"
#include "ElementFactoryType.h"
#include "IStep.h"
#include "KELRuntimeError.h"
#include "Logging.h"
#include "Milestone.h"
#include "ParametersCollection.h"
#include "Registry.h"

#include <exception>
#include <memory>
#include <string>
#include <utility>

namespace kel {

/// Makes a new element of kind @p T through the registry, with one record at level
/// Milestone.
///
/// A template in a header, so that it is part of the library of the caller.
/// @param implementation the element's implementation name
/// @param type the label of the format
/// @param step the step that the element is made for; not used
/// @return what the factory's creator returns
/// @throws KELRuntimeError when the element cannot be made: its message names the kind,
/// implementation and type, and has the reason in its second line. A reason that is a failed check
/// is logged first, then the whole message, both at level Error. Other objects than a
/// std::exception pass unchanged.
template <ElementFactoryType T>
std::shared_ptr<typename ElementFactoryType_traits<T>::InstanceType>
ImplementElement(const std::string& implementation, const std::string& type,
                 [[maybe_unused]] std::shared_ptr<const IStep> step) {
    const std::string operation =
        "ImplementElement " + GetLabel(T) + "." + implementation + "." + type;
    KEL_LOG(LogLevel::Milestone, "[MILESTONE][" << operation << "]");
    std::shared_ptr<IMilestone> milestone = CreateMilestone(operation);
    try {
        // Held inside the block, so that it ends before a failure is reported.
        const std::shared_ptr<IMilestone> running = std::move(milestone);

        const std::shared_ptr<IElementFactory> factory = GetFactory(T, implementation, type);
        // Intentional: the text names the registry entry, because a host adds the factory with it.
        KEL_CHECK_POINTER(factory, "registryEntry");
        const std::shared_ptr<const IParametersCollectionInstance> manifest =
            GetManifest(T, implementation, type);
        KEL_CHECK_POINTER(manifest, "manifest");
        const auto typedFactory = std::dynamic_pointer_cast<ElementFactory<T>>(factory);
        KEL_CHECK_POINTER(typedFactory, "factory");
        return typedFactory->creator(manifest);
    } catch (const std::exception& error) {
        const std::string message = "can not implement " + GetLabel(T) + " with implementation=\"" +
                                    implementation + "\" and type=\"" + type + "\"\n" +
                                    error.what();
        KEL_LOG(LogLevel::Error, message);
        throw KELRuntimeError(message);
    }
}

} // namespace kel
