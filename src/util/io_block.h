// The block in which files are read and written in pieces.
#pragma once

#include <cstddef>

namespace crelm::util {

// Small enough that its buffer comes from memory the process already holds
// (a larger one is mapped afresh for every allocation, and each of its pages
// faults in on first touch: for a short command, which makes a few such
// buffers, that cost more than the reads), large enough that a table of a
// million records takes a few thousand reads.
inline constexpr std::size_t kIoBlock = std::size_t{1} << 16;

}  // namespace crelm::util
