#include "Elements.h"

#include <CapturingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

using test::MakeEntry;
using test::Manifest;
using test::SinkFactory;
using test::SourceFactory;
using testing::ElementsAre;

constexpr ElementFactoryType kSource = ElementFactoryType::AudioSource;
constexpr ElementFactoryType kSink = ElementFactoryType::AudioSink;
constexpr ElementFactoryType kAllocator = ElementFactoryType::MemoryBlockAllocator;

/// Removes the registrations of the tests.
class TheRegistry : public testing::Test {
protected:
    ~TheRegistry() override {
        UnregisterFactories("one");
        UnregisterFactories("two");
    }

    // The names of all registrations except the framework's own.
    static std::vector<std::string> OtherNames() {
        std::vector<std::string> names;
        for (const Registration& registration : GetRegistrations()) {
            if (registration.name != "kelCore") {
                names.push_back(registration.name);
            }
        }
        return names;
    }
};

TEST_F(TheRegistry, HasTheRecyclerOfTheFrameworkFromTheStart) {
    const std::vector<Registration> registrations = GetRegistrations();
    ASSERT_EQ(registrations.size(), 1U);
    const Registration& own = registrations[0];
    EXPECT_EQ(own.name, "kelCore");
    EXPECT_EQ(own.coreId, GetKELCoreIdInternal(KEL_EXPECTED_VERSION));
    EXPECT_EQ(own.factory->GetFactoryType(), kAllocator);
    EXPECT_EQ(own.entry->GetIntegerValue("class"), 23);
    EXPECT_EQ(own.entry->GetStringValue("type"), "Recycler");
    EXPECT_EQ(own.entry->GetStringValue("implementation"), "kel");
    EXPECT_EQ(own.entry->GetStringValue("doc"),
              "This allocator gives released memory blocks out again, so that a stream of samples "
              "needs only a handful of blocks from the system. Each allocator made here has a pool "
              "of its own.");
    ASSERT_NE(own.entry->GetCollectionValue("init_config"), nullptr);
    EXPECT_TRUE(own.entry->GetCollectionValue("init_config")->GetParameters().empty());
    EXPECT_EQ(GetFactory(kAllocator, "kel", "Recycler"), own.factory);
    EXPECT_EQ(GetManifest(kAllocator, "kel", "Recycler"), own.entry);
}

TEST_F(TheRegistry, ReturnsNothingWhenOneOfTheThreeKeysDiffers) {
    struct Keys {
        ElementFactoryType kind;
        const char* implementation;
        const char* type;
    };
    RegisterFactory("one", "", test::MakeSourceFactory(),
                    MakeEntry(kSource, "test.Source", "WAVE"));
    const test::LogCapture log;
    for (const Keys& keys :
         {Keys{kSink, "test.Source", "WAVE"}, Keys{kSource, "test.Sink", "WAVE"},
          Keys{kSource, "test.Source", "AIFF"}, Keys{kSource, "", "WAVE"},
          Keys{kSource, "test.Source", ""}, Keys{kSource, "test.source", "WAVE"},
          Keys{kSource, "test.Source", "wave"}, Keys{kSource, "WAVE", "test.Source"}}) {
        EXPECT_EQ(GetFactory(keys.kind, keys.implementation, keys.type), nullptr);
        EXPECT_EQ(GetManifest(keys.kind, keys.implementation, keys.type), nullptr);
    }
    EXPECT_TRUE(log->Records().empty());
}

TEST_F(TheRegistry, ComparesTheClassOfTheEntryNotTheKindOfTheFactory) {
    const auto sinks = std::make_shared<SinkFactory>(nullptr);
    RegisterFactory("one", "", sinks, MakeEntry(kSource, "test.Source", "WAVE"));
    EXPECT_EQ(GetFactory(kSource, "test.Source", "WAVE"), sinks);
}

TEST_F(TheRegistry, ListsRegistrationsInTheirOrderWithAllTheirParts) {
    const auto factory = test::MakeSourceFactory();
    const auto wave = MakeEntry(kSource, "test.Source", "WAVE");
    const auto aiff = MakeEntry(kSource, "test.Source", "AIFF");
    RegisterFactory("two", "core id 2", factory, wave);
    RegisterFactory("one", "core id 1", factory, aiff);
    const std::vector<Registration> registrations = GetRegistrations();
    ASSERT_EQ(registrations.size(), 3U);
    EXPECT_EQ(registrations[0].name, "kelCore");
    EXPECT_EQ(registrations[1].name, "two");
    EXPECT_EQ(registrations[1].coreId, "core id 2");
    EXPECT_EQ(registrations[1].factory, factory);
    EXPECT_EQ(registrations[1].entry, wave);
    EXPECT_EQ(registrations[2].name, "one");
    EXPECT_EQ(registrations[2].coreId, "core id 1");
    EXPECT_EQ(registrations[2].factory, factory);
    EXPECT_EQ(registrations[2].entry, aiff);
}

