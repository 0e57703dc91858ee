// Adding and removing whole lines of a file under its lock.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "util/file_stamp.h"
#include "util/line_rewrite.h"

enum class LineAction {
    add = 0,
    remove_exact = 1,    // lines equal to a given line (compared without newlines)
    remove_pattern = 2,  // lines that match a given pattern at the position
    // The lines at the top, and every old line equal to one of them left
    // out, in the same single rewrite: each ends up there once, and a line
    // that was there is never missing, not even for a moment.
    add_once_at_top = 3,
};

// For add: start puts the lines at the top, end (or anywhere) appends them.
// add_once_at_top ignores it.
// For remove_pattern: the line begins with, ends with (its newline left
// out) or contains the pattern. remove_exact ignores it.
enum class LinePosition { start = 0, end = 1, anywhere = 2 };

// Edits path under its lock in the lock directory (util/lock_directory.h).
// Removals and additions at the top go through a temporary file of this
// edit's own, "<path>.tmp.XXXXXX" (mode 0600 until it gets the file's
// mode), flushed to the disk (fsync) and renamed onto the file, whose
// directory is flushed after the rename; copies that killed edits left are
// removed first. An addition at the end appends and flushes the file (and
// the directory of a file it made); when the file's last line has no
// newline, one is written first. A failed append is taken back (the file
// cut to its old length, or removed if this call made it). So a power cut
// or a full disk leaves the old or the new content. Lines are judged at most
// 4095 bytes at a time (a longer line in several pieces); the file is read
// and written in large blocks, and every kept byte is copied as it is, NUL
// bytes included. A file that existed keeps its owner, group and mode; one
// created here gets 0666 less the umask (the caller sets owner and mode).
// Result: 0, or 1 when
//   a given line holds a newline (other than a last one), a carriage return
//     or a NUL, or a pattern is empty: "Refused to edit file %s: %s\n"
//     (nothing is done)
//   the lock is not held: "Error occurred while locking the file %s: %s\n"
//   the file cannot be examined: "file_str: Unable to stat file %s: %s\n"
//     (the lock is then kept until the process ends)
//   the file is missing and lines are to be removed exactly (no message)
//   an open, write, flush, rename or close fails: "Unable to open file %s: %s\n",
//     "Unable to write data into file %s: %s\n", "Unable to fputs to file
//     %s: %s\n", "Error while rename file %s: %s\n", "Unable to rename file
//     %s: %s\n", "Unable to close file %s: %s\n"
//   owner or mode cannot be given back: "file_str: ERROR: Unable to chown
//     file %s: %s", "file_str: ERROR: Unable to chmod file %s: %s"
//   the lock cannot be released: "Error occurred while unlocking the file
//     %s: %s\n"
// A failed write of a kept line ends the program ("cannot write a line to
// %s.tmp"). The file is never edited through a symbolic link: it is
// reached by the walk of util/nofollow.h (a link a mail user planted on the
// way fails the stat) and a link at the path is refused ("Unable to open
// file"). The temporary file is removed on every failure.
//
// held_by_every_line, when not empty, is a text that every line this edit
// can take out holds (a record's home, say): when every given line holds it,
// only the lines where it is found are judged, so that a large file is
// scanned once for it instead of once for each given line.
int file_str(const std::string& path, const std::vector<std::string>& lines, LineAction action, LinePosition position,
             std::string_view held_by_every_line = {});

// file_str that also leaves in left the stamp (util/file_stamp.h) of the
// file it wrote, taken under the lock, when it returns 0 (not known
// otherwise): while the file keeps that stamp, no one has edited it since.
int file_str_stamped(const std::string& path, const std::vector<std::string>& lines, LineAction action,
                     LinePosition position, crelm::util::FileStamp& left, std::string_view held_by_every_line = {});

// file_str(path, {line}, LineAction::add_once_at_top, ...), with the old
// lines equal to one of also_left_out left out as well, in the same
// rewrite (a record that replaces another). With met_old, whether the
// rewrite left out an old line (line itself or one of also_left_out): what
// the file held before, read by the same pass. With also_rewritten, every
// other old line shorter than 4095 bytes goes through it in the same pass
// (util/line_rewrite.h; its appended lines are not used): a record and the
// records that follow it changed in one rewrite of a large file. A longer
// line is kept as it is. held_by_every_line as for file_str, when the
// rewrite's needle holds it too.
int file_str_on_top(const std::string& path, const std::string& line, const std::vector<std::string>& also_left_out,
                    bool* met_old = nullptr, const crelm::util::LineRewrite* also_rewritten = nullptr,
                    std::string_view held_by_every_line = {});

// file_str with a single line.
int file_str_one(const std::string& path, const std::string& line, LineAction action, LinePosition position);
