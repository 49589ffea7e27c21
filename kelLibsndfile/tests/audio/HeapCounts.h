/// What the program takes from the heap, counted by kind.
///
/// A program that links HeapCounts.cpp has operator new and delete replaced in all their forms, in
/// the libraries that it loads as well. Memory that C code takes by malloc is not counted.
#pragma once

#include <cstddef>
#include <ostream>

namespace kel::test {

/// Calls of operator new.
struct HeapCounts {
    std::size_t small;   ///< of its forms without an alignment, which objects are made with
    std::size_t aligned; ///< of its forms with one, which the memory of blocks is taken with
};

bool operator==(const HeapCounts& left, const HeapCounts& right);
std::ostream& operator<<(std::ostream& stream, const HeapCounts& counts);

/// Counts since the start of the program, over all threads.
HeapCounts HeapCountsSoFar();

/// Counts of what happens while an operation runs.
template <typename Operation>
HeapCounts CountHeapUse(Operation operation) {
    const HeapCounts before = HeapCountsSoFar();
    operation();
    const HeapCounts after = HeapCountsSoFar();
    return {after.small - before.small, after.aligned - before.aligned};
}

} // namespace kel::test
