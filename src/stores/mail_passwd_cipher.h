// The password cipher of the mail authentication store and its key file.
//
// Mailbox passwords are kept reversibly enciphered so that the store can hand
// them back in plain form. The stored form is
//   "$AES-256-CBC:PKCS$" Base64(IV) "$" Base64(cipher text)
// with a fresh random 16-byte IV per password and PKCS#7 padding. The key
// file holds exactly the 32 raw key bytes.
//
// A cipher context is set up per process by mail_passwd_cipher_init and held
// by use count: every init is paired with one mail_passwd_cipher_release.
// The contexts live in one process-wide list that an exit handler clears;
// key bytes are wiped when a context is freed. Single-threaded use only.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// The cipher and padding of every stored password, and the stored prefix.
inline constexpr std::string_view kMailPasswdCipherSpec = "AES-256-CBC:PKCS";
inline constexpr std::string_view kMailPasswdStoredPrefix = "$AES-256-CBC:PKCS$";

// Sets up the context with the key read from key_path, or takes one more hold
// on the context already set up. Returns true on success; false after
// logging ("Can't read encryption key from ...", "Failed to read entire
// encryption key from ...", then "Failed to initialize encryption cipher
// '<spec>' with key '<path>'").
bool mail_passwd_cipher_init(const std::string& key_path);

// The stored form of plain, or nullopt: errno EINVAL when no context is set
// up or plain is 2147483647 bytes or longer (logged as a warning), EIO when
// libcrypto fails.
std::optional<std::string> mail_passwd_encrypt(std::string_view plain);

// The plain text of a stored form, or nullopt: errno EINVAL when the text
// does not begin with "$AES-256-CBC:PKCS$", a field is not valid Base64, the
// IV has the wrong length or no context is set up; errno EBADMSG when the
// text does not decipher with the context's key (another key, damaged text).
std::optional<std::string> mail_passwd_decrypt(std::string_view stored);

// True when text begins with "$AES-256-CBC:PKCS$".
bool mail_passwd_is_encrypted(std::string_view text);

// Drops one hold on the context, freeing it with the last one. Returns 0, or
// -1 after logging "Failed to correctly destroy encryption cipher '<spec>'.
// A programming error?" when no context is held.
int mail_passwd_cipher_release();

// Drops, at the end of a scope, the hold that a successful
// mail_passwd_cipher_init took; the last release wipes the key.
class MailPasswdCipherHold {
public:
    MailPasswdCipherHold() = default;
    ~MailPasswdCipherHold() { mail_passwd_cipher_release(); }
    MailPasswdCipherHold(const MailPasswdCipherHold&) = delete;
    MailPasswdCipherHold& operator=(const MailPasswdCipherHold&) = delete;
};

// Fills buffer with as many random bytes as an AES-256-CBC key has (32).
// Returns the number of bytes written, or 0 (errno EINVAL when the buffer is
// smaller than that, EIO when the random generator fails).
std::size_t generate_key_data(std::span<unsigned char> buffer);

// Replaces the key file at key_path with 32 new random bytes: creates its
// directory when needed, deletes the old file, and writes the new one with
// the process umask set to 077 (so its mode is 0600; the caller sets the
// final owner and mode). Returns 0, or -1 after logging "Unable to generate
// new Mail Authentication Password Encryption Key data: <reason>" or "Unable
// to re-create Mail Authentication Password Encryption Key: <reason>";
// a key file that could not be written whole is removed again.
int recreate_mail_passwd_key(const std::string& key_path);
