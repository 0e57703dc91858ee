// Copying everything from one descriptor to another.
#pragma once

namespace crelm::util {

enum class CopyFailure { none, read, write };

// Copies in blocks of 8192 bytes until the end of from. On failure errno
// tells why (a write that wrote nothing counts as a short write, EIO).
CopyFailure copy_descriptor(int from, int to);

}  // namespace crelm::util
