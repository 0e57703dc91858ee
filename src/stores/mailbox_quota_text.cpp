#include "stores/mailbox_quota_text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "runtime/log.h"

namespace {

constexpr std::array<std::pair<std::string_view, std::int64_t>, 5> kUnits{{
    {"B", 1},
    {"KB", 1024},
    {"MB", 1048576},
    {"GB", 1073741824},
    {"TB", 1099511627776},
}};

std::int64_t unit_multiplier(std::string_view unit) {
    if (unit.empty())
        return 1;
    const auto found =
        std::find_if(kUnits.begin(), kUnits.end(), [unit](const auto& entry) { return entry.first == unit; });
    return found == kUnits.end() ? 0 : found->second;
}

std::int64_t parse_failure(const char* reason) {
    log_message(3, "Failed to parse quota value: %s", reason);
    return -1;
}

}  // namespace

std::string quota_text(std::int64_t bytes) {
    return std::to_string(static_cast<std::uint64_t>(std::max<std::int64_t>(bytes, 0))) + "B";
}

std::optional<std::int64_t> quota_text_bytes(std::string_view text, std::string* failure) {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    std::int64_t number = 0;
    try {
        number = std::stoll(std::string(text.substr(0, digits)), nullptr, 10);
    } catch (const std::logic_error& error) {
        if (failure != nullptr)
            *failure = error.what();
        return std::nullopt;
    }
    std::int64_t bytes = 0;
    if (__builtin_mul_overflow(number, unit_multiplier(text.substr(digits)), &bytes)) {
        if (failure != nullptr)
            *failure = std::strerror(ERANGE);
        return std::nullopt;
    }
    return bytes;
}

std::int64_t parse_quota_text(std::string_view text) {
    std::string failure;
    const std::optional<std::int64_t> bytes = quota_text_bytes(text, &failure);
    return bytes ? *bytes : parse_failure(failure.c_str());
}
