// The user assignment table as qmail-newu reads it: records up to the "."
// line, each "=" or "+" with a key and six fields after it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace crelm::audit {

struct AssignRecord {
    char kind = '=';    // '=' exact address, '+' wildcard (a domain)
    std::string key;    // "<domain>-<mail name>" or "<domain>"
    std::string user;
    std::string uid;
    std::string gid;
    std::string home;
    std::size_t line = 0;  // 1-based line number in assign
};

// A line that qmail-newu would refuse, with why.
struct AssignDefect {
    std::size_t line = 0;
    std::string text;
    std::string why;
};

struct AssignTable {
    std::vector<AssignRecord> records;
    std::vector<AssignDefect> defects;
    bool ends_with_dot = false;  // a "." line closes the table
};

// Parses the whole text of assign. Lines after the "." line are not read,
// as qmail-newu does not read them.
AssignTable parse_assign(std::string_view text);

}  // namespace crelm::audit
