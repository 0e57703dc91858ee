// The reader of the runtime configuration file. Each line is either blank, a
// comment ("#" as its first non-blank character) or a definition: a name of
// letters, digits and "_", white space, then the value up to a "#" or the end
// of the line, with white space at its end cut off. Inner blanks are kept;
// the last definition of a name wins. Every complaint is logged with priority
// 12 (user facility, warning), so that it goes to the user's log rather than
// the mail log.
#pragma once

#include <map>
#include <string>

using QvtConfSet = std::map<std::string, std::string>;

// Reads the file at path into set. Malformed lines are logged and skipped.
// Returns 0; -1 when the file cannot be opened or read or memory runs out
// (logged; errno tells why) -- the set must then not be used.
int read_qvt_conf_file(const char* path, QvtConfSet& set);

// Adds the definition on one line (with or without its newline) to set; blank
// lines and comments add nothing. Returns 0, or -1 for a malformed line
// (logged).
int parse_qvt_conf_line(const std::string& line, QvtConfSet& set);
