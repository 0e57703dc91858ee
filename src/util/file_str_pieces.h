// Copying a file in large blocks while judging it line by line, for the
// locked line editor.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "util/line_rewrite.h"

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

// The same for a filter that only rejects pieces holding one of markers
// (none empty): the bytes between the lines where a marker is found are
// copied without being cut into pieces or judged, so that on a large file
// only the few lines that can change cost more than the copy.
PieceCopy copy_kept_pieces(int from, std::FILE* to, const PieceFilter& filter,
                           const std::vector<std::string>& markers);

// What becomes of one piece: kept, left out, or replaced by the text left in
// replaced (which holds the newline the piece had, if it is to keep one).
// starts_line tells whether the piece begins a line: a line longer than a
// piece is judged piece by piece, and only its first piece begins it.
using PieceEdit = std::function<LineFate(std::string_view piece, bool starts_line, std::string& replaced)>;

// copy_kept_pieces for an edit that may also replace pieces.
PieceCopy copy_edited_pieces(int from, std::FILE* to, const PieceEdit& edit);

// The same, with only the pieces of the lines that hold one of markers
// (none empty) judged: the edit keeps every other piece.
PieceCopy copy_edited_pieces(int from, std::FILE* to, const PieceEdit& edit, const std::vector<std::string>& markers);

}  // namespace crelm::util
