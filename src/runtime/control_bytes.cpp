#include "runtime/control_bytes.h"

#include <cstdio>

namespace crelm {

std::optional<unsigned char> first_control_byte(std::string_view text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f)
            return byte;
    }
    return std::nullopt;
}

std::string control_byte_name(unsigned char byte) {
    switch (byte) {
    case '\t':
        return "\\t";
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case 0x1b:
        return "\\e";
    default: {
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02x", byte);
        return hex;
    }
    }
}

}  // namespace crelm
