// A plug-in that was built against a missing library.

#include "EntryPoint.h"

extern "C" void kelSymbolThatNobodyHas();

void RegisterAll(const char* /*name*/) {
    kelSymbolThatNobodyHas();
}
