#include "RecyclerInternal.h"

#include "Checks.h"
#include "IMemoryBlock.h"
#include "IMemoryBlockAllocator.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace kel {

namespace {

constexpr std::size_t kAlignment = 64;

// A chunk is one piece of memory from the system: this header, room for the shared handle's control
// block and the block object, then the bytes that the block gives out. So a block that comes from
// the pool costs no allocation at all.
struct alignas(kAlignment) Chunk {
    std::size_t capacity; // bytes behind the room for the control block
};

constexpr std::size_t kControlRoom = 2 * kAlignment;

void* ControlRoomOf(Chunk* chunk) {
    return reinterpret_cast<std::uint8_t*>(chunk) + sizeof(Chunk);
}

std::uint8_t* DataOf(Chunk* chunk) {
    return reinterpret_cast<std::uint8_t*>(chunk) + sizeof(Chunk) + kControlRoom;
}

Chunk* NewChunk(std::uint32_t bytes) {
    const std::size_t capacity = (bytes + kAlignment - 1) / kAlignment * kAlignment;
    void* memory = ::operator new (sizeof(Chunk) + kControlRoom + capacity,
                                   std::align_val_t{kAlignment}, std::nothrow);
    if (memory == nullptr) {
        KEL_FAIL("could not get a memory block of " << bytes << " bytes from the system");
    }
    return new (memory) Chunk{capacity};
}

void DeleteChunk(Chunk* chunk) noexcept {
    ::operator delete (chunk, std::align_val_t{kAlignment});
}

// The chunks that nobody uses at the moment. It lives as long as its allocator or one of its
// blocks, which are counted under the lock that each of them takes anyway. What it holds back is
// bounded by a number of chunks and a number of bytes; the chunk that came back last is kept
// whatever its size, so that a stream of one block size never asks the system again.
class Pool {
public:
    Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    // The smallest chunk with room for so many bytes, among equals the one that came back last: its
    // memory is the likeliest to be in the processor's caches. Null when there is none.
    // Either way the caller is one more user.
    Chunk* Take(std::uint32_t bytes) noexcept {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_users;
        std::size_t best = m_count;
        for (std::size_t i = m_count; i-- > 0;) {
            if (m_chunks[i]->capacity >= bytes &&
                (best == m_count || m_chunks[i]->capacity < m_chunks[best]->capacity)) {
                best = i;
            }
        }
        return best == m_count ? nullptr : Remove(best);
    }

    // A user is done, and returns its chunk if it has one. The last one to leave ends the pool.
    void Leave(Chunk* chunk) noexcept {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (chunk != nullptr) {
                Keep(chunk);
            }
            if (--m_users > 0) {
                return;
            }
        }
        delete this;
    }

private:
    ~Pool() {
        for (std::size_t i = 0; i < m_count; ++i) {
            DeleteChunk(m_chunks[i]);
        }
    }

    void Keep(Chunk* chunk) noexcept {
        while (m_count > 0 &&
               (m_count == m_chunks.size() || m_heldBytes + chunk->capacity > kMostHeldBytes)) {
            DeleteChunk(Remove(0));
        }
        m_chunks[m_count++] = chunk;
        m_heldBytes += chunk->capacity;
    }

    static constexpr std::size_t kMostHeldChunks = 32;
    static constexpr std::size_t kMostHeldBytes = std::size_t{64} << 20U;

    Chunk* Remove(std::size_t place) noexcept {
        Chunk* chunk = m_chunks[place];
        for (std::size_t i = place + 1; i < m_count; ++i) {
            m_chunks[i - 1] = m_chunks[i];
        }
        --m_count;
        m_heldBytes -= chunk->capacity;
        return chunk;
    }

    std::mutex m_mutex;
    std::array<Chunk*, kMostHeldChunks> m_chunks{}; // in the order in which they came back
    std::size_t m_count = 0;
    std::size_t m_heldBytes = 0;
    std::size_t m_users = 1; // the allocator, and each block that is out
};

void GiveBackOrDelete(Pool* pool, Chunk* chunk) noexcept {
    if (pool != nullptr) {
        pool->Leave(chunk);
    } else {
        DeleteChunk(chunk);
    }
}

class Block final : public IMemoryBlock {
public:
    Block(std::uint8_t* data, std::uint32_t size) : m_data(data), m_size(size) {}

    std::uint8_t* GetData() override { return m_data; }
    std::uint32_t GetSize() const override { return m_size; }

private:
    std::uint8_t* m_data;
    std::uint32_t m_size;
};

// Places a block and its shared handle's control block into a chunk, and gives the chunk back when
// the last handle, weak ones included, is gone.
template <typename T>
struct ChunkAllocator {
    using value_type = T;

    ChunkAllocator(Pool* owner, Chunk* place) : pool(owner), chunk(place) {}

    template <typename Other>
    ChunkAllocator(const ChunkAllocator<Other>& other) : pool(other.pool), chunk(other.chunk) {}

    T* allocate(std::size_t /*count*/) {
        static_assert(sizeof(T) <= kControlRoom);
        static_assert(alignof(T) <= kAlignment);
        return static_cast<T*>(ControlRoomOf(chunk));
    }

    void deallocate(T* /*object*/, std::size_t /*count*/) noexcept {
        GiveBackOrDelete(pool, chunk);
    }

    template <typename Other>
    bool operator==(const ChunkAllocator<Other>& other) const {
        return chunk == other.chunk;
    }

    template <typename Other>
    bool operator!=(const ChunkAllocator<Other>& other) const {
        return !(*this == other);
    }

    Pool* pool; // null for a block of no pool
    Chunk* chunk;
};

std::shared_ptr<IMemoryBlock> MakeBlock(Pool* pool, Chunk* chunk, std::uint32_t bytes) {
    return std::allocate_shared<Block>(ChunkAllocator<Block>(pool, chunk), DataOf(chunk), bytes);
}

class Recycler final : public IMemoryBlockAllocator {
public:
    Recycler() = default;
    ~Recycler() override { m_pool->Leave(nullptr); }
    Recycler(const Recycler&) = delete;
    Recycler& operator=(const Recycler&) = delete;

    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t bytes) override {
        Chunk* chunk = m_pool->Take(bytes);
        if (chunk == nullptr) {
            try {
                chunk = NewChunk(bytes);
            } catch (...) {
                m_pool->Leave(nullptr);
                throw;
            }
        }
        return MakeBlock(m_pool, chunk, bytes);
    }

private:
    Pool* m_pool = new Pool; // ends itself, see Leave
};

} // namespace

std::shared_ptr<IMemoryBlockAllocator> CreateRecycler() {
    return std::make_shared<Recycler>();
}

std::shared_ptr<IMemoryBlock> AllocateHeapBlock(std::uint32_t bytes) {
    return MakeBlock(nullptr, NewChunk(bytes), bytes);
}

} // namespace kel
