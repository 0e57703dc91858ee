// The one line file whose lines a batch holds in memory (util/line_table.h).
//
// While a table is held for a path, the line edits of util/file_str.h and
// the readers that ask held_lines() work on the table instead of the file,
// which stays as it was until the holder writes the table's text to it.
// An edit that the table cannot take (a line of 4095 bytes or more, an
// append at the end) first writes the table's text to the file, gives the
// table up and goes to the file, as without a table. Every edit of a held
// file must come through util/file_str.h: the whole-file rewrites of a
// domain rename (qmail/locked_line_copy.h) do not, and a batch that holds a
// domain rename holds no lines.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "util/line_table.h"

namespace crelm::util {

void hold_lines(const std::string& path, std::unique_ptr<LineTable> table);
// The table held for path, or null.
LineTable* held_lines(std::string_view path);
// Ends the holding; the table goes with it.
void release_held_lines();

}  // namespace crelm::util
