// What the framework takes from the system, and what it holds back.

#include "SystemMemory.h"

#include <CapturingWriter.h>
#include <kelCore.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

namespace kel {

namespace {

using test::BlocksOfThatSizeTaken;
using test::CountBlocksOfAtLeast;
using test::GetSystemMemory;
using test::MemoryLimit;

constexpr std::size_t kMebi = std::size_t{1} << 20U;

using RecyclerFactory = ElementFactory<ElementFactoryType::MemoryBlockAllocator>;

// Without a record in the log, which would take memory of its own.
std::shared_ptr<IMemoryBlockAllocator> MakeRecycler() {
    const auto factory = std::dynamic_pointer_cast<RecyclerFactory>(
        GetFactory(ElementFactoryType::MemoryBlockAllocator, "kel", "Recycler"));
    return factory->creator(nullptr);
}

/// What is held by the recycler alone: the difference to before it was made.
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

TEST_F(TheRecyclersMemory, IsTakenFromTheSystemOnceForAStreamOfOneBlockSize) {
    constexpr std::uint32_t kBytes = 1024 * 2 * 4;
    CountBlocksOfAtLeast(kBytes);
    for (int i = 0; i < 10000; ++i) {
        const auto block = recycler->Allocate(kBytes);
        block->GetData()[kBytes - 1] = 1;
    }
    EXPECT_EQ(BlocksOfThatSizeTaken(), 1U);
}

// A stream of samples of which so many are on their way at a time.
void Stream(const std::shared_ptr<IMemoryBlockAllocator>& allocator, std::uint32_t bytes,
            std::size_t onTheirWay, int samples) {
    std::deque<std::shared_ptr<const ISampleContainer>> queue;
    for (int i = 0; i < samples; ++i) {
        if (queue.size() == onTheirWay) {
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

TEST_F(TheRecyclersMemory, IsAsManyBlocksAsAreOnTheirWayWhateverTheLengthOfTheStream) {
    constexpr std::uint32_t kBytes = 8192;
    for (const std::size_t onTheirWay : {1U, 2U, 8U}) {
        for (const int samples : {100, 10000}) {
            const auto allocator = MakeRecycler();
            CountBlocksOfAtLeast(kBytes);
            Stream(allocator, kBytes, onTheirWay, samples);
            EXPECT_EQ(BlocksOfThatSizeTaken(), onTheirWay) << samples;
        }
    }
}

TEST_F(TheRecyclersMemory, IsTakenOnceForBlocksThatComeAndGoTogether) {
    CountBlocksOfAtLeast(8192);
    for (int round = 0; round < 100; ++round) {
        TakeAndRelease(16, 8192);
    }
    EXPECT_EQ(BlocksOfThatSizeTaken(), 16U);
}

TEST_F(TheRecyclersMemory, IsTakenOnceEvenForBlocksThatAreLargerThanWhatIsHeldBackOtherwise) {
    constexpr std::uint32_t kBytes = 200U << 20U;
    CountBlocksOfAtLeast(kBytes);
    for (int i = 0; i < 50; ++i) {
        recycler->Allocate(kBytes)->GetData()[0] = 1;
    }
    EXPECT_EQ(BlocksOfThatSizeTaken(), 1U);
}

TEST_F(TheRecyclersMemory, CostsNothingAtAllWhileBlocksAreReused) {
    recycler->Allocate(4096);
    const std::size_t before = GetSystemMemory().blocksTaken;
    for (int i = 0; i < 1000; ++i) {
        recycler->Allocate(4096);
    }
    EXPECT_EQ(GetSystemMemory().blocksTaken, before);
}

TEST_F(TheRecyclersMemory, HeldBackIsBoundedInItsNumberOfBlocks) {
    TakeAndRelease(100, 64);
    const std::size_t held = HeldBlocks();
    EXPECT_GT(held, 0U);
    EXPECT_LE(held, 32U);
    TakeAndRelease(5000, 64);
    EXPECT_EQ(HeldBlocks(), held);
}

// 64 MiB, and what goes with the blocks.
constexpr std::size_t kMostHeldBytes = 65 * kMebi;

TEST_F(TheRecyclersMemory, HeldBackIsBoundedInItsBytes) {
    for (const std::size_t count : {1U, 40U, 200U}) {
        TakeAndRelease(count, 4U << 20U);
        EXPECT_GE(HeldBytes(), 4 * kMebi) << count;
        EXPECT_LE(HeldBytes(), kMostHeldBytes) << count;
    }
}

TEST_F(TheRecyclersMemory, HeldBackIsOneBlockWhenBlocksAreHuge) {
    TakeAndRelease(5, 200U << 20U);
    EXPECT_EQ(HeldBlocks(), 1U);
    EXPECT_LE(HeldBytes(), 201 * kMebi);
}

TEST_F(TheRecyclersMemory, HeldBackGoesWhenAHugeBlockHasComeBackAndASmallOneFollows) {
    TakeAndRelease(1, 200U << 20U);
    auto large = recycler->Allocate(200U << 20U);
    auto small = recycler->Allocate(64);
    large.reset();
    small.reset();
    EXPECT_LE(HeldBytes(), kMebi);
}

TEST_F(TheRecyclersMemory, HeldBackIsBoundedForMixedSizes) {
    for (std::uint32_t bytes = 1000; bytes < (32U << 20U); bytes = bytes / 2 * 3) {
        TakeAndRelease(10, bytes);
        EXPECT_LE(HeldBlocks(), 32U) << bytes;
        EXPECT_LE(HeldBytes(), kMostHeldBytes) << bytes;
    }
}

TEST_F(TheRecyclersMemory, GoesBackToTheSystemWithTheRecyclerAndItsLastBlock) {
    const auto before = GetSystemMemory();
    auto other = MakeRecycler();
    auto block = other->Allocate(4096);
    other->Allocate(100);
    other->Allocate(kMebi);
    other.reset();
    EXPECT_GT(GetSystemMemory().liveBlocks, before.liveBlocks) << "one block is still in use";
    block.reset();
    EXPECT_EQ(GetSystemMemory().liveBlocks, before.liveBlocks);
    EXPECT_EQ(GetSystemMemory().liveBytes, before.liveBytes);
}

TEST_F(TheRecyclersMemory, GoesBackToTheSystemWithARecyclerThatHasAllItsBlocks) {
    const auto before = GetSystemMemory();
    auto other = MakeRecycler();
    other->Allocate(4096);
    other.reset();
    EXPECT_EQ(GetSystemMemory().liveBlocks, before.liveBlocks);
    EXPECT_EQ(GetSystemMemory().liveBytes, before.liveBytes);
}

TEST_F(TheRecyclersMemory, GoesBackToTheSystemWithTheLastWeakHandle) {
    const auto before = GetSystemMemory();
    auto other = MakeRecycler();
    auto block = other->Allocate(4096);
    std::weak_ptr<IMemoryBlock> weak = block;
    block.reset();
    other.reset();
    weak.reset();
    EXPECT_EQ(GetSystemMemory().liveBlocks, before.liveBlocks);
    EXPECT_EQ(GetSystemMemory().liveBytes, before.liveBytes);
}

constexpr const char* kThisModule = "kelCore/Recycler.cpp";

TEST_F(TheRecyclersMemory, ThatCanNotBeHadIsRefusedWithTheNumberOfBytes) {
    const MemoryLimit limit(kMebi);
    test::ExpectFailure("[could not get a memory block of 4294967295 bytes from the system]",
                        kThisModule, [this] { recycler->Allocate(0xFFFFFFFF); });
    test::ExpectFailure("[could not get a memory block of 1048576 bytes from the system]",
                        kThisModule, [this] { recycler->Allocate(1048576); });
    EXPECT_EQ(recycler->Allocate(4096)->GetSize(), 4096U) << "smaller blocks can still be had";
}

TEST_F(TheRecyclersMemory, ThatCouldNotBeHadCanBeHadLater) {
    {
        const test::LogCapture log;
        const MemoryLimit limit(kMebi);
        EXPECT_THROW(recycler->Allocate(2 * kMebi), KELRuntimeError);
    }
    EXPECT_EQ(recycler->Allocate(2 * kMebi)->GetSize(), 2 * kMebi);
}

TEST_F(TheRecyclersMemory, GoesBackToTheSystemAfterARefusalToo) {
    const test::LogCapture log;
    recycler->Allocate(4096);
    {
        const MemoryLimit limit(kMebi);
        EXPECT_THROW(recycler->Allocate(2 * kMebi), KELRuntimeError);
    }
    CountBlocksOfAtLeast(4096);
    auto block = recycler->Allocate(4096);
    EXPECT_EQ(BlocksOfThatSizeTaken(), 0U) << "what was held back still is";
    const std::size_t before = GetSystemMemory().liveBlocks;
    recycler.reset();
    block.reset();
    EXPECT_EQ(GetSystemMemory().liveBlocks, before - 3) << "the recycler, its pool, the one block";
}

TEST(ABuffersMemory, ThatCanNotBeHadIsRefusedAndLeavesTheBufferAsItWas) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(4);
    std::memcpy(buffer->GetData(), "abcd", 4);
    buffer->SetSize(4);
    const std::uint8_t* const data = buffer->GetData();
    const MemoryLimit limit(kMebi);
    test::ExpectFailure("[could not get a memory block of 4294967295 bytes from the system]",
                        kThisModule, [&] { buffer->Reserve(0xFFFFFFFF); });
    EXPECT_EQ(buffer->GetData(), data);
    EXPECT_EQ(buffer->GetSize(), 4U);
    EXPECT_EQ(std::memcmp(buffer->GetData(), "abcd", 4), 0);
}

TEST(ABuffersMemory, GoesBackToTheSystemWithTheBuffer) {
    const auto before = GetSystemMemory();
    auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(100);
    buffer->Reserve(10000);
    EXPECT_GT(GetSystemMemory().liveBytes, before.liveBytes + 10000);
    buffer.reset();
    EXPECT_EQ(GetSystemMemory().liveBlocks, before.liveBlocks);
    EXPECT_EQ(GetSystemMemory().liveBytes, before.liveBytes);
}

} // namespace
} // namespace kel
