// Quoting of arguments for command lines meant for a person or a script to
// paste and run (a repair plan, a demo's script), apart from the quoting
// sorvane writes into dot-qmail files.
//
// An argument made only of the safe bytes [A-Za-z0-9@%+=:,./_-] is written
// as it is; any other is put in POSIX single quotes, each single quote
// inside written as '\''. Nothing in single quotes is special to a POSIX
// shell, so the shell gives the argument back byte for byte, provided the
// line reaches it whole: a paste into a terminal ends the line at a
// carriage return, and a terminal acts on escape and other control bytes
// before the shell sees them. Such arguments cannot be carried at all
// (command_line_carries says which).
#pragma once

#include <string>
#include <string_view>
#include <vector>

// True for a byte written without quotes.
bool command_line_safe_byte(unsigned char byte);

// True when every byte of the argument survives a paste: printable ASCII
// only (no C0 control byte, no DEL, nothing above 0x7f).
bool command_line_carries(std::string_view argument);

// The argument as it goes on the line: bare when non-empty and made only
// of safe bytes, else in single quotes ('' for the empty argument).
std::string command_line_quote(std::string_view argument);

// The program and its arguments, each quoted, separated by one blank.
// The caller makes sure command_line_carries holds for each of them.
std::string command_line(std::string_view program, const std::vector<std::string>& arguments);
