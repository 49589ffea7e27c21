/// The values of a file that a copy changes, because sources deliver 32-bit floats. One thread at a
/// time.
#pragma once

#include "base/FileName.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kel::host {

/// Values of a file, and how they are copied.
struct CountedValues {
    std::int64_t first = 0;              ///< frame
    std::optional<std::int64_t> frames;  ///< none: to the end
    std::vector<std::uint32_t> channels; ///< from 0; a repeated one counts again; empty: all
    std::uint32_t integerBits = 0;       ///< of the output's integers; 0 for floats
};

/// Counts the values that a copy changes. Reads the file once, through libsndfile, as 64-bit
/// floats, which hold the values of every encoding.
class RoundedValueCounter {
public:
    /// Opens the file.
    /// @throws JobError when it cannot be opened or read
    RoundedValueCounter(const FileName& file, CountedValues counted);
    ~RoundedValueCounter();
    RoundedValueCounter(const RoundedValueCounter&) = delete;
    RoundedValueCounter& operator=(const RoundedValueCounter&) = delete;

    /// Reads and counts the next values.
    /// @return false at the end
    /// @throws JobError when they cannot be read
    bool Next();

    /// The number of values that change.
    std::uint64_t Rounded() const { return m_rounded; }

    /// The number of values so far.
    std::uint64_t All() const { return m_all; }

private:
    class Reader;

    std::unique_ptr<Reader> m_reader;
    CountedValues m_counted;
    std::vector<double> m_selected;
    std::int64_t m_frames = 0;
    std::uint64_t m_rounded = 0;
    std::uint64_t m_all = 0;
};

} // namespace kel::host
