#include "container/SndfileLibrary.h"

namespace kel::host {

const SndfileLibrary& Sndfile() {
    static const SndfileLibrary library;
    return library;
}

} // namespace kel::host
