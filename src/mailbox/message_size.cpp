#include "mailbox/message_size.h"

namespace crelm::mailbox {
namespace {

constexpr std::string_view kSizeMarker = ",S=";
constexpr std::string_view kInfoMarker = ":2,";

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_capital(char c) { return c >= 'A' && c <= 'Z'; }

// The digits at the start of text as a number, modulo 2^64.
long long leading_number(std::string_view text) {
    unsigned long long value = 0;
    for (std::size_t i = 0; i < text.size() && is_digit(text[i]); ++i)
        value = value * 10 + static_cast<unsigned long long>(text[i] - '0');
    return static_cast<long long>(value);
}

}  // namespace

std::optional<long long> size_from_message_name(std::string_view name) {
    const std::string_view unique_part = name.substr(0, name.find(':'));
    const std::size_t marker = unique_part.rfind(kSizeMarker);
    if (marker == std::string_view::npos)
        return std::nullopt;
    return leading_number(unique_part.substr(marker + kSizeMarker.size()));
}

bool is_trashed_message_name(std::string_view name) {
    const std::size_t info = name.find(kInfoMarker);
    if (info == std::string_view::npos)
        return false;
    for (std::size_t i = info + kInfoMarker.size(); i < name.size() && is_capital(name[i]); ++i)
        if (name[i] == 'T')
            return true;
    return false;
}

}  // namespace crelm::mailbox
