#include "Elements.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <type_traits>

namespace kel {

namespace {

using test::AllocatorFactory;
using test::Manifest;
using test::SinkFactory;
using test::SmallSink;
using test::SmallSource;
using test::SourceFactory;

static_assert(std::is_abstract_v<IElementFactory>);
static_assert(std::has_virtual_destructor_v<IElementFactory>);
static_assert(std::is_base_of_v<IElementFactory, SourceFactory>);
static_assert(
    std::is_constructible_v<SourceFactory, std::function<std::shared_ptr<IAudioSource>(Manifest)>>);
static_assert(
    std::is_constructible_v<SinkFactory, std::function<std::shared_ptr<IAudioSink>(Manifest)>>);
static_assert(std::is_constructible_v<
              AllocatorFactory, std::function<std::shared_ptr<IMemoryBlockAllocator>(Manifest)>>);

TEST(ElementFactoryTypeLabels, NameTheKinds) {
    EXPECT_EQ(GetLabel(ElementFactoryType::AudioSource), "AudioSource");
    EXPECT_EQ(GetLabel(ElementFactoryType::AudioSink), "AudioSink");
    EXPECT_EQ(GetLabel(ElementFactoryType::MemoryBlockAllocator), "MemoryBlockAllocator");
}

TEST(ElementFactoryTypeLabels, AreNumbersForValuesWithoutAName) {
    EXPECT_EQ(GetLabel(static_cast<ElementFactoryType>(4)), "ElementFactoryType(4)");
    EXPECT_EQ(GetLabel(static_cast<ElementFactoryType>(-7)), "ElementFactoryType(-7)");
}

TEST(AnElementFactory, TellsItsKindThroughItsBase) {
    const std::shared_ptr<IElementFactory> sources = std::make_shared<SourceFactory>(nullptr);
    const std::shared_ptr<IElementFactory> sinks = std::make_shared<SinkFactory>(nullptr);
    const std::shared_ptr<IElementFactory> allocators = std::make_shared<AllocatorFactory>(nullptr);
    EXPECT_EQ(sources->GetFactoryType(), ElementFactoryType::AudioSource);
    EXPECT_EQ(sinks->GetFactoryType(), ElementFactoryType::AudioSink);
    EXPECT_EQ(allocators->GetFactoryType(), ElementFactoryType::MemoryBlockAllocator);
}

TEST(AnElementFactory, IsFoundByARunTimeCastToItsOwnKindAlone) {
    const std::shared_ptr<IElementFactory> factory = test::MakeSourceFactory();
    EXPECT_NE(std::dynamic_pointer_cast<SourceFactory>(factory), nullptr);
    EXPECT_EQ(std::dynamic_pointer_cast<SinkFactory>(factory), nullptr);
    EXPECT_EQ(std::dynamic_pointer_cast<AllocatorFactory>(factory), nullptr);
}

TEST(AnElementFactory, HandsTheManifestToItsCreatorAndMakesANewElementEachTime) {
    const auto factory = test::MakeSourceFactory();
    const Manifest manifest =
        test::MakeEntry(ElementFactoryType::AudioSource, "test.Source", "WAVE");
    const std::shared_ptr<IAudioSource> first = factory->creator(manifest);
    const std::shared_ptr<IAudioSource> second = factory->creator(manifest);
    EXPECT_EQ(first->GetManifest(), manifest);
    EXPECT_EQ(second->GetManifest(), manifest);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.use_count(), 1);
}

TEST(AnElementFactory, KeepsWhatItsCreatorHolds) {
    auto held = std::make_shared<int>(1);
    auto factory = std::make_shared<SinkFactory>(
        [held](const Manifest&) { return std::make_shared<SmallSink>(); });
    const std::weak_ptr<int> watch = held;
    held.reset();
    EXPECT_FALSE(watch.expired());
    factory.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(AnElementFactory, WithoutACreatorFailsWhenItIsCalled) {
    const auto factory = std::make_shared<SourceFactory>(nullptr);
    EXPECT_FALSE(factory->creator);
    EXPECT_THROW(factory->creator(nullptr), std::bad_function_call);
}

} // namespace
} // namespace kel
