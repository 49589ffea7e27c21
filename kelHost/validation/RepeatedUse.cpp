#include "validation/RepeatedUse.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <malloc.h>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

constexpr int kWarmingUp = 64; // objects that are created once, and pools that fill
constexpr int kCycles = 256;

void Repeat(const Cycle& cycle, int times) {
    for (int i = 0; i < times; ++i) {
        cycle();
    }
}

// Returns the targets of all open descriptors.
std::multiset<std::string> OpenDescriptors() {
    std::multiset<std::string> targets;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const fs::path target = fs::read_symlink(entry.path(), gone);
        // The descriptor of this loop is among them each time.
        if (!gone) {
            targets.insert(target.string());
        }
    }
    return targets;
}

// Bytes of the heap in use.
std::size_t HeapInUse() {
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

// mallinfo2 does not count the allocators of sanitizers.
bool HeapIsCounted() {
    constexpr std::size_t kMuch = 1048576;
    const std::size_t before = HeapInUse();
    const auto block = std::make_unique<std::string>(kMuch, 'x');
    return block->size() == kMuch && HeapInUse() >= before + kMuch;
}

// Each element has a sequence of its own, independent of other elements.
std::mt19937_64 MakeEngine(CheckContext& context) {
    const IParametersCollectionInstance& entry = *context.Element().entry;
    const std::string name =
        entry.GetStringValue("implementation") + ":" + entry.GetStringValue("type");
    const std::uint64_t seed = context.Subject().seed;
    std::vector<std::uint32_t> words{static_cast<std::uint32_t>(seed),
                                     static_cast<std::uint32_t>(seed >> 32U)};
    words.insert(words.end(), name.begin(), name.end());
    std::seed_seq seeds(words.begin(), words.end());
    return std::mt19937_64(seeds);
}

} // namespace

void RequireNoOpenDescriptors(const Cycle& cycle) {
    Repeat(cycle, 2); // files that stay open from the first use on are no leak
    const std::multiset<std::string> before = OpenDescriptors();
    constexpr int kTimes = 100;
    Repeat(cycle, kTimes);
    const std::multiset<std::string> after = OpenDescriptors();
    std::vector<std::string> more;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(more));
    const std::set<std::string> names(more.begin(), more.end());
    Require(more.empty(), fmt::format("after {} rounds, {} more descriptors are open, on {}",
                                      kTimes, more.size(), fmt::join(names, ", ")));
}

std::vector<std::string> FilesHere() {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
        names.push_back(entry.path().lexically_relative(".").string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void RequireNoFiles(const Cycle& cycle) {
    Repeat(cycle, 3);
    const std::vector<std::string> names = FilesHere();
    Require(names.empty(), fmt::format("it leaves {}", fmt::join(names, ", ")));
}

void RequireNoGrowth(const Cycle& cycle) {
    if (!HeapIsCounted()) {
        throw NotApplicable("the heap of this process does not count its memory");
    }
    Repeat(cycle, kWarmingUp);
    const std::size_t first = HeapInUse();
    Repeat(cycle, kCycles);
    const std::size_t second = HeapInUse();
    Repeat(cycle, kCycles);
    const std::size_t third = HeapInUse();
    // Less than the smallest block is not a block lost in each round.
    constexpr std::size_t kSmallest = 16;
    const bool grows =
        second >= first + kCycles * kSmallest && third >= second + kCycles * kSmallest;
    Require(!grows, fmt::format("each round loses {} bytes",
                                third > second ? (third - second) / kCycles : 0));
}

RandomSequence::RandomSequence(CheckContext& context)
    : m_context(context), m_engine(MakeEngine(context)) {}

void RandomSequence::NoteStep(const char* step) {
    constexpr std::size_t kMaxReported = 8;
    ++m_number;
    m_last.emplace_back(step);
    if (m_last.size() > kMaxReported) {
        m_last.pop_front();
    }
    m_place = fmt::format("at step {} (the last: {})", m_number, fmt::join(m_last, ", "));
    m_context.SetPlace(m_place);
}

} // namespace kel::host
