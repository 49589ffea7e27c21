/// Descriptions of options and arguments. The parser, the help, the manual page and the shell
/// completion are made from them. Used by one thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kel::host {

/// An option, or an argument by position, with the variable that receives its value.
class Option {
public:
    /// The kind of the variable decides what is accepted: bool for a flag; string for one value
    /// with a default, its present content; optional for one value; vector for one or more.
    using Target =
        std::variant<bool*, std::string*, std::optional<std::string>*, std::vector<std::string>*>;

    /// Kind of the values, for completion.
    enum class Values { Any, Files, Directories, Elements };

    /// @param names "--start" or "-o,--output", the long name last; "FILE" for an argument by
    /// position
    /// @param valueName name of the value in the help: "TIME"; empty for flags and arguments
    /// @param target outlives the option
    Option(std::string names, std::string valueName, Target target, std::string description)
        : m_names(std::move(names)), m_valueName(std::move(valueName)), m_target(target),
          m_description(std::move(description)) {}

    /// Names the only accepted values, for help and completion. The command verifies them.
    Option&& Choices(std::vector<std::string> choices) && {
        m_choices = std::move(choices);
        return std::move(*this);
    }
    /// Names values that completion offers. They are made only then.
    Option&& Offers(std::vector<std::string> (*names)()) && {
        m_offer = names;
        return std::move(*this);
    }
    Option&& Completes(Values values) && {
        m_values = values;
        return std::move(*this);
    }
    Option&& Required() && {
        m_isRequired = true;
        return std::move(*this);
    }
    /// The option cannot be combined with another one.
    Option&& Excludes(std::string name) && {
        m_excluded = std::move(name);
        return std::move(*this);
    }
    /// The option has a meaning only with another one.
    Option&& Needs(std::string name) && {
        m_needed = std::move(name);
        return std::move(*this);
    }

    /// Puts the option below a title in the help: "Output files". Command::BeginGroup does it for
    /// those that follow.
    Option&& InGroup(std::string title) && {
        m_group = std::move(title);
        return std::move(*this);
    }

    const std::string& Names() const { return m_names; }
    const std::string& Group() const { return m_group; }

    /// Each name: "-o" and "--output".
    std::vector<std::string> Spellings() const {
        std::vector<std::string> spellings;
        for (std::size_t start = 0; start <= m_names.size();) {
            const std::size_t comma = std::min(m_names.find(',', start), m_names.size());
            spellings.push_back(m_names.substr(start, comma - start));
            start = comma + 1;
        }
        return spellings;
    }

    /// The long name: "--output".
    std::string LongName() const { return m_names.substr(m_names.find(',') + 1); }

    bool IsCalled(std::string_view name) const {
        const std::vector<std::string> spellings = Spellings();
        return std::find(spellings.begin(), spellings.end(), name) != spellings.end();
    }
    const std::string& ValueName() const { return m_valueName; }
    const Target& Variable() const { return m_target; }
    const std::string& Description() const { return m_description; }
    const std::vector<std::string>& AllowedValues() const { return m_choices; }
    std::vector<std::string> OfferedValues() const {
        return m_offer != nullptr ? m_offer() : m_choices;
    }
    Values Completion() const { return m_values; }
    const std::string& Excluded() const { return m_excluded; }
    const std::string& Needed() const { return m_needed; }
    bool IsRequired() const { return m_isRequired; }
    bool IsArgument() const { return m_names.front() != '-'; }
    bool IsFlag() const { return std::holds_alternative<bool*>(m_target); }
    bool IsRepeatable() const {
        return std::holds_alternative<std::vector<std::string>*>(m_target);
    }

    /// True for names with commas between them.
    bool IsList() const {
        const std::string_view end = ",...";
        return m_valueName.size() > end.size() &&
               m_valueName.compare(m_valueName.size() - end.size(), end.size(), end) == 0;
    }

    /// The default value; empty when there is none.
    std::string Default() const {
        const auto* text = std::get_if<std::string*>(&m_target);
        return text != nullptr ? **text : "";
    }

private:
    std::string m_names;
    std::string m_group;
    std::string m_valueName;
    Target m_target;
    std::string m_description;
    std::vector<std::string> m_choices;
    std::vector<std::string> (*m_offer)() = nullptr;
    Values m_values = Values::Any;
    std::string m_excluded;
    std::string m_needed;
    bool m_isRequired = false;
};

} // namespace kel::host
