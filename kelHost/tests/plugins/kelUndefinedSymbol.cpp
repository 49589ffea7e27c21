// A plug-in that was built against a library that nobody has.

#include "EntryPoint.h"

extern "C" void kelSymbolThatNobodyHas();

void RegisterAll(const char* /*name*/) {
    kelSymbolThatNobodyHas();
}
