// Copying everything from one descriptor to another, writing a whole text
// to one and reading one to its end.
#pragma once

#include <string>
#include <string_view>

namespace crelm::util {

// Writes all of text, going on after short writes and interruptions. false
// with errno set on failure (a write that wrote nothing counts as EIO).
bool write_all(int fd, std::string_view text);

// Appends all that fd gives from its offset to its end to text, going on
// after interruptions; the block read through is wiped afterwards, since the
// text may hold passwords. false with errno set on failure.
bool read_to_end(int fd, std::string& text);

enum class CopyFailure { none, read, write };

// Copies in blocks of 8192 bytes until the end of from. On failure errno
// tells why (a write that wrote nothing counts as a short write, EIO).
CopyFailure copy_descriptor(int from, int to);

}  // namespace crelm::util
