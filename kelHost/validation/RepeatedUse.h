/// Doing something many times and looking at what is left of it, and doing things in random order.
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

/// Makes rounds and fails when each takes some memory of the heap for good.
/// @throws CheckFailed with how much, NotApplicable where the heap keeps no count
void RequireNoGrowth(const Cycle& cycle);

/// Everything that lies in the working directory, sorted.
std::vector<std::string> FilesHere();

/// One step of a random sequence.
template <typename Owner>
struct Step {
    const char* name;
    void (Owner::*make)();
};

/// Random numbers and steps, the same for the same seed and element. What fails is told with the
/// steps that lead to it.
class RandomSequence {
public:
    explicit RandomSequence(CheckContext& context);

    /// A number from 0 to @p end, without it.
    std::uint64_t Below(std::uint64_t end) { return m_engine() % end; }

    /// Makes many of some steps.
    /// @throws CheckFailed
    template <typename Owner>
    void Run(Owner& owner, const std::vector<Step<Owner>>& steps) {
        constexpr int kSteps = 5000;
        for (int i = 0; i < kSteps; ++i) {
            const Step<Owner>& step = steps[Below(steps.size())];
            Tell(step.name);
            try {
                (owner.*step.make)();
            } catch (const CheckFailed& failure) {
                throw CheckFailed(fmt::format("{}: {}", m_place, failure.what()));
            }
        }
    }

private:
    // Says which step comes next.
    void Tell(const char* step);

    CheckContext& m_context;
    std::mt19937_64 m_engine;
    std::size_t m_number = 0;
    std::deque<std::string> m_last;
    std::string m_place;
};

} // namespace kel::host
