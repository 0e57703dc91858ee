// Reading a process id or a similar count from text.
#pragma once

#include <string_view>

// The value of text when it is a plain decimal number: digits only, no sign,
// no leading zero unless the number is "0", nothing after the digits, at most
// 2147483647. Anything else gives -1.
int parse_strict_number(std::string_view text);
