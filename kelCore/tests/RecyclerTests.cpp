#include <kelCore.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

namespace kel {

namespace {

std::shared_ptr<IMemoryBlockAllocator> MakeRecycler() {
    return ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
}

void Fill(IMemoryBlock& block, std::uint8_t value) {
    std::memset(block.GetData(), value, block.GetSize());
}

bool IsFilledWith(IMemoryBlock& block, std::uint8_t value) {
    return std::all_of(block.GetData(), block.GetData() + block.GetSize(),
                       [value](std::uint8_t byte) { return byte == value; });
}

TEST(TheRecycler, IsANewPoolEachTime) {
    const auto one = MakeRecycler();
    const auto other = MakeRecycler();
    EXPECT_NE(one, other);
    const std::uint8_t* const released = one->Allocate(4096)->GetData();
    EXPECT_NE(other->Allocate(4096)->GetData(), released);
    EXPECT_EQ(one->Allocate(4096)->GetData(), released);
}

TEST(TheRecycler, ReturnsBlocksOfTheRequestedSizeThatCanBeWrittenToTheirEnd) {
    const auto recycler = MakeRecycler();
    for (const std::uint32_t bytes : {0U, 1U, 63U, 64U, 65U, 8193U, 1000003U}) {
        const auto block = recycler->Allocate(bytes);
        EXPECT_EQ(block->GetSize(), bytes);
        Fill(*block, 0x5A);
        EXPECT_TRUE(IsFilledWith(*block, 0x5A));
    }
}

TEST(TheRecycler, AlignsNewAndReusedBlocksTo64Bytes) {
    const auto recycler = MakeRecycler();
    for (int round = 0; round < 2; ++round) {
        std::vector<std::shared_ptr<IMemoryBlock>> blocks;
        for (std::uint32_t bytes = 0; bytes < 300; bytes += 7) {
            blocks.push_back(recycler->Allocate(bytes));
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back()->GetData()) % 64, 0U) << bytes;
        }
    }
}

TEST(TheRecycler, GivesABlockToOneHolderAtATime) {
    const auto recycler = MakeRecycler();
    std::vector<std::shared_ptr<IMemoryBlock>> blocks;
    for (std::uint8_t i = 0; i < 100; ++i) {
        blocks.push_back(recycler->Allocate(1000));
        Fill(*blocks.back(), i);
    }
    for (std::uint8_t i = 0; i < 100; ++i) {
        EXPECT_TRUE(IsFilledWith(*blocks[i], i)) << int{i};
    }
}

TEST(TheRecycler, ReusesTheBlockFirstThatWasReleasedLast) {
    const auto recycler = MakeRecycler();
    auto one = recycler->Allocate(4096);
    auto other = recycler->Allocate(4096);
    const std::uint8_t* const dataOfOne = one->GetData();
    const std::uint8_t* const dataOfOther = other->GetData();
    one.reset();
    other.reset();
    one = recycler->Allocate(4096);
    other = recycler->Allocate(4096);
    EXPECT_EQ(one->GetData(), dataOfOther);
    EXPECT_EQ(other->GetData(), dataOfOne);
}

TEST(TheRecycler, ReusesALargerBlockForASmallerOneButNotTheReverse) {
    const auto recycler = MakeRecycler();
    const std::uint8_t* const small = recycler->Allocate(1000)->GetData();
    auto large = recycler->Allocate(2000);
    EXPECT_NE(large->GetData(), small);
    Fill(*large, 1);
    const std::uint8_t* const largeData = large->GetData();
    large.reset();
    const auto one = recycler->Allocate(1000);
    const auto other = recycler->Allocate(1000);
    EXPECT_EQ(one->GetData(), small) << "the one that fits best";
    EXPECT_EQ(other->GetData(), largeData);
    EXPECT_EQ(other->GetSize(), 1000U);
}

TEST(TheRecycler, DoesNotClearItsBlocks) {
    const auto recycler = MakeRecycler();
    Fill(*recycler->Allocate(4096), 0xA5);
    EXPECT_TRUE(IsFilledWith(*recycler->Allocate(4096), 0xA5));
}

TEST(TheRecycler, AcceptsAReleaseOnAnotherThread) {
    const auto recycler = MakeRecycler();
    auto block = recycler->Allocate(4096);
    const std::uint8_t* const data = block->GetData();
    std::thread([released = std::move(block)]() mutable { released.reset(); }).join();
    EXPECT_EQ(recycler->Allocate(4096)->GetData(), data);
}

TEST(TheRecycler, CanBeDestroyedBeforeItsBlocks) {
    auto recycler = MakeRecycler();
    auto block = recycler->Allocate(4096);
    const std::weak_ptr<IMemoryBlock> weak = recycler->Allocate(4096);
    recycler.reset();
    Fill(*block, 0x3C);
    EXPECT_TRUE(IsFilledWith(*block, 0x3C));
    block.reset();
    EXPECT_EQ(weak.lock(), nullptr);
}

TEST(TheRecycler, DoesNotReuseABlockThatAWeakHandleRefersTo) {
    const auto recycler = MakeRecycler();
    auto block = recycler->Allocate(4096);
    std::weak_ptr<IMemoryBlock> weak = block;
    block.reset();
    EXPECT_TRUE(weak.expired());

    const auto next = recycler->Allocate(4096);
    Fill(*next, 0xFF);
    EXPECT_EQ(weak.lock(), nullptr);
    weak.reset();
    EXPECT_TRUE(IsFilledWith(*next, 0xFF));
}

} // namespace
} // namespace kel
