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

// A chunk is one piece of memory from the system: this header, space for the control block of the
// shared handle and for the block object, then the bytes of the block. So a block from the pool
// costs no allocation at all.
struct alignas(kAlignment) Chunk {
    std::size_t capacity; // bytes after the space for the control block
};

constexpr std::size_t kControlBytes = 2 * kAlignment;

void* ControlSpace(Chunk* chunk) {
    return reinterpret_cast<std::uint8_t*>(chunk) + sizeof(Chunk);
}

std::uint8_t* Data(Chunk* chunk) {
    return reinterpret_cast<std::uint8_t*>(chunk) + sizeof(Chunk) + kControlBytes;
}

// Returns the capacity of a chunk for so many bytes.
std::size_t CapacityFor(std::uint32_t bytes) {
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

Chunk* NewChunk(std::uint32_t bytes) {
    const std::size_t capacity = CapacityFor(bytes);
    void* memory = ::operator new (sizeof(Chunk) + kControlBytes + capacity,
                                   std::align_val_t{kAlignment}, std::nothrow);
    if (memory == nullptr) {
        KEL_FAIL("could not get a memory block of " << bytes << " bytes from the system");
    }
    return new (memory) Chunk{capacity};
}

void DeleteChunk(Chunk* chunk) noexcept {
    ::operator delete (chunk, std::align_val_t{kAlignment});
}

// The free list of one allocator: the chunks that are not in use. It lives as long as its allocator
// or one of its chunks. The number of chunks and of bytes that it retains is bounded; the chunk
// that was returned last is kept at any size, so that a stream of one block size never asks the
// system again. That chunk waits outside the lock: a block of such a stream costs one exchange to
// take and one to return.
class Pool {
public:
    Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    // Returns the smallest chunk for so many bytes, among equals the one that was returned last:
    // its memory is the likeliest to be in the caches of the processor. Makes a new one without
    // any.
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
            DeleteIfUnused(std::move(lock));
            return;
        }
        Hold(m_last.exchange(chunk, std::memory_order_acq_rel));
        BoundHeldBytes(std::max(chunk->capacity, kUncountedBytes));
    }

    // Called when the allocator is destroyed: nothing is retained any more, and the last chunk that
    // is returned deletes the pool.
    void Close() noexcept {
        std::unique_lock<std::mutex> lock(m_mutex);
        Hold(m_last.exchange(&s_closed, std::memory_order_acquire));
        while (m_count > 0) {
            Delete(Remove(0));
        }
        DeleteIfUnused(std::move(lock));
    }

private:
    ~Pool() = default;

    // Searches the retained chunks, the one that was returned last among them.
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

    // The caller of these has the lock.

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

    // Deletes chunks until, with so many bytes waiting outside the lock, the bound is kept.
    void BoundHeldBytes(std::size_t waitingBytes) noexcept {
        while (m_count > 0 && m_heldBytes + waitingBytes > kMaxHeldBytes) {
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

    // Releases the lock, and deletes the pool if it has no chunks left.
    void DeleteIfUnused(std::unique_lock<std::mutex> lock) noexcept {
        const bool isUnused = m_chunks == 0;
        lock.unlock();
        if (isUnused) {
            delete this;
        }
    }

    static constexpr std::size_t kMaxHeldChunks = 31; // without the last one
    static constexpr std::size_t kMaxHeldBytes = std::size_t{64} << 20U;
    // A chunk up to this size may wait outside the lock without being counted. The bound always
    // allows for one chunk of this size there.
    static constexpr std::size_t kUncountedBytes = std::size_t{1} << 20U;

    // Takes the place of the last chunk when the allocator is destroyed.
    static Chunk s_closed;

    std::atomic<Chunk*> m_last{nullptr}; // the chunk that was returned last
    std::mutex m_mutex;
    std::array<Chunk*, kMaxHeldChunks> m_held{}; // in the order of their return
    std::size_t m_count = 0;
    std::size_t m_heldBytes = 0;
    std::size_t m_chunks = 0; // in use and retained together
};

Chunk Pool::s_closed{0};

void ReturnOrDelete(Pool* pool, Chunk* chunk) noexcept {
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

// Places a block and the control block of its shared handle into a chunk, and returns the chunk
// when the last handle, weak ones included, is released.
template <typename T>
struct ChunkAllocator {
    using value_type = T;

    ChunkAllocator(Pool* owner, Chunk* place) : pool(owner), chunk(place) {}

    template <typename Other>
    ChunkAllocator(const ChunkAllocator<Other>& other) : pool(other.pool), chunk(other.chunk) {}

    T* allocate(std::size_t /*count*/) {
        static_assert(sizeof(T) <= kControlBytes);
        static_assert(alignof(T) <= kAlignment);
        return static_cast<T*>(ControlSpace(chunk));
    }

    void deallocate(T* /*object*/, std::size_t /*count*/) noexcept { ReturnOrDelete(pool, chunk); }

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
    return std::allocate_shared<Block>(ChunkAllocator<Block>(pool, chunk), Data(chunk), bytes);
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
    Pool* m_pool = new Pool; // deletes itself, see Close
};

} // namespace

std::shared_ptr<IMemoryBlockAllocator> CreateRecycler() {
    return std::make_shared<Recycler>();
}

std::shared_ptr<IMemoryBlock> AllocateHeapBlock(std::uint32_t bytes) {
    return MakeBlock(nullptr, NewChunk(bytes), bytes);
}

} // namespace kel
