// The address a person logs in with, in the form sorvane stores it: the
// local part lower-cased, the domain in its ASCII form, lower-cased.
#pragma once

#include <string>
#include <string_view>

namespace crelm::auth {

struct LoginAddress {
    std::string local;
    std::string domain;

    std::string text() const { return local + "@" + domain; }
};

// Splits login at its last "@" and converts the domain (IDNA, then lower
// case) and the local part (lower case). -1 when login is no address that
// could have a login: no "@", an empty part, a blank or control character,
// or a domain that does not convert.
int parse_login_address(std::string_view login, LoginAddress& address);

}  // namespace crelm::auth
