// A plug-in that fails with something that is no std::exception.

#include "EntryPoint.h"

void RegisterAll(const char* /*name*/) {
    throw 42;
}
