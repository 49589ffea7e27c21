/// Memory that is refused, and memory that is not given back.
///
/// A program that links AllocationFaults.cpp and exports its symbols has malloc and its relatives
/// replaced, and with them operator new, in the libraries that it loads as well. It cannot be
/// linked with a sanitizer, which replaces them itself. Nothing here takes memory, so that it works
/// while none is to be had.
#pragma once

#include <cstddef>
#include <string>

namespace kel::test {

/// Refuses an allocation from now on: the one of this number, counted from 1, or that and all after
/// it.
void RefuseAllocation(unsigned number, bool lasts);

/// Refuses no more.
void RefuseNoAllocation();

/// How many allocations were refused since RefuseAllocation.
unsigned RefusedAllocations();

/// Starts to count what one library takes, see PlaceOfRefusal.
void CountAllocationsOfLibrariesAnew();

/// Where the first refused allocation was asked for: the name of the library, and the number of the
/// allocation among those of this library since it was last counted anew.
struct PlaceOfRefusal {
    char library[64];
    unsigned number;
};

PlaceOfRefusal FirstRefusal();

/// A point in time, for LeftSince.
unsigned long AllocationsSoFar();

/// What was taken since then and is not given back: one line for each block, with its size and the
/// name of the library that asked for it; a block that operator new took is the C++ library's.
/// Blocks that were given back twice, or never taken, are told as well.
std::string LeftSince(unsigned long allocations);

} // namespace kel::test
