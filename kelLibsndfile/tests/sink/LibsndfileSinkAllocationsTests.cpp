// How often the sink asks for memory.

#include "SinkTestSupport.h"

#include <TemporaryDirectory.h>

#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <string>

namespace {

// Single-threaded, as the tests are.
std::size_t allocations = 0;

void* Allocate(std::size_t bytes) {
    ++allocations;
    if (void* const memory = std::malloc(bytes != 0 ? bytes : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t bytes) {
    return Allocate(bytes);
}
void* operator new[](std::size_t bytes) {
    return Allocate(bytes);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*bytes*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*bytes*/) noexcept {
    std::free(memory);
}

namespace kel::test {
namespace {

template <typename Operation>
std::size_t AllocationsOf(Operation operation) {
    const std::size_t before = allocations;
    operation();
    return allocations - before;
}

TEST(LibsndfileSinkAllocations, CountWhatThePlugInAsksFor) {
    std::shared_ptr<IAudioSink> sink = MakeSink("WAVE");
    const std::wstring path(1000, L'x');
    EXPECT_EQ(AllocationsOf([&] { sink->Open(path); }), 1U);
}

TEST(LibsndfileSinkAllocations, AreOneForASinkAndItsReferenceCount) {
    const auto manifest = MakeManifest("WAVE");
    LoadPlugin();
    const auto factory = std::dynamic_pointer_cast<ElementFactory<ElementFactoryType::AudioSink>>(
        GetFactory(ElementFactoryType::AudioSink, "kel.LibsndfileSink", "WAVE"));
    std::shared_ptr<IAudioSink> sink;
    EXPECT_EQ(AllocationsOf([&] { sink = factory->creator(manifest); }), 1U);
}

TEST(LibsndfileSinkAllocations, AreOneForEachPushedSampleWhateverItsSize) {
    const TemporaryDirectory directory;
    const auto sink = MakeWritingSink(directory / "take.wav");
    for (const std::size_t size : {0U, 4U, 4096U, 4000000U}) {
        const auto container = MakeContainer(std::string(size, 'x'));
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(AllocationsOf([&] { sink->PushSample(container); }), 1U) << size << " bytes";
        }
    }
    sink->Close(false);
    EXPECT_EQ(ReadFile(directory / "take.wav").size(), 80U + 3U * (4U + 4096U + 4000000U));
}

TEST(LibsndfileSinkAllocations, AreNoneForAnEmptyContainer) {
    const TemporaryDirectory directory;
    const auto sink = MakeWritingSink(directory / "take.wav");
    const auto empty =
        CreateSampleContainer(std::vector<std::shared_ptr<const ISample>>(), nullptr);
    EXPECT_EQ(AllocationsOf([&] { sink->PushSample(empty); }), 0U);
    sink->Close(false);
}

} // namespace
} // namespace kel::test
