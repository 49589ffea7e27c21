#include "IBuffer.h"

#include "Checks.h"
#include "IMemoryBlock.h"
#include "IMemoryBlockAllocator.h"
#include "RecyclerInternal.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

namespace kel {

namespace {

class Buffer final : public IBuffer {
public:
    Buffer(std::shared_ptr<IMemoryBlockAllocator> allocator, std::shared_ptr<IMemoryBlock> block)
        : m_allocator(std::move(allocator)) {
        if (block != nullptr) {
            Adopt(std::move(block));
        }
    }

    std::uint8_t* GetData() override { return m_data; }
    const std::uint8_t* GetData() const override { return m_data; }
    std::uint32_t GetSize() const override { return m_size; }

    void SetSize(std::uint32_t bytes) override {
        if (bytes > m_reserved) {
            KEL_FAIL("a buffer with " << m_reserved << " bytes reserved cannot have " << bytes
                                      << " valid bytes");
        }
        m_size = bytes;
    }

    void Reserve(std::uint32_t bytes) override {
        if (bytes <= m_reserved) {
            return;
        }
        std::shared_ptr<IMemoryBlock> block =
            m_allocator != nullptr ? m_allocator->Allocate(bytes) : AllocateHeapBlock(bytes);
        KEL_CHECK_POINTER(block, "the allocator gave no block of " << bytes << " bytes");
        // Another library may provide the allocator: a block that is too small must not be overrun.
        KEL_CHECK(block->GetSize() >= bytes, "the allocator gave a block of "
                                                 << block->GetSize() << " bytes where " << bytes
                                                 << " were needed");
        if (m_size > 0) {
            std::memcpy(block->GetData(), m_data, m_size);
        }
        Adopt(std::move(block));
    }

private:
    void Adopt(std::shared_ptr<IMemoryBlock> block) {
        m_data = block->GetData();
        m_reserved = block->GetSize();
        m_block = std::move(block);
    }

    std::shared_ptr<IMemoryBlockAllocator> m_allocator;
    std::shared_ptr<IMemoryBlock> m_block;
    std::uint8_t* m_data = nullptr;
    std::uint32_t m_reserved = 0;
    std::uint32_t m_size = 0;
};

} // namespace

std::shared_ptr<IBuffer> CreateBuffer(std::shared_ptr<IMemoryBlockAllocator> allocator,
                                      std::shared_ptr<IMemoryBlock> block) {
    return std::make_shared<Buffer>(std::move(allocator), std::move(block));
}

} // namespace kel
