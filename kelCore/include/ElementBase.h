/// The parts that the bases of sources and sinks have in common: name, manifest, settings.
/// One thread at a time, like the element. Header-only.
/// @ingroup bases
#pragma once

#include "Checks.h"
#include "ParametersCollection.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel {

/// Name, manifest and settings of an element. A part of AudioSourceBase and AudioSinkBase; an
/// element derives from one of these.
class ElementBase {
public:
    ElementBase(const ElementBase&) = delete;
    ElementBase& operator=(const ElementBase&) = delete;

protected:
    /// @param name the name of the element in its messages
    /// @param manifest the registry entry, shared; may be empty
    ElementBase(std::string name, std::shared_ptr<const IParametersCollectionInstance> manifest)
        : m_name(std::move(name)), m_manifest(std::move(manifest)) {}

    ~ElementBase() = default;

    /// Returns the name of the element in its messages.
    const std::string& Name() const { return m_name; }

    /// Returns the registry entry that the element was made with; may be empty.
    const std::shared_ptr<const IParametersCollectionInstance>& Manifest() const {
        return m_manifest;
    }

    /// Returns the settings that SetInitConfig stored last.
    /// @throws KELRuntimeError "NAME needs SetInitConfig first"
    const IParametersCollectionInstance& Settings() const {
        KEL_CHECK(m_settings != nullptr, m_name << " needs SetInitConfig first");
        return *m_settings;
    }

    /// Returns an integer of the settings.
    /// @param setting its name, which the manifest declares
    /// @param min the smallest accepted value
    /// @param max the largest accepted value
    /// @throws KELRuntimeError "NAME: SETTING is 7, not from 1 to 6"; what Settings throws
    std::int32_t IntegerSetting(const char* setting, std::int32_t min, std::int32_t max) const {
        const std::int32_t value = Settings().GetIntegerValue(setting);
        KEL_CHECK(value >= min && value <= max, m_name << ": " << setting << " is " << value
                                                       << ", not from " << min << " to " << max);
        return value;
    }

    /// Stores settings.
    /// @throws KELRuntimeError "NAME got no settings" when @p settings is empty
    void StoreSettings(std::shared_ptr<const IParametersCollectionInstance> settings) {
        KEL_CHECK_POINTER(settings, m_name << " got no settings");
        m_settings = std::move(settings);
    }

    /// Returns true when the manifest declares the setting "FilePath": the element works on a file.
    bool WorksOnFile() const {
        const auto declared =
            m_manifest != nullptr ? m_manifest->GetCollectionValue("init_config") : nullptr;
        if (declared == nullptr) {
            return false;
        }
        const std::vector<ParameterDescription> settings = declared->GetParameters();
        return std::any_of(settings.begin(), settings.end(), [](const auto& setting) {
            return setting.name == "FilePath" && setting.kind == ParameterKind::String;
        });
    }

    /// Refuses UpdateConfig: always throws KELRuntimeError "NAME does not change its settings".
    [[noreturn]] void RefuseUpdate() const { KEL_FAIL(m_name << " does not change its settings"); }

private:
    std::string m_name;
    std::shared_ptr<const IParametersCollectionInstance> m_manifest;
    std::shared_ptr<const IParametersCollectionInstance> m_settings;
};

} // namespace kel
