#include "commands/batch_output.h"

#include <cstdint>
#include <cstdio>

namespace crelm::mail::sorvane_commands {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

void append_u_escape(std::string& out, std::uint32_t unit) {
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(unit));
    out += text;
}

void append_code_point(std::string& out, std::uint32_t code) {
    if (code < 0x10000) {
        append_u_escape(out, code);
        return;
    }
    code -= 0x10000;
    append_u_escape(out, 0xD800 + (code >> 10));
    append_u_escape(out, 0xDC00 + (code & 0x3FF));
}

// The length of the valid UTF-8 sequence at bytes[at] and its code point;
// 0 when the bytes there are not one (overlong forms, surrogates and code
// points beyond U+10FFFF included).
std::size_t utf8_sequence(std::string_view bytes, std::size_t at, std::uint32_t& code) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[at + i]); };
    const unsigned char lead = byte(0);
    std::size_t length = 0;
    std::uint32_t minimum = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2, code = lead & 0x1F, minimum = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, code = lead & 0x0F, minimum = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, code = lead & 0x07, minimum = 0x10000;
    } else {
        return 0;
    }
    if (at + length > bytes.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (byte(i) & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return 0;
    return length;
}

void append_escaped_ascii(std::string& out, char c) {
    switch (c) {
        case '"': out += "\\\""; return;
        case '\\': out += "\\\\"; return;
        case '\n': out += "\\n"; return;
        case '\r': out += "\\r"; return;
        case '\t': out += "\\t"; return;
        case '\b': out += "\\b"; return;
        case '\f': out += "\\f"; return;
        default: break;
    }
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
        append_u_escape(out, static_cast<unsigned char>(c));
    else
        out += c;
}

}  // namespace

std::string json_quoted(std::string_view bytes) {
    std::string out = "\"";
    out.reserve(bytes.size() + 2);
    for (std::size_t at = 0; at < bytes.size();) {
        if (static_cast<unsigned char>(bytes[at]) < 0x80) {
            append_escaped_ascii(out, bytes[at++]);
            continue;
        }
        std::uint32_t code = 0;
        const std::size_t length = utf8_sequence(bytes, at, code);
        append_code_point(out, length ? code : kReplacement);
        at += length ? length : 1;
    }
    return out + "\"";
}

std::string batch_output_object(std::size_t line, int status, std::string_view out, std::string_view err) {
    return "{\"line\": " + std::to_string(line) + ", \"status\": " + std::to_string(status) +
           ", \"stdout\": " + json_quoted(out) + ", \"stderr\": " + json_quoted(err) + "}\n";
}

}  // namespace crelm::mail::sorvane_commands
