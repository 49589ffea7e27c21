#include "Version.h"

#include <string_view>

namespace kel {

#define KEL_TEXT_OF(number) #number
#define KEL_TEXT(number) KEL_TEXT_OF(number)

// The header cannot be generated: programs may use it without a build of the project.
static_assert(std::string_view(KEL_CORE_VERSION) ==
                  KEL_TEXT(KEL_CORE_VERSION_MAJOR) "." KEL_TEXT(
                      KEL_CORE_VERSION_MINOR) "." KEL_TEXT(KEL_CORE_VERSION_PATCH),
              "Version.h and project() in the topmost CMakeLists.txt disagree");

Version GetLibraryVersion() noexcept {
    return kHeaderVersion;
}

} // namespace kel
