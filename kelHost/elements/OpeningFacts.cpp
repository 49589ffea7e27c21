#include "elements/OpeningFacts.h"

#include "base/Descriptor.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace {

// Returns the lowest free numbers for descriptors; more than a source opens for one file.
std::vector<int> FreeNumbers() {
    constexpr int kMaxOpened = 4;
    std::vector<int> numbers;
    const Descriptor lowest(eventfd(0, EFD_CLOEXEC));
    if (lowest.Number() >= 0) {
        numbers.push_back(lowest.Number());
        for (int i = 1; i < kMaxOpened; ++i) {
            if (fcntl(lowest.Number() + i, F_GETFD) < 0) {
                numbers.push_back(lowest.Number() + i);
            }
        }
    }
    return numbers;
}

} // namespace

std::string Describe(const OpeningFacts& facts) {
    std::string text = fmt::format("{}, {} and {} Hz",
                                   facts.frames.has_value()
                                       ? Count(static_cast<std::uint64_t>(*facts.frames), "frame")
                                       : "an unknown number of frames",
                                   Count(facts.channels, "channel"), facts.rate);
    for (const std::uint64_t position : facts.positions) {
        text += fmt::format(" from byte {}", position);
    }
    return text;
}

OpenPositions::OpenPositions(const FileState& file)
    : m_file(file), m_free(file.Exists() ? FreeNumbers() : std::vector<int>()) {}

std::vector<std::uint64_t> OpenPositions::New() const {
    std::vector<std::uint64_t> positions;
    for (const int descriptor : m_free) {
        const off_t position =
            FileState(descriptor).IsSameFileAs(m_file) ? lseek(descriptor, 0, SEEK_CUR) : -1;
        if (position >= 0) {
            positions.push_back(static_cast<std::uint64_t>(position));
        }
    }
    return positions;
}

} // namespace kel::host
