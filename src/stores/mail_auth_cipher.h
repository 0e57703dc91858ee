// Enciphering and deciphering one password of the mail authentication store
// with the key file in force, with the store's messages. Internal.
#pragma once

#include <optional>
#include <string>

enum class PasswordCipherDirection { Encrypt, Decrypt };

// Sets up the cipher from mail_auth_key_path(), turns text into its stored
// form (Encrypt) or back (Decrypt), and releases the cipher again. nullopt
// after logging "Failed to initialize password cipher context (for mail
// address '%s%s%s')" or "Failed to %s password for mail address '%s%s%s'",
// with the address as mailname "@" domain (domain may be empty).
std::optional<std::string> apply_password_cipher(PasswordCipherDirection direction, const std::string& text,
                                                 const std::string& mailname, const std::string& domain);
