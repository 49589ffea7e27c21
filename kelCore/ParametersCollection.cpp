#include "ParametersCollection.h"
#include "Checks.h"
#include "PlatformString.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kel {

namespace {

using PrototypeHandle = std::shared_ptr<const IParametersCollectionPrototype>;

template <typename Value>
constexpr ParameterKind kKindOf = ParameterKind::Collection;
template <>
constexpr ParameterKind kKindOf<std::int32_t> = ParameterKind::Integer;
template <>
constexpr ParameterKind kKindOf<std::string> = ParameterKind::String;

class Prototype final : public IParametersCollectionPrototype {
public:
    void AddStringParameter(std::string_view name, std::string_view description) override {
        Add(name, ParameterKind::String, description, std::nullopt);
    }

    void AddStringParameterWithDefault(std::string_view name, std::string_view defaultValue,
                                       std::string_view description) override {
        Add(name, ParameterKind::String, description, std::string(defaultValue));
    }

    void AddIntegerParameter(std::string_view name, std::int32_t defaultValue,
                             std::string_view description) override {
        Add(name, ParameterKind::Integer, description, defaultValue);
    }

    void AddCollectionParameter(std::string_view name, std::string_view description) override {
        Add(name, ParameterKind::Collection, description, std::nullopt);
    }

    std::vector<ParameterDescription> GetParameters() const override { return m_parameters; }

private:
    void Add(std::string_view name, ParameterKind kind, std::string_view description,
             std::optional<ParameterValue> defaultValue) {
        if (name.empty()) {
            KEL_FAIL("a parameter needs a name");
        }
        const bool declared =
            std::any_of(m_parameters.begin(), m_parameters.end(),
                        [name](const ParameterDescription& other) { return other.name == name; });
        if (declared) {
            KEL_FAIL("parameter \"" << name << "\" is declared already");
        }
        m_parameters.push_back(
            {std::string(name), kind, std::string(description), std::move(defaultValue)});
    }

    std::vector<ParameterDescription> m_parameters;
};

class Instance final : public IParametersCollectionInstance {
public:
    explicit Instance(const PrototypeHandle& prototype)
        : m_parameters(prototype->GetParameters()), m_values(m_parameters.size()) {}

    void SetIntegerValue(std::string_view name, std::int32_t value) override {
        Set<std::int32_t>(name, value);
    }

    void SetStringValue(std::string_view name, std::string_view value) override {
        Set<std::string>(name, std::string(value));
    }

    void SetWideStringValue(std::string_view name, const std::wstring& value) override {
        Set<std::string>(name, ConvertWideStringToPlatformString(value));
    }

    void SetCollectionValue(std::string_view name, PrototypeHandle value) override {
        Set<PrototypeHandle>(name, std::move(value));
    }

    std::int32_t GetIntegerValue(std::string_view name) const override {
        return Get<std::int32_t>(name);
    }

    std::string GetStringValue(std::string_view name) const override {
        return Get<std::string>(name);
    }

    std::wstring GetWideStringValue(std::string_view name) const override {
        return ConvertPlatformStringToWideString(Get<std::string>(name));
    }

    PrototypeHandle GetCollectionValue(std::string_view name) const override {
        return Get<PrototypeHandle>(name);
    }

private:
    // Returns the index of a declared parameter of the wanted kind.
    std::size_t Find(std::string_view name, ParameterKind wanted) const {
        const auto found =
            std::find_if(m_parameters.begin(), m_parameters.end(),
                         [name](const ParameterDescription& other) { return other.name == name; });
        if (found == m_parameters.end()) {
            KEL_FAIL("parameter \"" << name << "\" is not declared (wanted: " << ToString(wanted)
                                    << ")");
        }
        if (found->kind != wanted) {
            KEL_FAIL("parameter \"" << name << "\" is declared as " << ToString(found->kind)
                                    << " (wanted: " << ToString(wanted) << ")");
        }
        return static_cast<std::size_t>(found - m_parameters.begin());
    }

    template <typename Value>
    void Set(std::string_view name, Value value) {
        m_values[Find(name, kKindOf<Value>)] = std::move(value);
    }

    template <typename Value>
    Value Get(std::string_view name) const {
        const std::size_t index = Find(name, kKindOf<Value>);
        const std::optional<ParameterValue>& value =
            m_values[index].has_value() ? m_values[index] : m_parameters[index].defaultValue;
        return value.has_value() ? std::get<Value>(*value) : Value{};
    }

    std::vector<ParameterDescription> m_parameters;
    std::vector<std::optional<ParameterValue>> m_values; // parallel to m_parameters
};

} // namespace

std::string ToString(ParameterKind kind) {
    switch (kind) {
    case ParameterKind::Integer:
        return "integer";
    case ParameterKind::String:
        return "string";
    case ParameterKind::Collection:
        return "collection";
    }
    return "ParameterKind(" + std::to_string(static_cast<std::int32_t>(kind)) + ")";
}

std::shared_ptr<IParametersCollectionPrototype> CreateParametersCollectionPrototype() {
    return std::make_shared<Prototype>();
}

std::shared_ptr<IParametersCollectionInstance>
CreateParametersCollectionInstance(const PrototypeHandle& prototype) {
    KEL_CHECK_POINTER(prototype, "a parameters collection needs a prototype");
    return std::make_shared<Instance>(prototype);
}

} // namespace kel
