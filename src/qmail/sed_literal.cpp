#include "qmail/sed_literal.h"

#include <string_view>

namespace crelm::qmail {
namespace {

std::string escaped(const std::string& text, std::string_view specials, char delimiter) {
    std::string result;
    result.reserve(text.size() * 2);
    for (const char c : text) {
        if (c == delimiter || specials.find(c) != std::string_view::npos) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

// Mail names hold letters, digits and ". - _ & + '"; domain names letters,
// digits, "." and "-".
constexpr const char* kBeforeAddress = "\\(^&\\?\\|[^[:alnum:]._&+'-]\\)";
constexpr const char* kAfterAddress = "\\($\\|[^[:alnum:].-]\\)";

}  // namespace

std::string sed_pattern_literal(const std::string& text, char delimiter) {
    return escaped(text, ".[]*^$\\", delimiter);
}

std::string sed_replacement_literal(const std::string& text, char delimiter) {
    return escaped(text, "&\\", delimiter);
}

std::string sed_append_literal(const std::string& text) {
    return escaped(text, "\\", '\\');
}

std::string sed_address_rename(const std::string& old_local, const std::string& new_local,
                               const std::vector<std::string>& domains) {
    std::string script;
    for (const std::string& domain : domains) {
        const std::string command = std::string("s#") + kBeforeAddress + sed_pattern_literal(old_local, '#') + "@\\(" +
                                    sed_pattern_literal(domain, '#') + "\\)" + kAfterAddress + "#\\1" +
                                    sed_replacement_literal(new_local, '#') + "@\\2\\3#gI\n";
        // A match takes the character after the address with it, so an
        // address right behind another is only reached by a second pass.
        script += command + command;
    }
    return script;
}

std::string sed_substitute(const std::string& from, const std::string& to, Anchor anchor) {
    const bool at_start = anchor == Anchor::start || anchor == Anchor::whole;
    const bool at_end = anchor == Anchor::end || anchor == Anchor::whole;
    return std::string("s|") + (at_start ? "^" : "") + sed_pattern_literal(from, '|') + (at_end ? "$" : "") + "|" +
           sed_replacement_literal(to, '|') + "|g";
}

}  // namespace crelm::qmail
