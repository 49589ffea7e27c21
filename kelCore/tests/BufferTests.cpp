#include <CapturingWriter.h>
#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

using testing::ElementsAre;

constexpr const char* kThisModule = "kelCore/Buffer.cpp";

/// A minimal block.
class VectorBlock final : public IMemoryBlock {
public:
    explicit VectorBlock(std::uint32_t bytes) : m_bytes(bytes) {}

    std::uint8_t* GetData() override { return m_bytes.data(); }
    std::uint32_t GetSize() const override { return static_cast<std::uint32_t>(m_bytes.size()); }

private:
    std::vector<std::uint8_t> m_bytes;
};

/// An allocator that records its requests and calls a function of the test.
class RecordingAllocator final : public IMemoryBlockAllocator {
public:
    using Answer = std::function<std::shared_ptr<IMemoryBlock>(std::uint32_t)>;

    explicit RecordingAllocator(Answer answer) : m_answer(std::move(answer)) {}

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

TEST(ABuffer, HasNoBytesAtFirst) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    EXPECT_EQ(buffer->GetSize(), 0U);
    EXPECT_EQ(buffer->GetData(), nullptr);
    EXPECT_EQ(std::as_const(*buffer).GetData(), nullptr);
}

TEST(ABuffer, ReservesAnySizeUpToItsLastByteWithoutAnAllocator) {
    for (const std::uint32_t bytes : {1U, 3U, 64U, 65U, 8192U, 1000001U}) {
        const auto buffer = CreateBuffer(nullptr, nullptr);
        buffer->Reserve(bytes);
        EXPECT_EQ(buffer->GetSize(), 0U);
        buffer->SetSize(bytes);
        buffer->GetData()[0] = 1;
        buffer->GetData()[bytes - 1] = 2;
        EXPECT_EQ(buffer->GetSize(), bytes);
        EXPECT_EQ(std::as_const(*buffer).GetData(), buffer->GetData());
    }
}

TEST(ABuffer, KeepsItsValidBytesWhenItGrows) {
    const auto buffer = CreateBuffer(nullptr, MakeBlock(4));
    Write(*buffer, "kept");
    for (const std::uint32_t bytes : {100U, 10000U, 1000000U}) {
        buffer->Reserve(bytes);
        EXPECT_EQ(Text(*buffer), "kept") << bytes;
        buffer->GetData()[bytes - 1] = 1;
    }
}

TEST(ABuffer, NeverShrinks) {
    const auto allocator = std::make_shared<RecordingAllocator>(MakeBlock);
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

TEST(ABuffer, UsesAllOfABlockThatIsLargerThanRequested) {
    const auto allocator = std::make_shared<RecordingAllocator>(
        [](std::uint32_t bytes) { return MakeBlock(bytes + 28); });
    const auto buffer = CreateBuffer(allocator, nullptr);
    EXPECT_THAT(allocator->requests, ElementsAre()) << "not before Reserve";
    buffer->Reserve(100);
    buffer->Reserve(128);
    buffer->SetSize(128);
    EXPECT_EQ(buffer->GetSize(), 128U);
    EXPECT_THAT(allocator->requests, ElementsAre(100U));
}

TEST(ABuffer, StartsWithTheBlockThatItIsGiven) {
    const auto allocator = std::make_shared<RecordingAllocator>(MakeBlock);
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

TEST(ABuffer, ReleasesItsAllocatorAtItsEnd) {
    auto allocator = std::make_shared<RecordingAllocator>(MakeBlock);
    const std::weak_ptr<RecordingAllocator> watch = allocator;
    auto buffer = CreateBuffer(std::move(allocator), nullptr);
    EXPECT_FALSE(watch.expired());
    buffer.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(ABuffer, RefusesASizeBeyondItsReservationAndKeepsItsOwn) {
    const auto buffer = CreateBuffer(nullptr, MakeBlock(16));
    for (const std::uint32_t bytes : {0U, 1U, 16U, 7U}) {
        buffer->SetSize(bytes);
        EXPECT_EQ(buffer->GetSize(), bytes);
    }
    test::ExpectFailure("[a buffer with 16 bytes reserved cannot have 17 valid bytes]", kThisModule,
                        [&] { buffer->SetSize(17); });
    test::ExpectFailure("[a buffer with 16 bytes reserved cannot have 4294967295 valid bytes]",
                        kThisModule, [&] { buffer->SetSize(0xFFFFFFFF); });
    EXPECT_EQ(buffer->GetSize(), 7U);

    const auto empty = CreateBuffer(nullptr, nullptr);
    empty->SetSize(0);
    test::ExpectFailure("[a buffer with 0 bytes reserved cannot have 1 valid bytes]", kThisModule,
                        [&] { empty->SetSize(1); });
}

// Expects that a buffer is unchanged after a larger reservation fails, which the given answer of
// its allocator causes.
template <typename Expectation>
void ExpectUnchanged(RecordingAllocator::Answer answer, Expectation expectFailure) {
    auto block = MakeBlock(4);
    const std::weak_ptr<IMemoryBlock> watch = block;
    const auto buffer =
        CreateBuffer(std::make_shared<RecordingAllocator>(std::move(answer)), std::move(block));
    Write(*buffer, "kept");
    expectFailure([&] { buffer->Reserve(100); });
    ASSERT_FALSE(watch.expired()) << "released before there was a larger block";
    EXPECT_EQ(buffer->GetData(), watch.lock()->GetData());
    EXPECT_EQ(Text(*buffer), "kept");
}

TEST(ABuffer, IsUnchangedWhenItsAllocatorFails) {
    ExpectUnchanged([](std::uint32_t) { return nullptr; },
                    [](const auto& reserve) {
                        test::ExpectFailure(
                            "[the allocator gave no block of 100 bytes] [ Pointer is null ]",
                            kThisModule, reserve);
                    });
    ExpectUnchanged([](std::uint32_t bytes) { return MakeBlock(bytes - 1); },
                    [](const auto& reserve) {
                        test::ExpectFailure("[the allocator gave a block of 99 bytes where 100 "
                                            "were needed] [ Condition is not true ]",
                                            kThisModule, reserve);
                    });
    ExpectUnchanged(
        [](std::uint32_t) -> std::shared_ptr<IMemoryBlock> { throw std::length_error("own"); },
        [](const auto& reserve) { EXPECT_THROW(reserve(), std::length_error); });
}

} // namespace
} // namespace kel
