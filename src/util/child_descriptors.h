// Descriptor set-up inside a freshly forked child, before execv.
#pragma once

#include <array>

namespace crelm::util {

// Puts sources[i] on descriptor i (0, 1, 2), or /dev/null opened read-write
// where sources[i] < 0, then closes every descriptor from 3 up. The sources
// may be any descriptors, including 0-2 in any order. 0, or -1 with errno
// set when a descriptor could not be opened or duplicated.
int place_standard_descriptors(const std::array<int, 3>& sources);

}  // namespace crelm::util