TEST_F(TheRegistry, ReturnsTheFirstOfSeveralThatMatch) {
    const auto first = test::MakeSourceFactory();
    const auto firstEntry = MakeEntry(kSource, "test.Source", "WAVE");
    const auto second = test::MakeSourceFactory();
    const auto secondEntry = MakeEntry(kSource, "test.Source", "WAVE");
    RegisterFactory("one", "", first, firstEntry);
    RegisterFactory("two", "", second, secondEntry);
    EXPECT_EQ(GetFactory(kSource, "test.Source", "WAVE"), first);
    EXPECT_EQ(GetManifest(kSource, "test.Source", "WAVE"), firstEntry);
    EXPECT_THAT(OtherNames(), ElementsAre("one", "two")) << "nothing is replaced";

    UnregisterFactories("one");
    EXPECT_EQ(GetFactory(kSource, "test.Source", "WAVE"), second);
    EXPECT_EQ(GetManifest(kSource, "test.Source", "WAVE"), secondEntry);
}

TEST_F(TheRegistry, RemovesAllRegistrationsOfAName) {
    const auto factory = test::MakeSourceFactory();
    for (const char* type : {"WAVE", "AIFF", "BWAVE"}) {
        RegisterFactory("one", "", factory, MakeEntry(kSource, "test.One", type));
        RegisterFactory("two", "", factory, MakeEntry(kSource, "test.Two", type));
    }
    EXPECT_EQ(UnregisterFactories("one"), 3U);
    EXPECT_THAT(OtherNames(), ElementsAre("two", "two", "two"));
    EXPECT_EQ(GetRegistrations()[1].entry->GetStringValue("type"), "WAVE");
    EXPECT_EQ(GetRegistrations()[2].entry->GetStringValue("type"), "AIFF");
    EXPECT_EQ(GetRegistrations()[3].entry->GetStringValue("type"), "BWAVE");
    EXPECT_EQ(GetFactory(kSource, "test.One", "AIFF"), nullptr);
    EXPECT_EQ(GetFactory(kSource, "test.Two", "AIFF"), factory);
    EXPECT_EQ(UnregisterFactories("one"), 0U);
    EXPECT_EQ(UnregisterFactories("two"), 3U);
    EXPECT_THAT(OtherNames(), ElementsAre());
}

TEST_F(TheRegistry, SharesFactoriesAndEntriesUntilTheyAreRemoved) {
    auto factory = test::MakeSourceFactory();
    auto entry = MakeEntry(kSource, "test.Source", "WAVE");
    const std::weak_ptr<IElementFactory> watchedFactory = factory;
    const std::weak_ptr<IParametersCollectionInstance> watchedEntry = entry;
    RegisterFactory("one", "", std::move(factory), std::move(entry));
    EXPECT_FALSE(watchedFactory.expired());
    EXPECT_FALSE(watchedEntry.expired());
    UnregisterFactories("one");
    EXPECT_TRUE(watchedFactory.expired());
    EXPECT_TRUE(watchedEntry.expired());
}

TEST_F(TheRegistry, CanBeReadByTheDestructorOfAFactory) {
    std::size_t seen = 0;
    std::shared_ptr<int> held(new int(0), [&seen](const int* value) {
        seen = GetRegistrations().size();
        delete value;
    });
    RegisterFactory("one", "", std::make_shared<SourceFactory>([held](const Manifest&) {
                        return std::make_shared<test::SmallSource>();
                    }),
                    MakeEntry(kSource, "test.Source", "WAVE"));
    held.reset();
    EXPECT_EQ(seen, 0U) << "the factory still exists";
    UnregisterFactories("one");
    EXPECT_EQ(seen, 1U);
}

constexpr const char* kThisModule = "kelCore/Registry.cpp";

TEST_F(TheRegistry, RefusesARegistrationWithoutAFactoryOrAnEntry) {
    test::ExpectFailure(
        "[the registration under \"one\" has no factory] [ Pointer is null ]", kThisModule,
        [] { RegisterFactory("one", "", nullptr, MakeEntry(kSource, "test.Source", "WAVE")); });
    test::ExpectFailure(
        "[the registration under \"one\" has no registry entry] [ Pointer is null ]", kThisModule,
        [] { RegisterFactory("one", "", test::MakeSourceFactory(), nullptr); });
    EXPECT_THAT(OtherNames(), ElementsAre());
}

