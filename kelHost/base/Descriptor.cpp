#include "base/Descriptor.h"

#include <unistd.h>

namespace kel::host {

Descriptor::~Descriptor() {
    if (m_number >= 0) {
        close(m_number);
    }
}

} // namespace kel::host
