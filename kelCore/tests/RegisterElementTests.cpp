#include "Elements.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

namespace kel {

namespace {

class OwnAllocator final : public IMemoryBlockAllocator {
public:
    explicit OwnAllocator(const test::Manifest& /*manifest*/) {}
    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t /*bytes*/) override { return nullptr; }
};

TEST(RegisterElement, AddsARegistrationOfTheKindOfTheClass) {
    const std::string name = "registered by class";
    const auto settings = CreateParametersCollectionPrototype();
    RegisterElement<test::SmallSource>(name, "3.1", {"own.Source", "A source.", settings});
    RegisterElement<test::SmallSink>(name, "3.1", {"own.Sink", "A sink.", settings, "WAVE"});
    RegisterElement<OwnAllocator>(name, "3.1", {"own.Heap", "A heap.", settings});

    const auto source =
        ImplementElement<ElementFactoryType::AudioSource>("own.Source", "Unknown", nullptr);
    EXPECT_EQ(source->GetManifest()->GetStringValue("doc"), "A source.");
    EXPECT_EQ(source->GetManifest()->GetCollectionValue("init_config"), settings);
    EXPECT_NE(ImplementElement<ElementFactoryType::AudioSource>("own.Source", "Unknown", nullptr),
              source);
    EXPECT_NE(ImplementElement<ElementFactoryType::AudioSink>("own.Sink", "WAVE", nullptr),
              nullptr);
    EXPECT_NE(
        ImplementElement<ElementFactoryType::MemoryBlockAllocator>("own.Heap", "Unknown", nullptr),
        nullptr);
    EXPECT_EQ(GetRegistrations().back().coreId, GetKELCoreIdInternal("3.1"));
    EXPECT_EQ(UnregisterFactories(name), 3U);
}

} // namespace
} // namespace kel