TEST_F(TheRegistry, RefusesAnEntryWithoutOneOfTheKeysThatLookUpsCompare) {
    for (const auto& [missing, kind] :
         {std::pair{"class", "integer"}, std::pair{"implementation", "string"},
          std::pair{"type", "string"}}) {
        const auto prototype = CreateParametersCollectionPrototype();
        for (const ParameterDescription& key : GetRegistryEntryPrototype()->GetParameters()) {
            if (key.name == missing) {
                continue;
            }
            if (key.kind == ParameterKind::Integer) {
                prototype->AddIntegerParameter(key.name, 0, "");
            } else {
                prototype->AddStringParameter(key.name, "");
            }
        }
        test::ExpectFailure(std::string("[parameter \"") + missing +
                                "\" is not declared (wanted: " + kind + ")]",
                            "kelCore/ParametersCollection.cpp", [&prototype = prototype] {
                                RegisterFactory("one", "", test::MakeSourceFactory(),
                                                CreateParametersCollectionInstance(prototype));
                            });
        EXPECT_THAT(OtherNames(), ElementsAre());
    }
}

TEST(TheCoreId, HasTheVersionsOfTheFrameworkAndThePlugIn) {
    EXPECT_EQ(GetKELCoreIdInternal("1.2.3"), "kelCore " KEL_EXPECTED_VERSION " for plug-in 1.2.3");
    EXPECT_EQ(GetKELCoreIdInternal(""), "kelCore " KEL_EXPECTED_VERSION " for plug-in ");
}

TEST(TheRegistryEntryPrototype, DeclaresFiveKeysInThisOrder) {
    std::vector<std::string> keys;
    for (const ParameterDescription& parameter : GetRegistryEntryPrototype()->GetParameters()) {
        keys.push_back(parameter.name + ", " + ToString(parameter.kind) + ": " +
                       parameter.description);
    }
    EXPECT_THAT(keys, ElementsAre("class, integer: Kind of element, a numeric ElementFactoryType.",
                                  "type, string: Label of the format that the element is for.",
                                  "implementation, string: Name of the element.",
                                  "doc, string: Documentation of the element.",
                                  "init_config, collection: Settings of the element."));
}

TEST(TheRegistryEntryPrototype, IsOneObjectWithoutAnyDefault) {
    EXPECT_EQ(GetRegistryEntryPrototype(), GetRegistryEntryPrototype());
    const auto entry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    EXPECT_EQ(entry->GetIntegerValue("class"), 0);
}

using test::NoMemory;

TEST(RegisteredAllocators, AreFoundByTheirName) {
    const auto one = std::make_shared<NoMemory>();
    const auto other = std::make_shared<NoMemory>();
    RegisterAllocator("one", one);
    RegisterAllocator("", other);
    EXPECT_EQ(GetAllocator("one"), one);
    EXPECT_EQ(GetAllocator(""), other);
    EXPECT_EQ(GetAllocator("One"), nullptr);
    EXPECT_EQ(GetAllocator("on"), nullptr);
    EXPECT_EQ(GetAllocator("Recycler"), nullptr);
    const auto later = std::make_shared<NoMemory>();
    RegisterAllocator("one", later);
    EXPECT_EQ(GetAllocator("one"), later) << "replaced";
}

/// Asks the registry in its destructor.
class AskingAllocator final : public IMemoryBlockAllocator {
public:
    explicit AskingAllocator(std::shared_ptr<IMemoryBlockAllocator>& found) : m_found(found) {}
    ~AskingAllocator() override {
        // Fails, rather than waits, on the thread that has the lock of the registry.
        EXPECT_NO_THROW(m_found = GetAllocator("asking"));
    }

    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t) override { return nullptr; }

private:
    std::shared_ptr<IMemoryBlockAllocator>& m_found;
};

TEST(RegisteredAllocators, AreDestroyedOutsideOfTheLockWhenTheyAreReplaced) {
    std::shared_ptr<IMemoryBlockAllocator> found;
    RegisterAllocator("asking", std::make_shared<AskingAllocator>(found));
    EXPECT_EQ(found, nullptr);
    const auto second = std::make_shared<NoMemory>();
    RegisterAllocator("asking", second);
    EXPECT_EQ(found, second);
}

TEST(RegisteredAllocators, CannotBeEmpty) {
    const auto kept = std::make_shared<NoMemory>();
    RegisterAllocator("kept", kept);
    test::ExpectFailure("[the allocator to register as \"kept\" is empty] [ Pointer is null ]",
                        kThisModule, [] { RegisterAllocator("kept", nullptr); });
    EXPECT_EQ(GetAllocator("kept"), kept);
}

} // namespace
} // namespace kel
