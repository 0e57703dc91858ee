// Checking the password offered at a login against the stored one: an
// enciphered form ("$AES-256-CBC:PKCS$...") is deciphered with the key file
// and compared; a crypted form (as the panel handed it over already hashed)
// is hashed again from the offered password with crypt(3) and compared.
// Every comparison takes a time that tells nothing about the texts; the key
// and every plain or hashed text are wiped from memory after use.
#pragma once

#include <string>
#include <string_view>

#include "auth/login_record.h"

namespace crelm::auth {

enum class PasswordVerdict {
    match,
    mismatch,
    unusable,  // the stored form is none that sorvane writes (why in failure)
    failed,    // the key file cannot be read, or the form does not decipher with it (why in failure)
};

PasswordVerdict check_password(std::string_view offered, const LoginRecord& record, const std::string& key_path,
                               std::string& failure);

}  // namespace crelm::auth
