#include "runtime/shell_quote.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace {

// Bytes that dash or bash would read as syntax, an expansion or a word
// break: the classic set, then the braces of bash's brace lists ({a,b}),
// "!" (a pipeline's negation and bash's history mark) and "^" (a pipe in
// older shells). A backslash makes each of them a plain character in both.
constexpr std::string_view kEscapedBytes = "\t \"#$&'()*;<>?[\\`|~{}!^";

// Control bytes other than tab, and DEL: no shell gives them a meaning, but
// a backslash before a newline joins lines, so they are kept inside single
// quotes, where every byte stands for itself.
constexpr bool is_quoted_control(unsigned byte) {
    return (byte < 0x20 && byte != '\t') || byte == 0x7f;
}

constexpr std::array<char, 256> build_class_table() {
    std::array<char, 256> table{};
    table.fill('-');
    for (unsigned byte = 0; byte < 256; ++byte)
        if (is_quoted_control(byte))
            table[byte] = 'n';
    for (const char c : kEscapedBytes)
        table[static_cast<unsigned char>(c)] = '*';
    return table;
}

constexpr std::array<char, 256> kClassTable = build_class_table();

}  // namespace

std::string_view shell_char_classes() { return {kClassTable.data(), kClassTable.size()}; }

char shell_char_class(unsigned char byte) { return kClassTable[byte]; }

std::string shell_escape(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size() * 2);
    for (const char c : text) {
        switch (shell_char_class(static_cast<unsigned char>(c))) {
        case '*':
            escaped += '\\';
            escaped += c;
            break;
        case 'n':
            escaped += '\'';
            escaped += c;
            escaped += '\'';
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string shell_quote(std::string_view text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

bool shell_is_plain(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return shell_char_class(static_cast<unsigned char>(c)) == '-'; });
}

bool shell_is_plain(const char* text) { return text == nullptr || shell_is_plain(std::string_view(text)); }

bool shell_require_plain(std::string_view text) {
    if (!shell_is_plain(text))
        throw std::runtime_error("Internal error: bad escape_chars value");
    return true;
}

bool shell_require_plain(const char* text) {
    return text == nullptr || shell_require_plain(std::string_view(text));
}
