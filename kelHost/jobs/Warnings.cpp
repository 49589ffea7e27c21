#include "jobs/Warnings.h"

#include "base/Text.h"

#include <string>
#include <vector>

namespace kel::host {

void Warnings::Add(const std::string& text) {
    m_texts.push_back(Escape(text));
    m_reporter.Show(WarningLine(text));
}

void Warnings::Add(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
        Add(text);
    }
}

} // namespace kel::host
