#include "auth/login_address.h"

#include <algorithm>

#include "runtime/idn.h"

namespace crelm::auth {

namespace {

// Longer than any domain or mail name the panel can give.
constexpr std::size_t kMaxPartLength = 255;

bool usable_part(std::string_view part) {
    return !part.empty() && part.size() <= kMaxPartLength &&
           std::none_of(part.begin(), part.end(), [](char c) {
               const auto byte = static_cast<unsigned char>(c);
               return byte <= 0x20 || byte == 0x7f;
           });
}

std::string lower_ascii(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

}  // namespace

int parse_login_address(std::string_view login, LoginAddress& address) {
    const std::size_t at = login.rfind('@');
    if (at == std::string_view::npos)
        return -1;
    const std::string_view local = login.substr(0, at);
    const std::string_view domain = login.substr(at + 1);
    if (!usable_part(local) || !usable_part(domain))
        return -1;
    const std::optional<std::string> ascii = idn_toascii(std::string(domain));
    if (!ascii || !usable_part(*ascii))
        return -1;
    address.local = lower_ascii(local);
    address.domain = lower_ascii(*ascii);
    return 0;
}

}  // namespace crelm::auth
