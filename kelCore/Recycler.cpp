#include "RecyclerInternal.h"

#include "Checks.h"
#include "IMemoryBlock.h"
#include "IMemoryBlockAllocator.h"

#include <algorithm>
#include <array>
#include <atomic>
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

// The capacity of a chunk for so many bytes.
std::size_t CapacityFor(std::uint32_t bytes) {
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

Chunk* NewChunk(std::uint32_t bytes) {
    const std::size_t capacity = CapacityFor(bytes);
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

// The chunks of one allocator that nobody uses at the moment. It lives as long as its allocator or
// one of its chunks. What it holds back is bounded by a number of chunks and a number of bytes; the
// chunk that came back last is kept whatever its size, so that a stream of one block size never
// asks the system again. That chunk waits outside the lock: a block of such a stream costs one
// exchange to take and one to return.
class Pool {
public:
    Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    // The smallest chunk with room for so many bytes, among equals the one that came back last: its
    // memory is the likeliest to be in the processor's caches. A new one when there is none.
    Chunk* Take(std::uint32_t bytes) {
        Chunk* last = m_last.exchange(nullptr, std::memory_order_acquire);
        if (last != nullptr && last->capacity == CapacityFor(bytes)) {
            return last;
        }
        Chunk* held = TakeHeld(bytes, last);
        if (held != nullptr) {
            return held;
        }
        Chunk* chunk = NewChunk(bytes);
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_chunks;
        return chunk;
    }

    void Return(Chunk* chunk) noexcept {
        Chunk* none = nullptr;
        if (chunk->capacity <= kUncountedBytes &&
            m_last.compare_exchange_strong(none, chunk, std::memory_order_release,
                                           std::memory_order_relaxed)) {
            return;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_last.load(std::memory_order_relaxed) == &s_closed) {
            Delete(chunk);
            EndIfUnused(std::move(lock));
            return;
        }
        Hold(m_last.exchange(chunk, std::memory_order_acq_rel));
        BoundHeldBytes(std::max(chunk->capacity, kUncountedBytes));
    }

    // The allocator is gone: nothing is held any more, and the last chunk to come back ends the
    // pool.
    void Close() noexcept {
        std::unique_lock<std::mutex> lock(m_mutex);
        Hold(m_last.exchange(&s_closed, std::memory_order_acquire));
        while (m_count > 0) {
            Delete(Remove(0));
        }
        EndIfUnused(std::move(lock));
    }

private:
    ~Pool() = default;

    // Searches what is held, with the chunk that came back last among it.
    Chunk* TakeHeld(std::uint32_t bytes, Chunk* last) noexcept {
        const std::lock_guard<std::mutex> lock(m_mutex);
        Hold(last);
        std::size_t best = m_count;
        for (std::size_t i = m_count; i-- > 0;) {
            if (m_held[i]->capacity >= bytes &&
                (best == m_count || m_held[i]->capacity < m_held[best]->capacity)) {
                best = i;
            }
        }
        return best == m_count ? nullptr : Remove(best);
    }

    // The lock is held where these are called.

    void Hold(Chunk* chunk) noexcept {
        if (chunk == nullptr) {
            return;
        }
        if (m_count == m_held.size()) {
            Delete(Remove(0));
        }
        m_held[m_count++] = chunk;
        m_heldBytes += chunk->capacity;
    }

    // So that with so many bytes waiting outside the lock no more than the most are held back.
    void BoundHeldBytes(std::size_t waitingBytes) noexcept {
        while (m_count > 0 && m_heldBytes + waitingBytes > kMostHeldBytes) {
            Delete(Remove(0));
        }
    }

    Chunk* Remove(std::size_t place) noexcept {
        Chunk* chunk = m_held[place];
        for (std::size_t i = place + 1; i < m_count; ++i) {
            m_held[i - 1] = m_held[i];
        }
        --m_count;
        m_heldBytes -= chunk->capacity;
        return chunk;
    }

    void Delete(Chunk* chunk) noexcept {
        DeleteChunk(chunk);
        --m_chunks;
    }

    // Ends what holding the lock was for, and perhaps the pool.
    void EndIfUnused(std::unique_lock<std::mutex> lock) noexcept {
        const bool isUnused = m_chunks == 0;
        lock.unlock();
        if (isUnused) {
            delete this;
        }
    }

    static constexpr std::size_t kMostHeldChunks = 31; // besides the last one
    static constexpr std::size_t kMostHeldBytes = std::size_t{64} << 20U;
    // A chunk up to this size may wait outside the lock without being counted; it is counted as one
    // of this size always.
    static constexpr std::size_t kUncountedBytes = std::size_t{1} << 20U;

    // Stands in for the last chunk of a pool whose allocator is gone.
    static Chunk s_closed;

    std::atomic<Chunk*> m_last{nullptr}; // the chunk that came back last
    std::mutex m_mutex;
    std::array<Chunk*, kMostHeldChunks> m_held{}; // in the order in which they came back
    std::size_t m_count = 0;
    std::size_t m_heldBytes = 0;
    std::size_t m_chunks = 0; // in use and held back together
};

Chunk Pool::s_closed{0};

void GiveBackOrDelete(Pool* pool, Chunk* chunk) noexcept {
    if (pool != nullptr) {
        pool->Return(chunk);
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
    ~Recycler() override { m_pool->Close(); }
    Recycler(const Recycler&) = delete;
    Recycler& operator=(const Recycler&) = delete;

    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t bytes) override {
        return MakeBlock(m_pool, m_pool->Take(bytes), bytes);
    }

private:
    Pool* m_pool = new Pool; // ends itself, see Close
};

} // namespace

std::shared_ptr<IMemoryBlockAllocator> CreateRecycler() {
    return std::make_shared<Recycler>();
}

std::shared_ptr<IMemoryBlock> AllocateHeapBlock(std::uint32_t bytes) {
    return MakeBlock(nullptr, NewChunk(bytes), bytes);
}

} // namespace kel
