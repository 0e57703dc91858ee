// Copying a file in large blocks while judging it line by line, for the
// locked line editor.
#pragma once

#include <cstdio>
#include <functional>
#include <string_view>

namespace crelm::util {

// Judges one piece of the file: true when it is to be left out of the copy.
using PieceFilter = std::function<bool(std::string_view piece)>;

enum class PieceCopy { done, read_failed, write_failed };

// Copies everything from the descriptor from to the stream to, leaving out
// the pieces that filter (if given) rejects. A piece is what a line reader
// with a 4096-byte buffer sees: a line through its newline, or, of a longer
// line, 4095 bytes at a time; the last piece may lack a newline. The file is
// read in blocks of a megabyte and the kept pieces are written as whole runs,
// so that a large file costs little more than a plain copy. On read_failed or
// write_failed errno tells why.
PieceCopy copy_kept_pieces(int from, std::FILE* to, const PieceFilter& filter = {});

}  // namespace crelm::util
