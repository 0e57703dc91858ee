// Control bytes in texts that end up in qmail's files: a bounce phrase goes
// into a shell command line and a catch-all address into a forward line, and
// neither has any use for a byte that moves a terminal's cursor, ends a line
// or starts an escape sequence.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace crelm {

// The first byte of text below blank (tab, carriage return and newline
// included) or DEL (127), or nullopt when it has none. Bytes above 127 are
// not control bytes here: they are how UTF-8 text is written.
std::optional<unsigned char> first_control_byte(std::string_view text);

// The byte as a C escape, printable on one line: "\t", "\n", "\r", "\e" for
// ESC, otherwise "\xNN" with two lower-case hexadecimal digits.
std::string control_byte_name(unsigned char byte);

}  // namespace crelm
