/// Refused allocations, and leaks.
/// Any thread may allocate; one thread calls these functions.
///
/// A program that links AllocationFaults.cpp and exports its symbols has malloc and its relatives
/// replaced, and with them operator new, in the libraries that it loads as well. It cannot be
/// linked with a sanitizer, which replaces them itself. The functions that run during a refusal
/// take no memory.
#pragma once

#include <cstddef>
#include <string>

namespace kel::test {

/// Refuses an allocation from now on: the one with this number, counted from 1, or that one and all
/// after it.
void RefuseAllocation(unsigned number, bool lasts);

/// Ends the refusals.
void RefuseNoAllocation();

/// Returns the number of refused allocations since RefuseAllocation.
unsigned RefusedAllocations();

/// Resets the counts of allocations of each library, see PlaceOfRefusal.
void CountAllocationsOfLibrariesAnew();

/// Place of the first refused allocation: the name of the library, and the number of the allocation
/// among those of this library since the last reset.
struct PlaceOfRefusal {
    char library[64];
    unsigned number;
};

/// Returns the place of the first refused allocation.
PlaceOfRefusal FirstRefusal();

/// Returns a point in time, for LeftSince.
unsigned long AllocationsSoFar();

/// Returns the blocks that were taken since then and not released: one line for each, with its size
/// and the name of the library that took it; a block of operator new belongs to the C++ library.
/// Blocks that were released twice, or never taken, are reported as well.
std::string LeftSince(unsigned long allocations);

} // namespace kel::test
