// What becomes of loading the plug-in and of registering its elements when there is no memory, or
// no descriptor. This process never registers anything itself: each attempt does for the first
// time.

#include "RefusedAllocations.h"
#include "Transcript.h"

#include <OpenDescriptors.h>
#include <kelCore.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <dlfcn.h>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace kel::test {
namespace {

constexpr const char* kName = "loading";

const std::vector<std::string> kElements{
    "2 kel.LibsndfileSource AIFF",  "2 kel.LibsndfileSource WAVE", "2 kel.LibsndfileSource BWAVE",
    "3 kel.LibsndfileSink Unknown", "3 kel.LibsndfileSink AIFF",   "3 kel.LibsndfileSink WAVE",
    "3 kel.LibsndfileSink BWAVE",   "3 kel.LibsndfileSink RAW"};

// What the plug-in has registered, in order; "broken" for a registration that is not whole.
std::vector<std::string> Registered() {
    std::vector<std::string> elements;
    for (const Registration& registration : GetRegistrations()) {
        if (registration.factory == nullptr || registration.entry == nullptr ||
            registration.coreId.empty()) {
            elements.emplace_back("broken");
        } else if (registration.name == kName) {
            const auto& entry = *registration.entry;
            elements.push_back(std::to_string(entry.GetIntegerValue("class")) + " " +
                               entry.GetStringValue("implementation") + " " +
                               entry.GetStringValue("type"));
        }
    }
    return elements;
}

void* Load() {
    return dlopen(KEL_TEST_PLUGIN, RTLD_NOW | RTLD_LOCAL);
}

void Register(void* library) {
    reinterpret_cast<void (*)(const char*)>(dlsym(library, "RegisterAll"))(kName);
}

// One element of each kind.
void Make() {
    if (ImplementElement<ElementFactoryType::AudioSource>("kel.LibsndfileSource", "WAVE",
                                                          nullptr) == nullptr ||
        ImplementElement<ElementFactoryType::AudioSink>("kel.LibsndfileSink", "AIFF", nullptr) ==
            nullptr) {
        throw std::runtime_error("no element");
    }
}

void RunRegistration(void* library, Transcript& transcript) {
    static_cast<void>(transcript.Do("register", [&] { Register(library); }) &&
                      transcript.Do("make", [] { Make(); }) &&
                      transcript.Do("unregister", [] { UnregisterFactories(kName); }));
}

const std::string kAllDone = "register\nmake\nunregister\n";

// Whether it is the beginning of the list, in its order.
bool IsBeginning(const std::vector<std::string>& registered) {
    return registered.size() <= kElements.size() &&
           std::equal(registered.begin(), registered.end(), kElements.begin());
}

// The plug-in is loaded, but not registered.
class EachAllocationOfRegistering : public testing::Test {
protected:
    EachAllocationOfRegistering() : m_library(Load()) {
        GetCurrentTimeString(); // the C library keeps what it reads of time zones
    }
    ~EachAllocationOfRegistering() override { dlclose(m_library); }

    // @param isFirst nothing of it has happened before in the process: what the framework keeps for
    // good is made now
    std::string Attempt(Refusal refusal, bool isFirst) {
        Findings findings;
        Transcript transcript;
        SetCurrentLoggerWriter(std::make_shared<ErrorsInto>(transcript));
        if (!isFirst) {
            RunRegistration(m_library, transcript);
            transcript.Clear();
        }
        const unsigned long allocations = AllocationsSoFar();
        RefuseAllocation(refusal.number, refusal.lasts);
        RunRegistration(m_library, transcript);
        RefuseNoAllocation();
        const unsigned refused = RefusedAllocations();
        CheckRegistry(transcript.Text(), refused, findings);
        UnregisterFactories(kName);
        findings.Require(Registered().empty(), "something stays registered");
        const std::string left = isFirst ? "" : LeftSince(allocations);

        Register(m_library);
        findings.Require(Registered() == kElements, "it cannot be registered any more");
        UnregisterFactories(kName);
        return findings.Answer(refused, left + LeftByAnotherRun(transcript));
    }

