#include <CapturingWriter.h>
#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel {

namespace {

using testing::ElementsAre;

constexpr const char* kThisModule = "kelCore/Buffer.cpp";

static_assert(std::is_same_v<decltype(std::declval<const IBuffer&>().GetSize()), std::uint32_t>);
static_assert(
    std::is_same_v<decltype(std::declval<const IBuffer&>().GetData()), const std::uint8_t*>);
static_assert(std::is_same_v<decltype(std::declval<IBuffer&>().GetData()), std::uint8_t*>);

/// A block with nothing but what it must have.
class VectorBlock final : public IMemoryBlock {
public:
    explicit VectorBlock(std::uint32_t bytes) : m_bytes(bytes) {}

    std::uint8_t* GetData() override { return m_bytes.data(); }
    std::uint32_t GetSize() const override { return static_cast<std::uint32_t>(m_bytes.size()); }

private:
    std::vector<std::uint8_t> m_bytes;
};

/// An allocator that notes what it is asked for and answers as the test says.
class NotingAllocator final : public IMemoryBlockAllocator {
public:
    using Answer = std::function<std::shared_ptr<IMemoryBlock>(std::uint32_t)>;

    explicit NotingAllocator(Answer answer) : m_answer(std::move(answer)) {}

    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t bytes) override {
        requests.push_back(bytes);
        return m_answer(bytes);
    }

    std::vector<std::uint32_t> requests;

private:
    Answer m_answer;
};

std::shared_ptr<IMemoryBlock> MakeBlock(std::uint32_t bytes) {
    return std::make_shared<VectorBlock>(bytes);
}

void Write(IBuffer& buffer, const std::string& text) {
    buffer.Reserve(static_cast<std::uint32_t>(text.size()));
    text.copy(reinterpret_cast<char*>(buffer.GetData()), text.size());
    buffer.SetSize(static_cast<std::uint32_t>(text.size()));
}

std::string Text(const IBuffer& buffer) {
    return {reinterpret_cast<const char*>(buffer.GetData()), buffer.GetSize()};
}

TEST(ABuffer, IsEmptyAtFirst) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    EXPECT_EQ(buffer->GetSize(), 0U);
    EXPECT_EQ(buffer->GetData(), nullptr);
    EXPECT_EQ(std::as_const(*buffer).GetData(), nullptr);
}

TEST(ABuffer, IsUsableWithoutAnAllocator) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    Write(*buffer, "sixteen bytes...");
    EXPECT_EQ(buffer->GetSize(), 16U);
    EXPECT_EQ(Text(*buffer), "sixteen bytes...");
    EXPECT_EQ(std::as_const(*buffer).GetData(), buffer->GetData());
}

TEST(ABuffer, HasRoomForAnyReservedSizeUpToItsLastByte) {
    for (const std::uint32_t bytes : {1U, 3U, 64U, 65U, 8192U, 1000001U}) {
        const auto buffer = CreateBuffer(nullptr, nullptr);
        buffer->Reserve(bytes);
        buffer->SetSize(bytes);
        buffer->GetData()[0] = 1;
        buffer->GetData()[bytes - 1] = 2;
        EXPECT_EQ(buffer->GetSize(), bytes);
    }
}

TEST(ABuffer, HasNoValidBytesAfterReservingAlone) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(16);
    EXPECT_EQ(buffer->GetSize(), 0U);
    EXPECT_NE(buffer->GetData(), nullptr);
}

TEST(ABuffer, KeepsItsValidBytesWhenItGrows) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    Write(*buffer, "kept");
    for (const std::uint32_t bytes : {100U, 10000U, 1000000U}) {
        buffer->Reserve(bytes);
        EXPECT_EQ(Text(*buffer), "kept") << bytes;
        buffer->GetData()[bytes - 1] = 1;
    }
}

TEST(ABuffer, NeverShrinks) {
    const auto allocator = std::make_shared<NotingAllocator>(MakeBlock);
    const auto buffer = CreateBuffer(allocator, nullptr);
    buffer->Reserve(100);
    const std::uint8_t* const data = buffer->GetData();
    for (const std::uint32_t bytes : {0U, 1U, 99U, 100U}) {
        buffer->Reserve(bytes);
        EXPECT_EQ(buffer->GetData(), data);
    }
    buffer->SetSize(100);
    EXPECT_EQ(buffer->GetSize(), 100U);
    EXPECT_THAT(allocator->requests, ElementsAre(100U));
}

TEST(ABuffer, TakesItsBlocksFromItsAllocator) {
    const auto allocator = std::make_shared<NotingAllocator>(MakeBlock);
    const auto buffer = CreateBuffer(allocator, nullptr);
    EXPECT_THAT(allocator->requests, ElementsAre()) << "not before Reserve";
    Write(*buffer, "kept");
    buffer->Reserve(5);
    buffer->Reserve(100);
    EXPECT_EQ(Text(*buffer), "kept");
    EXPECT_THAT(allocator->requests, ElementsAre(4U, 5U, 100U));
}

TEST(ABuffer, UsesAllOfABlockThatIsLargerThanWanted) {
    const auto allocator = std::make_shared<NotingAllocator>(
        [](std::uint32_t bytes) { return MakeBlock(bytes + 28); });
    const auto buffer = CreateBuffer(allocator, nullptr);
    buffer->Reserve(100);
    buffer->Reserve(128);
    buffer->SetSize(128);
    EXPECT_EQ(buffer->GetSize(), 128U);
    EXPECT_THAT(allocator->requests, ElementsAre(100U));
}

