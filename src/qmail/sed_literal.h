// Putting names into sed scripts as literal text. Domain names, mail names
// and paths are data: a "." in a pattern would match any character (so
// renaming "a.test" would touch "a-test"), and an "&" in a replacement
// would insert the whole match.
#pragma once

#include <string>
#include <vector>

namespace crelm::qmail {

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
// anchor_start and anchor_end put "^" and "$" around the pattern.
enum class Anchor { none, start, end, whole };
std::string sed_substitute(const std::string& from, const std::string& to, Anchor anchor);

// The script that renames the address "<old_local>@<domain>" to
// "<new_local>@<domain>" for each of domains (letter case aside), only where
// it stands whole: at the start of a line (after a forwarding "&" too) or
// after a character that no mail name holds, and before the end of the line
// or a character that no domain name holds. "x<old_local>@<domain>",
// "<old_local>@<domain>.other" and "<old_local>@<other domain>" stay.
std::string sed_address_rename(const std::string& old_local, const std::string& new_local,
                               const std::vector<std::string>& domains);

}  // namespace crelm::qmail