    void* const m_library;

private:
    // What was registered before a failure is, whole and in order; and so is everything if taking
    // it away has failed.
    static void CheckRegistry(const std::string& text, unsigned refused, Findings& findings) {
        findings.Require(text == kAllDone || (refused > 0 && IsCutShort(text, kAllDone)),
                         "neither done nor refused:\n" + text);
        const auto registered = Registered();
        findings.Require(IsBeginning(registered), "the registry is broken");
        if (text == kAllDone) {
            findings.Require(registered.empty(), "they are registered still");
        } else if (text.rfind("register\n", 0) == 0) {
            findings.Require(registered == kElements, "they are not all registered");
        } else {
            findings.Require(registered != kElements, "all are registered, and yet it failed");
        }
    }

    std::string LeftByAnotherRun(Transcript& transcript) const {
        const unsigned long allocations = AllocationsSoFar();
        transcript.Clear();
        RunRegistration(m_library, transcript);
        return transcript.Text() == kAllDone ? LeftSince(allocations) : transcript.Text();
    }
};

TEST_F(EachAllocationOfRegistering, IsRefusedWithoutHarmTheFirstTime) {
    const Sweep sweep = RefuseEach("registering for the first time",
                                   [this](Refusal refusal) { return Attempt(refusal, true); });
    EXPECT_GT(sweep.refusals, 100);
    EXPECT_EQ(sweep.crashes, std::set<std::string>());
    EXPECT_EQ(sweep.losses, std::set<std::string>());
}

TEST_F(EachAllocationOfRegistering, IsRefusedWithoutHarmAgain) {
    const Sweep sweep = RefuseEach("registering again",
                                   [this](Refusal refusal) { return Attempt(refusal, false); });
    EXPECT_GT(sweep.refusals, 100);
    EXPECT_EQ(sweep.crashes, std::set<std::string>());
    EXPECT_EQ(sweep.losses, std::set<std::string>());
}

// What the system's loader takes and leaves is its own business: all that counts is that it says
// why, and that the plug-in can be loaded and used when there is memory again.
std::string AttemptToLoad(Refusal refusal) {
    Findings findings;
    const std::size_t descriptors = OpenDescriptors();
    RefuseAllocation(refusal.number, refusal.lasts);
    void* library = Load();
    RefuseNoAllocation();
    const unsigned refused = RefusedAllocations();
    if (library == nullptr) {
        const char* words = dlerror();
        findings.Require(refused > 0 && words != nullptr && *words != '\0', "no reason is told");
        library = Load();
    }
    findings.Require(library != nullptr, "it cannot be loaded any more");
    findings.Require(OpenDescriptors() == descriptors, "a descriptor is left");
    if (library != nullptr) {
        Register(library);
        findings.Require(Registered() == kElements, "it cannot be registered");
        Make();
        UnregisterFactories(kName);
        dlclose(library);
    }
    return findings.Answer(refused, "");
}

TEST(EachAllocationOfLoading, IsRefusedWithoutHarm) {
    const Sweep sweep = RefuseEach("loading", AttemptToLoad);
    EXPECT_GT(sweep.refusals, 50);
    EXPECT_EQ(sweep.crashes, std::set<std::string>());
}

std::string LoadWithoutADescriptor() {
    Findings findings;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max}; // what is open stays so
    setrlimit(RLIMIT_NOFILE, &none);
    void* library = Load();
    setrlimit(RLIMIT_NOFILE, &limit);
    findings.Require(library == nullptr, "it is loaded all the same");
    const std::string expected =
        KEL_TEST_PLUGIN ": cannot open shared object file: Too many open files";
    const char* words = dlerror();
    findings.Require(words != nullptr && words == expected, "other words");
    library = Load();
    findings.Require(library != nullptr, "it cannot be loaded any more");
    if (library != nullptr) {
        Register(library);
        Make();
    }
    return findings.Answer(1, "");
}

TEST(LoadingWithoutADescriptor, SaysSoAndWorksLater) {
    const ChildResult result = RunInChild(LoadWithoutADescriptor);
    EXPECT_EQ(result.crashedIn, "");
    EXPECT_EQ(result.text, "");
}

} // namespace
} // namespace kel::test
