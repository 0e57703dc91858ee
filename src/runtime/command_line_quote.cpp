#include "runtime/command_line_quote.h"

#include <algorithm>

bool command_line_safe_byte(unsigned char byte) {
    if ((byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9'))
        return true;
    return std::string_view("@%+=:,./_-").find(static_cast<char>(byte)) != std::string_view::npos;
}

bool command_line_carries(std::string_view argument) {
    return std::all_of(argument.begin(), argument.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x20 && byte < 0x7f;
    });
}

std::string command_line_quote(std::string_view argument) {
    const bool bare = !argument.empty() && std::all_of(argument.begin(), argument.end(), [](char c) {
        return command_line_safe_byte(static_cast<unsigned char>(c));
    });
    if (bare)
        return std::string(argument);
    std::string quoted = "'";
    for (const char c : argument) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

std::string command_line(std::string_view program, const std::vector<std::string>& arguments) {
    std::string line = command_line_quote(program);
    for (const std::string& argument : arguments) {
        line += ' ';
        line += command_line_quote(argument);
    }
    return line;
}