TEST(ABuffer, StartsWithTheBlockThatItIsGiven) {
    const auto allocator = std::make_shared<NotingAllocator>(MakeBlock);
    auto block = MakeBlock(16);
    const std::weak_ptr<IMemoryBlock> watch = block;
    const std::uint8_t* const data = block->GetData();
    const auto buffer = CreateBuffer(allocator, std::move(block));
    EXPECT_EQ(buffer->GetSize(), 0U);
    EXPECT_EQ(buffer->GetData(), data);
    EXPECT_FALSE(watch.expired());
    Write(*buffer, "sixteen bytes...");
    EXPECT_EQ(buffer->GetData(), data);
    EXPECT_THAT(allocator->requests, ElementsAre());

    buffer->Reserve(17);
    EXPECT_EQ(Text(*buffer), "sixteen bytes...");
    EXPECT_TRUE(watch.expired());
    EXPECT_THAT(allocator->requests, ElementsAre(17U));
}

TEST(ABuffer, GrowsBeyondItsFirstBlockWithoutAnAllocator) {
    const auto buffer = CreateBuffer(nullptr, MakeBlock(4));
    Write(*buffer, "kept");
    buffer->Reserve(1000);
    EXPECT_EQ(Text(*buffer), "kept");
}

TEST(ABuffer, KeepsItsAllocatorAndReleasesAllAtItsEnd) {
    auto allocator = std::make_shared<NotingAllocator>(MakeBlock);
    const std::weak_ptr<NotingAllocator> watch = allocator;
    auto buffer = CreateBuffer(std::move(allocator), nullptr);
    EXPECT_FALSE(watch.expired());
    buffer->Reserve(16);
    buffer.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(ABuffer, TakesAnySizeThatIsReserved) {
    const auto buffer = CreateBuffer(nullptr, MakeBlock(16));
    for (const std::uint32_t bytes : {0U, 1U, 16U, 5U, 0U}) {
        buffer->SetSize(bytes);
        EXPECT_EQ(buffer->GetSize(), bytes);
    }
}

TEST(ABuffer, RefusesASizeBeyondWhatIsReservedAndKeepsItsOwn) {
    const auto buffer = CreateBuffer(nullptr, MakeBlock(16));
    buffer->SetSize(7);
    test::ExpectFailure("[a buffer with 16 bytes reserved cannot have 17 valid bytes]", kThisModule,
                        [&] { buffer->SetSize(17); });
    test::ExpectFailure("[a buffer with 16 bytes reserved cannot have 4294967295 valid bytes]",
                        kThisModule, [&] { buffer->SetSize(0xFFFFFFFF); });
    EXPECT_EQ(buffer->GetSize(), 7U);
}

TEST(ABuffer, RefusesAnySizeButZeroBeforeAnythingIsReserved) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->SetSize(0);
    test::ExpectFailure("[a buffer with 0 bytes reserved cannot have 1 valid bytes]", kThisModule,
                        [&] { buffer->SetSize(1); });
}

// A buffer of four valid bytes whose allocator answers further requests as given.
std::shared_ptr<IBuffer> MakeBufferWith(NotingAllocator::Answer answer) {
    auto buffer = CreateBuffer(std::make_shared<NotingAllocator>(std::move(answer)), MakeBlock(4));
    Write(*buffer, "kept");
    return buffer;
}

void ExpectUnchanged(const IBuffer& buffer, const std::uint8_t* data) {
    EXPECT_EQ(buffer.GetData(), data);
    EXPECT_EQ(Text(buffer), "kept");
}

TEST(ABufferWhoseAllocatorFails, IsAsItWasWhenTheAnswerIsEmpty) {
    const auto buffer = MakeBufferWith([](std::uint32_t) { return nullptr; });
    const std::uint8_t* const data = buffer->GetData();
    test::ExpectFailure("[the allocator gave no block of 100 bytes] [ Pointer is null ]",
                        kThisModule, [&] { buffer->Reserve(100); });
    ExpectUnchanged(*buffer, data);
}

TEST(ABufferWhoseAllocatorFails, IsAsItWasWhenTheBlockIsTooSmall) {
    const auto buffer = MakeBufferWith([](std::uint32_t bytes) { return MakeBlock(bytes - 1); });
    const std::uint8_t* const data = buffer->GetData();
    test::ExpectFailure("[the allocator gave a block of 99 bytes where 100 were needed] "
                        "[ Condition is not true ]",
                        kThisModule, [&] { buffer->Reserve(100); });
    ExpectUnchanged(*buffer, data);
}

TEST(ABufferWhoseAllocatorFails, IsAsItWasWhenTheAllocatorThrows) {
    const auto buffer = MakeBufferWith([](std::uint32_t) -> std::shared_ptr<IMemoryBlock> {
        throw std::length_error("the allocator's own");
    });
    const std::uint8_t* const data = buffer->GetData();
    EXPECT_THROW(buffer->Reserve(100), std::length_error);
    ExpectUnchanged(*buffer, data);
}

TEST(ABuffer, GoesToTheRecyclerAndBack) {
    const test::LogCapture log;
    const auto recycler =
        ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
    auto buffer = CreateBuffer(recycler, nullptr);
    buffer->Reserve(8192);
    const std::uint8_t* const data = buffer->GetData();
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 64, 0U);
    buffer.reset();
    buffer = CreateBuffer(recycler, nullptr);
    buffer->Reserve(8192);
    EXPECT_EQ(buffer->GetData(), data);
}

} // namespace
} // namespace kel
