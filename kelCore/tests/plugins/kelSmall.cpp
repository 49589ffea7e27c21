// A plug-in with one source. It fails after the registration when the name of its file demands it.

#include "../Elements.h"

#include <stdexcept>
#include <string>

extern "C" __attribute__((visibility("default"))) void RegisterAll(const char* name);

void RegisterAll(const char* name) {
    const std::string path = name;
    kel::RegisterFactory(
        path, "core", kel::test::MakeSourceFactory(),
        kel::test::MakeEntry(kel::ElementFactoryType::AudioSource, "test.Small", "WAVE"));
    if (path.find("throws-error") != std::string::npos) {
        throw std::runtime_error("the licence is missing");
    }
    if (path.find("throws-number") != std::string::npos) {
        throw 1; // NOLINT(hicpp-exception-baseclass): the fault
    }
}
