/// Names without repetitions. One thread at a time for one list.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace kel::host {

/// Names, each once, in the order of their first use.
class UniqueNames {
public:
    void Add(const std::string& name) {
        if (m_known.insert(name).second) {
            m_names.push_back(name);
        }
    }
    void Add(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            Add(name);
        }
    }

    const std::vector<std::string>& Names() const { return m_names; }

private:
    std::vector<std::string> m_names;
    std::set<std::string> m_known;
};

} // namespace kel::host
