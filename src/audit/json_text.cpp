#include "audit/json_text.h"

#include <cstdio>

namespace crelm::audit {
namespace {

// How many continuation bytes follow a lead byte, and the least code point
// that the sequence may encode (so that overlong forms are refused); 0
// continuation bytes and a zero minimum for a byte that cannot lead.
struct Lead {
    int continuations;
    char32_t least;
    char32_t value;
};

Lead lead_of(unsigned char byte) {
    if (byte < 0x80)
        return {0, 0, byte};
    if ((byte & 0xE0) == 0xC0)
        return {1, 0x80, static_cast<char32_t>(byte & 0x1F)};
    if ((byte & 0xF0) == 0xE0)
        return {2, 0x800, static_cast<char32_t>(byte & 0x0F)};
    if ((byte & 0xF8) == 0xF0)
        return {3, 0x10000, static_cast<char32_t>(byte & 0x07)};
    return {-1, 0, 0};
}

}  // namespace

bool is_utf8_text(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const Lead lead = lead_of(static_cast<unsigned char>(text[at]));
        if (lead.continuations < 0 || text.size() - at <= static_cast<std::size_t>(lead.continuations))
            return false;
        char32_t code = lead.value;
        for (int i = 1; i <= lead.continuations; ++i) {
            const auto byte = static_cast<unsigned char>(text[at + static_cast<std::size_t>(i)]);
            if ((byte & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (byte & 0x3F);
        }
        if (code < lead.least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
        at += static_cast<std::size_t>(lead.continuations) + 1;
    }
    return true;
}

std::string json_quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

}  // namespace crelm::audit
