// The stream-editor scripts that once made the rename edits, kept so that
// tests can run them through "/bin/sed" beside the program's own line
// editor. Names, mail names and paths go in as literal text: a "." in a
// pattern would match any character, and an "&" in a replacement would
// insert the whole match.
#pragma once

#include <string>
#include <vector>

namespace sorvane::test {

// text as a basic regular expression that matches exactly text, for a
// script whose delimiter is delimiter: ". [ ] * ^ $ \" and the delimiter
// are each preceded by a backslash.
std::string sed_pattern_literal(const std::string& text, char delimiter);

// text as the replacement of an "s" command that inserts exactly text:
// "&", "\" and the delimiter are each preceded by a backslash.
std::string sed_replacement_literal(const std::string& text, char delimiter);

// text as the line an "a\" command appends: each "\" doubled.
std::string sed_append_literal(const std::string& text);

// The "s" command "s|<pattern>|<replacement>|g" with both parts literal;
// the anchor puts "^" and "$" around the pattern.
enum class Anchor { none, start, end, whole };
std::string sed_substitute(const std::string& from, const std::string& to, Anchor anchor);

// "/^<line>$/d" and "$ a\<line>".
std::string sed_delete_line(const std::string& line);
std::string sed_append_line(const std::string& line);

// The two substitutions of virtualdomains, one script each.
std::vector<std::string> sed_virtual_domain(const std::string& from, const std::string& to);

// The scripts of assign for a domain rename, with the mail names' root.
std::vector<std::string> sed_assign_domain(const std::string& from, const std::string& to, const std::string& root);

// The script that re-points alias records from old_tail to new_tail.
std::string sed_repoint_records(const std::string& old_tail, const std::string& new_tail);

// The script that renames "<old_local>@<domain>" for each of domains, two
// rounds per domain, letter case aside.
std::string sed_address_rename(const std::string& old_local, const std::string& new_local,
                               const std::vector<std::string>& domains);

// Runs "/bin/sed" in the C locale with one "-e" per script over input (put
// in a file of the scratch directory) and
// returns what it wrote.
std::string run_sed(const std::vector<std::string>& scripts, const std::string& input);

}  // namespace sorvane::test
