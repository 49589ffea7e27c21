// A plug-in that has nothing to offer.

#include "EntryPoint.h"

void RegisterAll(const char* /*name*/) {}
