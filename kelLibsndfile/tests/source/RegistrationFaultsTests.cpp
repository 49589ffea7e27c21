// Registration, call by call: what the framework is asked for, and what is left when it fails.

#include "FakeFramework.h"

#include <CapturingWriter.h>
#include <FakeSndfile.h>
#include <Plugin.h>

#include <cstddef>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace kel::test {
namespace {

using Calls = std::vector<std::string>;

constexpr std::size_t kSources = 3;
constexpr std::size_t kElements = 8;

Calls Registered(std::size_t formats) {
    Calls calls = {"CreateParametersCollectionPrototype", "GetRegistryEntryPrototype"};
    for (std::size_t i = 0; i < formats; ++i) {
        calls.insert(calls.end(), {"CreateParametersCollectionInstance", "GetLabel",
                                   "GetKELCoreIdInternal", "RegisterFactory"});
    }
    return calls;
}

class RegistrationFaults : public ::testing::Test {
protected:
    RegistrationFaults() {
        LoadPlugin();
        ResetStandIns();
        FrameworkAnswers().registerFactory = [this](std::string name, std::string coreId,
                                                    std::shared_ptr<IElementFactory> factory,
                                                    auto entry) {
            registrations.push_back(
                {std::move(name), std::move(coreId), std::move(factory), std::move(entry)});
        };
    }
    ~RegistrationFaults() override { ResetStandIns(); }

    static void RegisterAll(const char* name) {
        reinterpret_cast<void (*)(const char*)>(dlsym(LoadPlugin(), "RegisterAll"))(name);
    }

    std::vector<Registration> registrations;
};

TEST_F(RegistrationFaults, GoesThroughTheSourceThenTheSink) {
    RegisterAll("host");
    Calls expected = Registered(kSources);
    for (const std::string& call : Registered(kElements - kSources)) {
        expected.push_back(call);
    }
    EXPECT_EQ(SndfileCalls(), expected);
}

TEST_F(RegistrationFaults, HandsOnWhatTheFrameworkMadeOfTheVersion) {
    FrameworkAnswers().getCoreId = [](const std::string& version) {
        EXPECT_EQ(version, "0.7.16.249.80659");
        return "the core of " + version;
    };
    FrameworkAnswers().getLabel = [](WrapperFormat format) {
        return "label " + std::to_string(static_cast<std::int32_t>(format));
    };
    RegisterAll("host");
    std::vector<std::string> types;
    for (const Registration& registration : registrations) {
        EXPECT_EQ(registration.name, "host");
        EXPECT_EQ(registration.coreId, "the core of 0.7.16.249.80659");
        types.push_back(registration.entry->GetStringValue("type"));
    }
    EXPECT_EQ(types, (std::vector<std::string>{"label 1", "label 32", "label 5", "label 0",
                                               "label 1", "label 32", "label 5", "label 28"}));
}

TEST_F(RegistrationFaults, MakesEachEntryOfThePrototypeOfEntries) {
    const auto prototype = GetRegistryEntryPrototype();
    std::vector<std::shared_ptr<const IParametersCollectionPrototype>> used;
    FrameworkAnswers().createInstance = [&](const auto& given) {
        used.push_back(given);
        return RealFramework().createInstance(given);
    };
    RegisterAll("host");
    EXPECT_EQ(used, decltype(used)(kElements, prototype));
}

TEST_F(RegistrationFaults, KeepsNothingOfWhatItHandsOver) {
    RegisterAll("host");
    ASSERT_EQ(registrations.size(), kElements);
    for (const Registration& registration : registrations) {
        EXPECT_EQ(registration.factory.use_count(), 1);
        EXPECT_EQ(registration.entry.use_count(), 1);
    }
    const std::weak_ptr<const IParametersCollectionPrototype> prototype =
        registrations[0].entry->GetCollectionValue("init_config");
    EXPECT_FALSE(prototype.expired());
    registrations.clear();
    EXPECT_TRUE(prototype.expired());
}

TEST_F(RegistrationFaults, AsksForNoFactoryWithANullName) {
    FailAt("RegisterFactory");
    EXPECT_THROW(RegisterAll(nullptr), std::logic_error);
    EXPECT_EQ(registrations.size(), 0U);
}

// A call that fails, and how many registrations were made before.
struct Step {
    std::string call;
    int occurrence;
    std::size_t made;
};

class RegistrationSteps : public RegistrationFaults, public ::testing::WithParamInterface<Step> {};

std::vector<Step> AllSteps() {
    std::vector<Step> steps = {{"CreateParametersCollectionPrototype", 1, 0},
                               {"CreateParametersCollectionPrototype", 2, kSources},
                               {"GetRegistryEntryPrototype", 1, 0},
                               {"GetRegistryEntryPrototype", 2, kSources}};
    for (const char* const call : {"CreateParametersCollectionInstance", "GetLabel",
                                   "GetKELCoreIdInternal", "RegisterFactory"}) {
        for (std::size_t i = 0; i < kElements; ++i) {
            steps.push_back({call, static_cast<int>(i) + 1, i});
        }
    }
    return steps;
}

INSTANTIATE_TEST_SUITE_P(Calls, RegistrationSteps, ::testing::ValuesIn(AllSteps()),
                         [](const auto& step) {
                             return step.param.call + std::to_string(step.param.occurrence);
                         });

TEST_P(RegistrationSteps, PassTheirFailureOnAndLeaveTheRegistrationsBefore) {
    const auto& [call, occurrence, made] = GetParam();
    FailAt(call, occurrence);
    const LogCapture log;
    try {
        RegisterAll("host");
        ADD_FAILURE() << "did not fail";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.call, call);
    }
    EXPECT_EQ(SndfileCalls().back(), call);
    EXPECT_EQ(registrations.size(), made);
    EXPECT_EQ(log->Records().size(), 0U);
}

} // namespace
} // namespace kel::test
