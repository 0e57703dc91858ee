// libFuzzer target for the texts the audit prints: any bytes, as a server
// name, argument or store row could hold them.
//   - An argument that command_line_carries is quoted into printable ASCII
//     that a POSIX shell's single-quote rules give back byte for byte, and
//     is left bare only when made of safe bytes.
//   - shown_text is printable ASCII, one line, and can be read back to the
//     very bytes (so two texts never show alike).
//   - json_shown_string is valid UTF-8 with no raw control byte.
// Any failure traps, so that the fuzzer keeps the input.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "runtime/shown_text.h"
#include "runtime/command_line_quote.h"

namespace {

void require(bool holds) {
    if (!holds)
        __builtin_trap();
}

bool printable(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7e)
            return false;
    return true;
}

// The word a POSIX shell makes of text: bare bytes, '...' spans, and \'
// outside quotes (the only forms command_line_quote writes).
bool shell_word(std::string_view text, std::string& word) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\'') {
            const std::size_t end = text.find('\'', i + 1);
            if (end == std::string_view::npos)
                return false;
            word.append(text.substr(i + 1, end - i - 1));
            i = end;
        } else if (text[i] == '\\' && i + 1 < text.size()) {
            word += text[++i];
        } else if (command_line_safe_byte(static_cast<unsigned char>(text[i]))) {
            word += text[i];
        } else {
            return false;
        }
    }
    return true;
}

int hex_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

bool read_back(std::string_view shown, std::string& text) {
    for (std::size_t i = 0; i < shown.size(); ++i) {
        if (shown[i] != '\\') {
            text += shown[i];
            continue;
        }
        if (++i >= shown.size())
            return false;
        switch (shown[i]) {
        case '\\':
            text += '\\';
            break;
        case 'n':
            text += '\n';
            break;
        case 'r':
            text += '\r';
            break;
        case 't':
            text += '\t';
            break;
        case 'x':
            if (i + 2 >= shown.size() || hex_value(shown[i + 1]) < 0 || hex_value(shown[i + 2]) < 0)
                return false;
            text += static_cast<char>(hex_value(shown[i + 1]) * 16 + hex_value(shown[i + 2]));
            i += 2;
            break;
        default:
            return false;
        }
    }
    return true;
}

bool valid_utf8_without_controls(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            if (lead < 0x20 || lead == 0x7f)
                return false;
            ++i;
            continue;
        }
        std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
        if (lead < 0xc2 || lead > 0xf4 || i + length > text.size())
            return false;
        for (std::size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xc0) != 0x80)
                return false;
        i += length;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);

    if (command_line_carries(input)) {
        const std::string quoted = command_line_quote(input);
        require(printable(quoted));
        std::string word;
        require(shell_word(quoted, word) && word == input);
        require(quoted.front() == '\'' || !input.empty());
    }

    const std::string shown = crelm::shown_text(input);
    require(printable(shown));
    std::string back;
    require(read_back(shown, back) && back == input);

    require(valid_utf8_without_controls(crelm::json_shown_string(input)));
    return 0;
}
