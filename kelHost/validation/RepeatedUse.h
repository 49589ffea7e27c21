/// Repeated and random use of elements. Used by one thread.
#pragma once

#include "validation/Check.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace kel::host {

/// One round of use of an element.
using Cycle = std::function<void()>;

/// Makes rounds and fails when descriptors stay open.
/// @throws CheckFailed with what they are open on
void RequireNoOpenDescriptors(const Cycle& cycle);

/// Makes rounds in the working directory, which is empty, and fails when anything is in it then.
/// @throws CheckFailed with the names
void RequireNoFiles(const Cycle& cycle);

/// Makes rounds and fails when each loses memory of the heap.
/// @throws CheckFailed with how much, NotApplicable where the heap keeps no count
void RequireNoGrowth(const Cycle& cycle);

/// Returns the names of all files in the working directory, sorted.
std::vector<std::string> FilesHere();

/// One step of a random sequence.
template <typename Owner>
struct Step {
    const char* name;
    void (Owner::*make)();
};

/// Random numbers and steps, the same for the same seed and element. A failure is reported with the
/// steps before it.
class RandomSequence {
public:
    explicit RandomSequence(CheckContext& context);

    /// Returns a number from 0 to @p end, exclusive.
    std::uint64_t Below(std::uint64_t end) { return m_engine() % end; }

    /// Makes many of some steps.
    /// @throws CheckFailed
    template <typename Owner>
    void Run(Owner& owner, const std::vector<Step<Owner>>& steps) {
        constexpr int kSteps = 5000;
        for (int i = 0; i < kSteps; ++i) {
            const Step<Owner>& step = steps[Below(steps.size())];
            NoteStep(step.name);
            try {
                (owner.*step.make)();
            } catch (const CheckFailed& failure) {
                throw CheckFailed(fmt::format("{}: {}", m_place, failure.what()));
            }
        }
    }

private:
    // Notes the next step.
    void NoteStep(const char* step);

    CheckContext& m_context;
    std::mt19937_64 m_engine;
    std::size_t m_number = 0;
    std::deque<std::string> m_last;
    std::string m_place;
};

} // namespace kel::host
