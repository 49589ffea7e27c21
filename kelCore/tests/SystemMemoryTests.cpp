// Memory that the framework takes from the system, and memory that it retains.

#include "SystemMemory.h"

#include <CapturingWriter.h>
#include <kelCore.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

using test::BlocksOfThatSizeTaken;
using test::CallAtNextBlock;
using test::ChangedReleasedBlocks;
using test::CountBlocksOfAtLeast;
using test::GetSystemMemory;
using test::MemoryLimit;
using test::ReleasedBlocks;

constexpr std::size_t kMebi = std::size_t{1} << 20U;

using RecyclerFactory = ElementFactory<ElementFactoryType::MemoryBlockAllocator>;

// Without a record in the log, which would take memory of its own.
std::shared_ptr<IMemoryBlockAllocator> MakeRecycler() {
    const auto factory = std::dynamic_pointer_cast<RecyclerFactory>(
        GetFactory(ElementFactoryType::MemoryBlockAllocator, "kel", "Recycler"));
    return factory->creator(nullptr);
}

/// Memory held by a recycler: the difference to the counts before it was made.
class TheRecyclersMemory : public testing::Test {
protected:
    // Takes so many blocks, all at a time, and releases them.
    void TakeAndRelease(std::size_t count, std::uint32_t bytes) {
        std::vector<std::shared_ptr<IMemoryBlock>> blocks;
        for (std::size_t i = 0; i < count; ++i) {
            blocks.push_back(recycler->Allocate(bytes));
        }
    }

    std::size_t HeldBlocks() const { return GetSystemMemory().liveBlocks - m_before.liveBlocks; }
    std::size_t HeldBytes() const { return GetSystemMemory().liveBytes - m_before.liveBytes; }

    std::shared_ptr<IMemoryBlockAllocator> recycler = MakeRecycler();

private:
    const test::SystemMemory m_before = GetSystemMemory();
};

// Passes samples through a queue that holds so many of them at a time.
void Stream(const std::shared_ptr<IMemoryBlockAllocator>& allocator, std::uint32_t bytes,
            std::size_t queued, int samples) {
    std::deque<std::shared_ptr<const ISampleContainer>> queue;
    for (int i = 0; i < samples; ++i) {
        if (queue.size() == queued) {
            queue.pop_front();
        }
        auto buffer = CreateBuffer(allocator, nullptr);
        buffer->Reserve(bytes);
        std::memset(buffer->GetData(), i & 0xFF, bytes);
        buffer->SetSize(bytes);
        queue.push_back(CreateSampleContainer(
            CreateAudioSample(nullptr, nullptr, std::move(buffer), TimeLimits(), {}), nullptr));
    }
}

TEST_F(TheRecyclersMemory, IsAsManyBlocksAsAreQueuedForAStreamOfAnyLength) {
    constexpr std::uint32_t kBytes = 8192;
    for (const std::size_t queued : {1U, 2U, 8U}) {
        const auto allocator = MakeRecycler();
        CountBlocksOfAtLeast(kBytes);
        Stream(allocator, kBytes, queued, 10000);
        EXPECT_EQ(BlocksOfThatSizeTaken(), queued);
    }
}

TEST_F(TheRecyclersMemory, IsTakenOnceForBlocksThatAreReusedInAnyOrderAndSize) {
    CountBlocksOfAtLeast(kMebi);
    for (int round = 0; round < 100; ++round) {
        TakeAndRelease(16, kMebi);
    }
    EXPECT_EQ(BlocksOfThatSizeTaken(), 16U);

    constexpr std::uint32_t kHuge = 200U << 20U; // more than is retained otherwise
    CountBlocksOfAtLeast(kHuge);
    for (int round = 0; round < 50; ++round) {
        recycler->Allocate(kHuge)->GetData()[0] = 1;
    }
    EXPECT_EQ(BlocksOfThatSizeTaken(), 1U);
}

TEST_F(TheRecyclersMemory, CostsNothingWhileBlocksAreReused) {
    recycler->Allocate(4096);
    const std::size_t before = GetSystemMemory().blocksTaken;
    for (int i = 0; i < 1000; ++i) {
        recycler->Allocate(4096);
    }
    EXPECT_EQ(GetSystemMemory().blocksTaken, before);
}

TEST_F(TheRecyclersMemory, RetainedIsBoundedInItsNumberOfBlocks) {
    TakeAndRelease(100, 64);
    const std::size_t held = HeldBlocks();
    EXPECT_GT(held, 0U);
    EXPECT_LE(held, 32U);
    TakeAndRelease(5000, 64);
    EXPECT_EQ(HeldBlocks(), held);
}

// 64 MiB, and the headers of the blocks.
constexpr std::size_t kMaxHeldBytes = 65 * kMebi;

TEST_F(TheRecyclersMemory, RetainedIsBoundedInItsBytes) {
    for (const std::size_t count : {1U, 40U, 200U}) {
        TakeAndRelease(count, 4U << 20U);
        EXPECT_GE(HeldBytes(), 4 * kMebi) << count;
        EXPECT_LE(HeldBytes(), kMaxHeldBytes) << count;
    }
}

TEST_F(TheRecyclersMemory, RetainedIsOneBlockWhenBlocksAreHuge) {
    TakeAndRelease(5, 200U << 20U);
    EXPECT_EQ(HeldBlocks(), 1U);
    EXPECT_LE(HeldBytes(), 201 * kMebi);
}

