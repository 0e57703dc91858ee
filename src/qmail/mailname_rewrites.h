// Line rewrites for a mail name rename: the alias records in assign that end
// in the mail name's home, and the mail name's addresses in ".qmail".
#pragma once

#include <string>
#include <vector>

#include "util/line_rewrite.h"

namespace crelm::qmail {

// A "=" record "=<key><old_tail>" (its key holding no ":") becomes
// "=<key><new_tail>"; every other line stays.
crelm::util::LineRewrite repoint_records(const std::string& old_tail, const std::string& new_tail);

// Renames the address "<old_local>@<domain>" to "<new_local>@<domain>" for
// each of domains (letter case aside; the domain keeps the case it had),
// only where it stands whole: at the start of a line (after a forwarding "&"
// too) or after a character that no mail name holds, and before the end of
// the line or a character that no domain name holds.
// "x<old_local>@<domain>", "<old_local>@<domain>.other" and
// "<old_local>@<other domain>" stay. Mail names hold letters, digits and
// ". - _ & + '"; domain names letters, digits, "." and "-".
crelm::util::LineRewrite rename_addresses(const std::string& old_local, const std::string& new_local,
                                          const std::vector<std::string>& domains);

}  // namespace crelm::qmail
