#include "support/strace_lines.h"

#include <regex>

namespace sorvane::test {

std::pair<std::string, std::string> call_of(std::string line) {
    static const std::regex prefix("^(\\[pid +[0-9]+\\] |[0-9]+ +)");
    line = std::regex_replace(line, prefix, "", std::regex_constants::format_first_only);
    const auto open = line.find('(');
    if (open == std::string::npos || open == 0 || line[0] == '<' || line[0] == '-' || line[0] == '+')
        return {};
    return {line.substr(0, open), line.substr(open + 1)};
}

std::string without_quoted(const std::string& args) {
    std::string kept;
    bool quoted = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const char c = args[i];
        if (!quoted) {
            kept += c;
            quoted = c == '"';
        } else if (c == '\\') {
            ++i;
        } else if (c == '"') {
            kept += c;
            quoted = false;
        }
    }
    return kept;
}

}  // namespace sorvane::test