TEST_F(TheRecyclersMemory, RetainedIsBoundedWhenALargeBlockIsReleasedLast) {
    TakeAndRelease(16, 4U << 20U);
    TakeAndRelease(1, 60U << 20U);
    EXPECT_GE(HeldBytes(), 60 * kMebi);
    EXPECT_LE(HeldBytes(), kMaxHeldBytes);
}

TEST_F(TheRecyclersMemory, RetainedExcludesAHugeBlockOnceASmallOneIsReleased) {
    auto large = recycler->Allocate(200U << 20U);
    auto small = recycler->Allocate(64);
    large.reset();
    small.reset();
    EXPECT_LE(HeldBytes(), kMebi);
}

TEST_F(TheRecyclersMemory, RetainedIsBoundedForMixedSizes) {
    for (std::uint32_t bytes = 1000; bytes < (32U << 20U); bytes = bytes / 2 * 3) {
        TakeAndRelease(10, bytes);
        EXPECT_LE(HeldBlocks(), 32U) << bytes;
        EXPECT_LE(HeldBytes(), kMaxHeldBytes) << bytes;
    }
}

TEST_F(TheRecyclersMemory, IsReleasedWithTheRecyclerAndItsLastHandle) {
    const auto before = GetSystemMemory();
    const auto expectReleased = [&before] {
        EXPECT_EQ(GetSystemMemory().liveBlocks, before.liveBlocks);
        EXPECT_EQ(GetSystemMemory().liveBytes, before.liveBytes);
    };
    auto other = MakeRecycler();
    other->Allocate(4096);
    other.reset();
    expectReleased();

    other = MakeRecycler();
    auto block = other->Allocate(4096);
    other->Allocate(100);
    other->Allocate(kMebi);
    other.reset();
    EXPECT_GT(GetSystemMemory().liveBlocks, before.liveBlocks) << "one block is still in use";
    std::weak_ptr<IMemoryBlock> weak = block;
    block.reset();
    EXPECT_GT(GetSystemMemory().liveBlocks, before.liveBlocks) << "its handle is in the block";
    weak.reset();
    expectReleased();
}

// The pool deletes itself while it returns its last block. Its lock must be released before that.
TEST_F(TheRecyclersMemory, IsNotUsedAfterItsRelease) {
    auto block = recycler->Allocate(4096);
    recycler.reset();
    const ReleasedBlocks released;
    const std::size_t before = GetSystemMemory().liveBlocks;
    block.reset();
    EXPECT_EQ(GetSystemMemory().liveBlocks, before - 2) << "the block and the pool";
    EXPECT_EQ(ChangedReleasedBlocks(), 0U);
}

constexpr const char* kThisModule = "kelCore/Recycler.cpp";

TEST_F(TheRecyclersMemory, IsRefusedWithTheNumberOfBytesWhenTheSystemHasNone) {
    recycler->Allocate(4096);
    {
        const MemoryLimit limit(kMebi);
        test::ExpectFailure("[could not get a memory block of 4294967295 bytes from the system]",
                            kThisModule, [this] { recycler->Allocate(0xFFFFFFFF); });
        test::ExpectFailure("[could not get a memory block of 1048576 bytes from the system]",
                            kThisModule, [this] { recycler->Allocate(1048576); });
        CountBlocksOfAtLeast(4096);
        EXPECT_EQ(recycler->Allocate(4096)->GetSize(), 4096U);
        EXPECT_EQ(BlocksOfThatSizeTaken(), 0U) << "the retained block is still there";
    }
    auto block = recycler->Allocate(2 * kMebi);
    EXPECT_EQ(block->GetSize(), 2 * kMebi);
    const std::size_t before = GetSystemMemory().liveBlocks;
    recycler.reset();
    block.reset();
    EXPECT_EQ(GetSystemMemory().liveBlocks, before - 4) << "the recycler, its pool, two blocks";
}

TEST(ABuffersMemory, IsRefusedWhenTheSystemHasNoneAndReleasedWithTheBuffer) {
    const auto use = [] {
        const auto before = GetSystemMemory();
        const auto buffer = CreateBuffer(nullptr, nullptr);
        buffer->Reserve(4);
        {
            const MemoryLimit limit(kMebi);
            test::ExpectFailure(
                "[could not get a memory block of 4294967295 bytes from the system]", kThisModule,
                [&] { buffer->Reserve(0xFFFFFFFF); });
        }
        buffer->Reserve(10000);
        EXPECT_GT(GetSystemMemory().liveBytes, before.liveBytes + 10000);
    };
    use(); // the C library keeps memory of the first record
    const auto before = GetSystemMemory();
    use();
    EXPECT_EQ(GetSystemMemory().liveBlocks, before.liveBlocks);
    EXPECT_EQ(GetSystemMemory().liveBytes, before.liveBytes);
}

std::future<std::size_t> g_listing;
bool g_listingWaits = false;

// The entry of a new allocator takes memory while the registry is locked. The name is new in each
// repetition of the test.
TEST(TheListOfRegistrations, IsNotReadWhileTheRegistryIsWritten) {
    static int repetition = 0;
    const std::string name = std::to_string(++repetition);
    const auto allocator = MakeRecycler();
    CallAtNextBlock([] {
        g_listing = std::async(std::launch::async, [] { return GetRegistrations().size(); });
        g_listingWaits =
            g_listing.wait_for(std::chrono::milliseconds(200)) == std::future_status::timeout;
    });
    RegisterAllocator(name, allocator);
    EXPECT_TRUE(g_listingWaits);
    EXPECT_EQ(g_listing.get(), 1U);
}

} // namespace
} // namespace kel
