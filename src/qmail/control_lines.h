// Whole-line edits of the control files and assign, each under the file's
// lock. Each is true when the edit was made; file_str has reported why not.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "util/file_stamp.h"

namespace crelm::qmail {

// Whether some line of the file equals line (a last line without its
// newline included); nullopt when the file cannot be opened or read.
std::optional<bool> file_holds_line(const char* path, const std::string& line);
// Takes out every line equal to line (a missing file counts as a failure).
bool remove_line(const char* path, const std::string& line);
// remove_line, but when a read of the file shows that no line equals line
// the file is left as it is (and true returned) instead of being rewritten:
// the first half of taking a line out and putting it back, which is there to
// make sure the line ends up present exactly once. A file that cannot be
// read goes to remove_line, which reports why.
bool remove_line_if_present(const char* path, const std::string& line);
// What taking a line out came to. A removal from a missing file fails
// (file_str's rule) and is reported as such by the steps, yet there is then
// no line to take out: the steps that only need the line gone do not count
// it as a failure of theirs.
enum class LineRemoval { taken_out, no_file, failed };
// remove_line_if_present (or remove_line when every_time is set), told
// apart as above.
LineRemoval take_line_out(const char* path, const std::string& line, bool every_time = false);
// Takes out every line that contains any of texts anywhere. With left, the
// stamp of the file as this edit left it (util/file_stamp.h). held_by_all:
// a text that every one of texts holds, searched for once instead of each
// of them (util/file_str.h).
bool remove_lines_containing(const char* path, const std::vector<std::string>& texts,
                             crelm::util::FileStamp* left = nullptr, std::string_view held_by_all = {});
// Appends line at the end (rcpthosts, virtualdomains).
bool append_line(const char* path, const std::string& line);
// Puts line at the top (assign, so that its "." stays last).
bool insert_line_at_top(const char* path, const std::string& line);
// What putting a line at the top once came to.
enum class LineOnTop { placed, no_file, failed };
// Takes every copy of line out and puts it at the top, the two halves of
// remove_line_if_present and insert_line_at_top in one rewrite of the file
// under its lock: a large file (assign) is read and written once, and a
// line that was there is never missing in between. no_file when the file
// does not exist (nothing is done: the caller goes step by step, with the
// messages of a removal that finds no file); failed (file_str has said
// why) leaves the file as it was. With was_there, whether the rewrite took
// an old copy of line out.
LineOnTop put_line_on_top_once(const char* path, const std::string& line, bool* was_there = nullptr);

}  // namespace crelm::qmail
