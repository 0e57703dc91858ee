#include "runtime/shown_text.h"

#include <cstdio>

namespace crelm {

namespace {

std::string hex_escape(unsigned char byte) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
    return escaped;
}

std::string json_unicode_escape(unsigned code) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\u%04x", code);
    return escaped;
}

bool continuation(unsigned char byte) { return (byte & 0xc0) == 0x80; }

// The length of the valid UTF-8 sequence of two or more bytes starting at
// at (shortest form, no surrogate, nothing above U+10FFFF), or 0.
std::size_t utf8_sequence(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const unsigned char lead = byte(0);
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xbf;
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        low = lead == 0xe0 ? 0xa0 : 0x80;
        high = lead == 0xed ? 0x9f : 0xbf;
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        low = lead == 0xf0 ? 0x90 : 0x80;
        high = lead == 0xf4 ? 0x8f : 0xbf;
    } else {
        return 0;
    }
    if (at + length > text.size() || byte(1) < low || byte(1) > high)
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (!continuation(byte(i)))
            return 0;
    return length;
}

void add_json_ascii(std::string& out, unsigned char byte) {
    switch (byte) {
    case '"':
        out += "\\\"";
        break;
    case '\\':
        out += "\\\\\\\\";  // the value's backslash, written twice
        break;
    case '\n':
        out += "\\n";
        break;
    case '\r':
        out += "\\r";
        break;
    case '\t':
        out += "\\t";
        break;
    default:
        if (byte < 0x20 || byte == 0x7f)
            out += json_unicode_escape(byte);
        else
            out += static_cast<char>(byte);
    }
}

}  // namespace

std::string shown_text(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (byte) {
        case '\\':
            shown += "\\\\";
            break;
        case '\n':
            shown += "\\n";
            break;
        case '\r':
            shown += "\\r";
            break;
        case '\t':
            shown += "\\t";
            break;
        default:
            if (byte >= 0x20 && byte < 0x7f)
                shown += c;
            else
                shown += hex_escape(byte);
        }
    }
    return shown;
}

std::string json_shown_string(std::string_view text) {
    std::string out = "\"";
    std::size_t at = 0;
    while (at < text.size()) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (byte < 0x80) {
            add_json_ascii(out, byte);
            ++at;
            continue;
        }
        const std::size_t length = utf8_sequence(text, at);
        if (length == 0) {
            out += "\\" + hex_escape(byte);  // "\\xNN" in the document: \xNN in the value
            ++at;
        } else if (length == 2 && byte == 0xc2 && static_cast<unsigned char>(text[at + 1]) < 0xa0) {
            out += json_unicode_escape(static_cast<unsigned char>(text[at + 1]));  // U+0080 to U+009F
            at += 2;
        } else {
            out.append(text.substr(at, length));
            at += length;
        }
    }
    return out + "\"";
}

std::string json_plain_string(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f)
            return json_shown_string(text);  // not what the caller promised: still valid JSON
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

}  // namespace crelm
