#include "mailbox/message_size.h"

#include <limits>

namespace crelm::mailbox {
namespace {

constexpr std::string_view kSizeMarker = ",S=";

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The number starting at name[start] if it is well-formed and in range.
std::optional<long long> parse_size_at(std::string_view name, std::size_t start) {
    constexpr unsigned long long kMax = std::numeric_limits<long long>::max();
    unsigned long long value = 0;
    std::size_t i = start;
    for (; i < name.size() && is_digit(name[i]); ++i) {
        const auto digit = static_cast<unsigned long long>(name[i] - '0');
        if (value > (kMax - digit) / 10)
            return std::nullopt;
        value = value * 10 + digit;
    }
    if (i == start || (i < name.size() && name[i] != ':'))
        return std::nullopt;
    return static_cast<long long>(value);
}

}  // namespace

std::optional<long long> size_from_message_name(std::string_view name) {
    std::size_t end = name.size();
    while (end >= kSizeMarker.size()) {
        const std::size_t marker = name.rfind(kSizeMarker, end - kSizeMarker.size());
        if (marker == std::string_view::npos)
            return std::nullopt;
        if (const auto size = parse_size_at(name, marker + kSizeMarker.size()))
            return size;
        if (marker == 0)
            return std::nullopt;
        end = marker + kSizeMarker.size() - 1;
    }
    return std::nullopt;
}

}  // namespace crelm::mailbox
