// Putting names into sed scripts as literal text. Domain names, mail names
// and paths are data: a "." in a pattern would match any character (so
// renaming "a.test" would touch "a-test"), and an "&" in a replacement
// would insert the whole match.
#pragma once

#include <string>

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

}  // namespace crelm::qmail
