#include "base/Locale.h"

#include <clocale>
#include <cstddef>
#include <cstdlib>
#include <langinfo.h>
#include <string>
#include <strings.h>

namespace kel::host {

namespace {

// Returns the name of the locale, by the order of precedence of POSIX.
std::string LocaleName() {
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        if (const char* value = std::getenv(variable); value != nullptr && *value != '\0') {
            return value;
        }
    }
    return "C";
}

bool IsUTF8(const std::string& encoding) {
    return strcasecmp(encoding.c_str(), "UTF-8") == 0 || strcasecmp(encoding.c_str(), "UTF8") == 0;
}

} // namespace

bool UsesUTF8() {
    if (const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr); locale != nullptr) {
        const bool isUTF8 = IsUTF8(nl_langinfo_l(CODESET, locale));
        freelocale(locale);
        return isUTF8;
    }
    // LANGUAGE_COUNTRY.ENCODING@VARIANT
    const std::string name = LocaleName();
    const std::string withoutVariant = name.substr(0, name.find('@'));
    const std::size_t dot = withoutVariant.find('.');
    return dot != std::string::npos && IsUTF8(withoutVariant.substr(dot + 1));
}

} // namespace kel::host
