#include "qmail/assign_domain_rewrite.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace crelm::qmail {
namespace {

using crelm::util::LineFate;
using crelm::util::LineRewrite;

// One side of the rename: the key's start and the home's start a record of
// the domain has.
struct RecordShape {
    std::string key;   // "=<domain>-" or "+<domain>:"
    std::string home;  // "<root>/<domain>/" or "<root>/<domain>"
};

// The position just after the count-th ":" from start, or npos.
std::size_t after_fields(std::string_view text, std::size_t start, int count) {
    for (int i = 0; i < count; ++i) {
        const std::size_t colon = text.find(':', start);
        if (colon == std::string_view::npos)
            return std::string_view::npos;
        start = colon + 1;
    }
    return start;
}

// tail is made of exactly colons fields, each ending in ":"; with
// leading_colon it starts with one more ":" (which then counts).
bool fields_to_end(std::string_view tail, int colons, bool leading_colon) {
    if (tail.empty() || tail.back() != ':' || (leading_colon && tail.front() != ':'))
        return false;
    return std::count(tail.begin(), tail.end(), ':') == colons;
}

// The record with from's key and home replaced by to's, when line is a
// record of from with fields ahead of its home and after it.
bool rename_record(std::string_view line, const RecordShape& from, const RecordShape& to, int fields_before,
                   int fields_after, bool leading_colon, std::string& replaced) {
    if (!line.starts_with(from.key))
        return false;
    const std::size_t home = after_fields(line, from.key.size(), fields_before);
    if (home == std::string_view::npos || line.substr(home).substr(0, from.home.size()) != from.home)
        return false;
    const std::string_view tail = line.substr(home + from.home.size());
    if (!fields_to_end(tail, fields_after, leading_colon))
        return false;
    replaced.assign(to.key);
    replaced.append(line.substr(from.key.size(), home - from.key.size()));
    replaced.append(to.home);
    replaced.append(tail);
    return true;
}

}  // namespace

LineRewrite rename_assign_domain(const std::string& from, const std::string& to, const std::string& root) {
    const RecordShape old_name{"=" + from + "-", root + "/" + from + "/"};
    const RecordShape new_name{"=" + to + "-", root + "/" + to + "/"};
    const RecordShape old_domain{"+" + from + ":", root + "/" + from};
    const RecordShape new_domain{"+" + to + ":", root + "/" + to};
    // Every record of the domain holds its name, so only lines holding it
    // are looked at.
    return LineRewrite{[=](std::string_view line, std::string& replaced) {
                           if (rename_record(line, old_name, new_name, 4, 3, false, replaced) ||
                               rename_record(line, old_domain, new_domain, 3, 3, true, replaced))
                               return LineFate::replace;
                           return LineFate::keep;
                       },
                       from,
                       {}};
}

}  // namespace crelm::qmail
