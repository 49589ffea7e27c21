/// Named parameters: prototypes that declare them and instances that hold values.
/// One thread fills a prototype or an instance; once shared as const, any number may read it.
///
/// Names are compared exactly.
/// @ingroup settings
#pragma once

#include "Export.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kel {

class IParametersCollectionPrototype;

/// Kind of a parameter's value. The order is that of the alternatives of ParameterValue.
enum class ParameterKind : std::int32_t {
    Integer,    ///< a signed 32-bit integer
    String,     ///< a text, kept as UTF-8
    Collection, ///< the prototype of another collection
};

/// Returns the word for a kind: "integer", "string" or "collection". Any thread may call it.
KEL_CORE_EXPORT std::string ToString(ParameterKind kind);

/// The value of a parameter of any kind.
using ParameterValue =
    std::variant<std::int32_t, std::string, std::shared_ptr<const IParametersCollectionPrototype>>;

/// Declaration of one parameter in a prototype.
struct ParameterDescription {
    std::string name;                           ///< unique in its prototype
    ParameterKind kind = ParameterKind::String; ///< the kind of its value
    std::string description;                    ///< for users
    /// The value of the parameter while it is not set. Without one, a string is the empty text, an
    /// integer is 0 and a collection is an empty handle.
    std::optional<ParameterValue> defaultValue;
};

/// A schema of named parameters. Each add operation declares one more.
class KEL_CORE_EXPORT IParametersCollectionPrototype {
public:
    virtual ~IParametersCollectionPrototype();

    /// Declares a string without a default.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p name is empty or declared already
    virtual void AddStringParameter(std::string_view name, std::string_view description) = 0;

    /// Declares a string with a default.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p name is empty or declared already
    virtual void AddStringParameterWithDefault(std::string_view name, std::string_view defaultValue,
                                               std::string_view description) = 0;

    /// Declares an integer with a default.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p name is empty or declared already
    virtual void AddIntegerParameter(std::string_view name, std::int32_t defaultValue,
                                     std::string_view description) = 0;

    /// Declares a parameter that holds the prototype of another collection.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p name is empty or declared already
    virtual void AddCollectionParameter(std::string_view name, std::string_view description) = 0;

    /// Returns the parameters in the order of their declaration.
    /// [any, any thread, does not throw]
    virtual std::vector<ParameterDescription> GetParameters() const = 0;
};

/// A set of values for the parameters of one prototype. A parameter that was never set has its
/// default. The message of a refused name has the name and both kinds.
class KEL_CORE_EXPORT IParametersCollectionInstance {
public:
    virtual ~IParametersCollectionInstance();

    /// Sets an integer.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p name is not declared, or as another kind
    virtual void SetIntegerValue(std::string_view name, std::int32_t value) = 0;

    /// Sets a string of any bytes.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p name is not declared, or as another kind
    virtual void SetStringValue(std::string_view name, std::string_view value) = 0;

    /// Sets a string from wide text; it is stored as ConvertWideStringToPlatformString returns it.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p name is not declared, or as another kind, and when the text
    /// has no narrow form
    virtual void SetWideStringValue(std::string_view name, const std::wstring& value) = 0;

    /// Sets a collection, shared with the instance.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p name is not declared, or as another kind
    virtual void
    SetCollectionValue(std::string_view name,
                       std::shared_ptr<const IParametersCollectionPrototype> value) = 0;

    /// Returns an integer.
    /// [any, any thread]
    /// @throws KELRuntimeError when @p name is not declared, or as another kind
    virtual std::int32_t GetIntegerValue(std::string_view name) const = 0;

    /// Returns a string.
    /// [any, any thread]
    /// @throws KELRuntimeError when @p name is not declared, or as another kind
    virtual std::string GetStringValue(std::string_view name) const = 0;

    /// Returns a string as wide text, as ConvertPlatformStringToWideString returns it.
    /// [any, any thread]
    /// @throws KELRuntimeError when @p name is not declared, or as another kind
    virtual std::wstring GetWideStringValue(std::string_view name) const = 0;

    /// Returns a collection; empty when it was never set.
    /// [any, any thread]
    /// @throws KELRuntimeError when @p name is not declared, or as another kind
    virtual std::shared_ptr<const IParametersCollectionPrototype>
    GetCollectionValue(std::string_view name) const = 0;
};

/// Makes a prototype that declares nothing. Any thread may call it.
KEL_CORE_EXPORT std::shared_ptr<IParametersCollectionPrototype>
CreateParametersCollectionPrototype();

/// Makes an instance without values of its own. Any thread may call it.
/// @param prototype declares the parameters; the instance does not have those that are added later
/// @throws KELRuntimeError when @p prototype is empty
KEL_CORE_EXPORT std::shared_ptr<IParametersCollectionInstance> CreateParametersCollectionInstance(
    const std::shared_ptr<const IParametersCollectionPrototype>& prototype);

} // namespace kel
