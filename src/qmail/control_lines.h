// Whole-line edits of the control files and assign, each under the file's
// lock. Each is true when the edit was made; file_str has reported why not.
#pragma once

#include <string>

namespace crelm::qmail {

// Takes out every line equal to line (a missing file counts as a failure).
bool remove_line(const char* path, const std::string& line);
// Takes out every line that contains text anywhere.
bool remove_lines_containing(const char* path, const std::string& text);
// Appends line at the end (rcpthosts, virtualdomains).
bool append_line(const char* path, const std::string& line);
// Puts line at the top (assign, so that its "." stays last).
bool insert_line_at_top(const char* path, const std::string& line);

}  // namespace crelm::qmail
