// IDNA conversion of domain names, of the domain part of mail addresses and
// of the host part of URLs (UTF-8 in, ACE "xn--" labels out), over GNU libidn
// without flags.
//
// Plain layer: returns nullopt (or null) on failure and keeps the library's
// status for the caller's message; the "_safe" forms end the process instead.
// A libidn allocation failure (status 201) always ends the process with
// "Allocation failed" (exit status 1). A name holding a zero byte is refused
// with status 3 ("Contains non-LDH characters") before it reaches the library,
// which would otherwise convert only the text in front of it. Labels that are
// ASCII already pass unchanged (case included).
#pragma once

#include <exception>
#include <optional>
#include <string>

inline constexpr int kIdnaNonLdh = 3;
inline constexpr int kIdnaAllocationFailed = 201;

// The text for a libidn IDNA status ("Success", "Punycode error", ...;
// "Unknown error" for codes it does not know).
const char* idn_status_text(int status);

// The status stored by the latest plain conversion (0 after a success).
int idn_last_status();

// The ASCII form of name; nullopt on failure (status stored).
std::optional<std::string> idn_toascii(const std::string& name);

// The ASCII form of name; on failure ends the process (exit status 1) with
// "idn_toascii_safe(<name>) failed: <status text>".
std::string idn_toascii_safe(const std::string& name);

// The Unicode (UTF-8) form of name; nullopt on failure (status stored).
std::optional<std::string> idn_tounicode(const std::string& name);

// local@domain with only the domain (everything after the first "@")
// converted; nullopt for an address without "@" (status 0 stored) or when the
// domain does not convert (its status stored). A domain part holding another
// "@" fails with status 3: the library, called without flags, would let it
// through as a host name.
std::optional<std::string> idn_email_toascii(const std::string& address);

// As idn_email_toascii; on failure ends the process (exit status 1) with
// "idn_email_toascii_safe(<address>) failed: <status text>".
std::string idn_email_toascii_safe(const std::string& address);

// The URL with only its host converted: scheme, user information, port, path
// and query are kept. The result lives in one process-wide 4096-byte buffer
// (at most 4095 characters) that the next call overwrites. On failure reports
// through report_error and returns null.
const char* idn_url_toascii(const std::string& url);

namespace crelm::idn {

// A failed IDNA conversion; what() is the status text.
class IdnaError : public std::exception {
public:
    explicit IdnaError(int status) : status_(status) {}
    int status() const noexcept { return status_; }
    const char* what() const noexcept override;

private:
    int status_;
};

// The ASCII form of name; throws IdnaError with the library's status, or
// std::bad_alloc when the library succeeds without a result.
std::string to_ascii(const std::string& name);

// The Unicode form of name; throws as to_ascii does.
std::string to_unicode(const std::string& name);

}  // namespace crelm::idn
