#include "RaisedRights.h"

#include <cstdlib>
#include <dlfcn.h>
#include <sys/auxv.h>

namespace {

bool g_areRaised = false;

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

#define REPLACED extern "C" __attribute__((visibility("default")))

REPLACED char* secure_getenv(const char* name) noexcept {
    return g_areRaised ? nullptr : Next<decltype(secure_getenv)>("secure_getenv")(name);
}

REPLACED unsigned long getauxval(unsigned long type) noexcept {
    return g_areRaised && type == AT_SECURE ? 1 : Next<decltype(getauxval)>("getauxval")(type);
}

namespace kel::test {

RaisedRights::RaisedRights() {
    g_areRaised = true;
}

RaisedRights::~RaisedRights() {
    g_areRaised = false;
}

} // namespace kel::test
