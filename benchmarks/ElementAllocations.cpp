// Lists the heap allocations of each sample by name. Every operator new of the process, the shared
// libraries' included, is the one below.

#include "Jobs.h"

#include <TemporaryDirectory.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

// Fixed storage for the sizes, because their record must not allocate. More than a stage makes.
constexpr std::size_t kMostRecorded = 4096;
bool g_recording = false;
std::size_t g_recorded = 0;
std::size_t g_sizes[kMostRecorded];

void Record(std::size_t bytes) {
    if (g_recording && g_recorded < kMostRecorded) {
        g_sizes[g_recorded++] = bytes;
    }
}

void* AllocateOrThrow(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* AllocateAligned(std::size_t bytes, std::align_val_t alignment) {
    Record(bytes);
    const auto unit = static_cast<std::size_t>(alignment);
    return std::aligned_alloc(unit, (bytes + unit - 1) / unit * unit);
}

void* Allocate(std::size_t bytes) {
    Record(bytes);
    return std::malloc(bytes);
}

} // namespace

// The array forms and the other nothrow forms of the standard library call these.
void* operator new(std::size_t bytes) {
    return AllocateOrThrow(Allocate(bytes));
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return AllocateOrThrow(AllocateAligned(bytes, alignment));
}
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return AllocateAligned(bytes, alignment);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace kel::benchmarks {

namespace {

using Sizes = std::vector<std::size_t>;

// The sizes that an operation allocates, in order.
template <typename Operation>
Sizes SizesOf(Operation operation) {
    g_recorded = 0;
    g_recording = true;
    operation();
    g_recording = false;
    return Sizes(g_sizes, g_sizes + g_recorded);
}

struct Part {
    std::string name;
    Sizes sizes;
};

// The allocations of each operation of the framework, in the order in which a sample needs them.
struct Parts {
    std::vector<Part> ofGetSample;
    std::vector<Part> ofPushSample;
};

Parts MeasureParts(std::uint32_t bytes) {
    const auto allocator =
        ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
    static_cast<void>(allocator->Allocate(bytes)); // so that the pool has a block
    std::shared_ptr<IBuffer> buffer;
    std::shared_ptr<IAudioSample> sample;
    std::shared_ptr<ISampleContainer> container;
    Parts parts;
    const auto measure = [](std::vector<Part>& list, const char* name, auto operation) {
        Sizes sizes = SizesOf(operation);
        list.push_back({name, std::move(sizes)});
    };
    measure(parts.ofGetSample, "buffer object (CreateBuffer)",
            [&] { buffer = CreateBuffer(allocator, nullptr); });
    measure(parts.ofGetSample, "the buffer's memory (Reserve, from the pool)",
            [&] { buffer->Reserve(bytes); });
    measure(parts.ofGetSample, "sample (CreateAudioSample)",
            [&] { sample = CreateAudioSample(nullptr, nullptr, buffer, TimeLimits(), {}); });
    measure(parts.ofGetSample, "container (CreateSampleContainer)",
            [&] { container = CreateSampleContainer(sample, nullptr); });
    measure(parts.ofPushSample, "vector of samples (GetAudioSamples)",
            [&] { static_cast<void>(container->GetAudioSamples(nullptr, nullptr)); });
    return parts;
}

std::string SizesText(const Sizes& sizes) {
    std::string text;
    for (const std::size_t size : sizes) {
        text += (text.empty() ? "" : ", ") + std::to_string(size);
    }
    return text.empty() ? "-" : text;
}

// One row for each part, and one for the other allocations of the call.
void PrintCall(const std::string& call, const std::vector<Part>& parts, Sizes sizes) {
    const std::size_t total = sizes.size();
    for (const Part& part : parts) {
        Sizes found;
        for (const std::size_t size : part.sizes) {
            const auto place = std::find(sizes.begin(), sizes.end(), size);
            if (place != sizes.end()) {
                found.push_back(size);
                sizes.erase(place);
            }
        }
        std::cout << "| " << call << " | " << part.name << " | " << found.size() << " | "
                  << SizesText(found) << " |\n";
    }
    std::cout << "| " << call << " | anything else | " << sizes.size() << " | " << SizesText(sizes)
              << " |\n"
              << "| " << call << " | **together** | **" << total << "** | |\n";
}

// Pulls and pushes some hundred samples and prints the last one, after a check that the others
// allocated the same.
void PrintSample(ElementCopy& copy, const Parts& parts) {
    constexpr int kWarmUpSamples = 10;
    constexpr int kSamples = 200;
    Sizes pulled;
    Sizes pushed;
    copy.Begin();
    for (int i = 0; i < kWarmUpSamples + kSamples; ++i) {
        std::shared_ptr<const ISampleContainer> container;
        const Sizes sizesOfGet = SizesOf([&] { container = copy.Source().GetSample(); });
        const Sizes sizesOfPush = SizesOf([&] { copy.Sink().PushSample(std::move(container)); });
        const bool isSteady = sizesOfGet == pulled && sizesOfPush == pushed;
        if (i > kWarmUpSamples && !isSteady) {
            std::cout << "Sample " << i << " allocated otherwise than the one before it.\n";
        }
        pulled = sizesOfGet;
        pushed = sizesOfPush;
    }
    copy.End();
    std::cout << "| Call | Allocation | Number | Bytes |\n|---|---|---|---|\n";
    PrintCall("GetSample", parts.ofGetSample, pulled);
    PrintCall("PushSample", parts.ofPushSample, pushed);
}

// The allocations of a whole copy, for two lengths.
void PrintWhole(const std::string& file, const std::string& output, std::int64_t seconds,
                std::int64_t frames) {
    ElementCopy copy(file, output, frames);
    copy.Begin();
    std::int64_t samples = 0;
    std::size_t blocks = 0;
    std::size_t others = 0;
    for (;;) {
        std::shared_ptr<const ISampleContainer> container;
        Sizes sizes = SizesOf([&] { container = copy.Source().GetSample(); });
        const bool isEnd = container == nullptr;
        if (!isEnd) {
            const Sizes push = SizesOf([&] { copy.Sink().PushSample(std::move(container)); });
            sizes.insert(sizes.end(), push.begin(), push.end());
            ++samples;
        }
        // Only the memory of a block is as large as a block.
        for (const std::size_t size : sizes) {
            ++(size >= static_cast<std::size_t>(frames) * 8 ? blocks : others);
        }
        if (isEnd) {
            break;
        }
    }
    copy.End();
    std::cout << "| " << seconds << " s | " << samples << " | " << blocks << " | " << others
              << " |\n";
}

void Run() {
    DiscardLogRecords();
    const test::TemporaryDirectory directory;
    constexpr std::int64_t kFrames = 1024;
    const std::string shorter = directory / "shorter.wav";
    const std::string longer = directory / "longer.wav";
    const std::string output = directory / "copy.wav";
    WriteWave(shorter, {48000, 2, 48000 * std::int64_t{10}});
    WriteWave(longer, {48000, 2, 48000 * std::int64_t{100}});

    test::LoadPlugin();
    const Parts parts = MeasureParts(static_cast<std::uint32_t>(kFrames * 8));
    ElementCopy copy(shorter, output, kFrames);
    PrintSample(copy, parts);
    std::cout << "\n| Copy of | Samples | Blocks of sample memory from the system | Other "
                 "allocations |\n|---|---|---|---|\n";
    PrintWhole(shorter, output, 10, kFrames);
    PrintWhole(longer, output, 100, kFrames);
}

} // namespace
} // namespace kel::benchmarks

int main() {
    try {
        kel::benchmarks::Run();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
