#include "audit/assign_table.h"

#include <algorithm>

namespace crelm::audit {

namespace {

// Splits off the text up to the next ':' (or the end).
std::string_view next_field(std::string_view& rest) {
    const std::size_t colon = rest.find(':');
    std::string_view field = rest.substr(0, colon);
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    return field;
}

std::string line_defect(std::string_view line) {
    if (line.find('\0') != std::string_view::npos)
        return "it holds a NUL byte";
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return "it has no ':'";
    if (colon == 0)
        return "it begins with ':'";
    if (line[0] != '=' && line[0] != '+')
        return "it begins neither with '=' nor with '+'";
    if (std::count(line.begin() + static_cast<std::ptrdiff_t>(colon) + 1, line.end(), ':') < 6)
        return "it has fewer than the seven fields qmail-newu wants";
    return {};
}

}  // namespace

AssignTable parse_assign(std::string_view text) {
    AssignTable table;
    std::size_t number = 0;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t newline = text.find('\n', start);
        const bool ended = newline != std::string_view::npos;
        const std::string_view line = text.substr(start, (ended ? newline : text.size()) - start);
        start = ended ? newline + 1 : text.size();
        ++number;
        if (!line.empty() && line[0] == '.') {
            table.ends_with_dot = true;
            break;
        }
        if (!ended) {
            table.defects.push_back({number, std::string(line), "the last line has no newline"});
            break;
        }
        std::string why = line_defect(line);
        if (!why.empty()) {
            table.defects.push_back({number, std::string(line), std::move(why)});
            continue;
        }
        AssignRecord record;
        record.kind = line[0];
        record.line = number;
        std::string_view rest = line.substr(1);
        record.key = next_field(rest);
        record.user = next_field(rest);
        record.uid = next_field(rest);
        record.gid = next_field(rest);
        record.home = next_field(rest);
        table.records.push_back(std::move(record));
    }
    return table;
}

}  // namespace crelm::audit
