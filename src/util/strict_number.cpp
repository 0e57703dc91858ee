#include "util/strict_number.h"

#include <climits>

int parse_strict_number(std::string_view text) {
    if (text.empty() || (text.size() > 1 && text.front() == '0'))
        return -1;
    long long value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return -1;
        value = value * 10 + (c - '0');
        if (value > INT_MAX)
            return -1;
    }
    return static_cast<int>(value);
}
