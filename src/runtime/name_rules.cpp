#include "runtime/name_rules.h"

#include <cctype>

namespace crelm {
namespace {

bool is_ascii_alnum(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// High bytes pass only where the C library's locale calls them digits.
bool is_locale_digit(unsigned char c) {
    return c >= 128 && std::isdigit(c);
}

bool has_bad_dots(std::string_view name) {
    return name.front() == '.' || name.back() == '.' || name.find("..") != std::string_view::npos;
}

}  // namespace

bool is_valid_domain_name(std::string_view name) {
    if (name.empty() || name.size() > 255 || has_bad_dots(name))
        return false;
    std::size_t label_length = 0;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(name[i]);
        if (c == '.') {
            if (name[i - 1] == '-')
                return false;
            label_length = 0;
            continue;
        }
        if (++label_length > 63)
            return false;
        if (c == '-') {
            if (label_length == 1)
                return false;
        } else if (!is_ascii_alnum(c) && !is_locale_digit(c)) {
            return false;
        }
    }
    return true;
}

bool is_valid_mail_name(std::string_view name) {
    if (name.empty() || name.size() > 245 || has_bad_dots(name))
        return false;
    for (const char ch : name) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (is_ascii_alnum(c) || is_locale_digit(c))
            continue;
        if (std::string_view(".-_&+'").find(ch) == std::string_view::npos)
            return false;
    }
    return true;
}

}  // namespace crelm
