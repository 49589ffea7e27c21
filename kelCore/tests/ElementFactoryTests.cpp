#include "Elements.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace kel {

namespace {

using test::AllocatorFactory;
using test::Manifest;
using test::SinkFactory;
using test::SourceFactory;

TEST(ElementFactoryTypeLabels, AreTheNamesOfTheKinds) {
    EXPECT_EQ(GetLabel(ElementFactoryType::AudioSource), "AudioSource");
    EXPECT_EQ(GetLabel(ElementFactoryType::AudioSink), "AudioSink");
    EXPECT_EQ(GetLabel(ElementFactoryType::MemoryBlockAllocator), "MemoryBlockAllocator");
    EXPECT_EQ(GetLabel(static_cast<ElementFactoryType>(4)), "ElementFactoryType(4)");
    EXPECT_EQ(GetLabel(static_cast<ElementFactoryType>(-7)), "ElementFactoryType(-7)");
}

TEST(AnElementFactory, ReturnsItsKindThroughItsBase) {
    const std::shared_ptr<IElementFactory> sources = std::make_shared<SourceFactory>(nullptr);
    const std::shared_ptr<IElementFactory> sinks = std::make_shared<SinkFactory>(nullptr);
    const std::shared_ptr<IElementFactory> allocators = std::make_shared<AllocatorFactory>(nullptr);
    EXPECT_EQ(sources->GetFactoryType(), ElementFactoryType::AudioSource);
    EXPECT_EQ(sinks->GetFactoryType(), ElementFactoryType::AudioSink);
    EXPECT_EQ(allocators->GetFactoryType(), ElementFactoryType::MemoryBlockAllocator);
}

TEST(AnElementFactory, IsFoundByARunTimeCastOnlyToItsOwnKind) {
    const std::shared_ptr<IElementFactory> factory = test::MakeSourceFactory();
    EXPECT_NE(std::dynamic_pointer_cast<SourceFactory>(factory), nullptr);
    EXPECT_EQ(std::dynamic_pointer_cast<SinkFactory>(factory), nullptr);
    EXPECT_EQ(std::dynamic_pointer_cast<AllocatorFactory>(factory), nullptr);
}

TEST(AnElementFactory, PassesTheManifestToItsCreatorWhichMakesANewElementEachTime) {
    const auto factory = test::MakeSourceFactory();
    const Manifest manifest =
        test::MakeEntry(ElementFactoryType::AudioSource, "test.Source", "WAVE");
    const std::shared_ptr<IAudioSource> first = factory->creator(manifest);
    EXPECT_EQ(first->GetManifest(), manifest);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_NE(factory->creator(manifest), first);
}

TEST(AnElementFactory, FailsWithoutACreatorWhenItIsCalled) {
    const auto factory = std::make_shared<SourceFactory>(nullptr);
    EXPECT_FALSE(factory->creator);
    EXPECT_THROW(factory->creator(nullptr), std::bad_function_call);
}

} // namespace
} // namespace kel
