// A plug-in that was built against a missing library.

#include "EntryPoint.h"

extern "C" void kelSymbolThatIsMissing();

void RegisterAll(const char* /*name*/) {
    kelSymbolThatIsMissing();
}
