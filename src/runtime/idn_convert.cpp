#include "runtime/idn.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include "runtime/idna_call.h"
#include "runtime/log.h"

namespace {

int last_status = 0;

// An IDNA failure is the library's verdict on the name, not a failed system
// call: errno is cleared so that no stale system error is added to the report.
[[noreturn]] void exit_on_failed_conversion(const char* function, const std::string& text) {
    errno = 0;
    report_error(1, 1, "%s(%s) failed: %s", function, text.c_str(), idn_status_text(last_status));
    std::abort();  // not reached: report_error ends the process
}

// Stores the status; a library allocation failure ends the process.
IdnaResult call_and_store(const std::string& name, IdnaDirection direction) {
    IdnaResult result = call_idna(name, direction);
    last_status = result.status;
    if (result.status == kIdnaAllocationFailed)
        report_error(1, 1, "Allocation failed");
    return result;
}

}  // namespace

int idn_last_status() { return last_status; }

std::optional<std::string> idn_toascii(const std::string& name) {
    IdnaResult result = call_and_store(name, IdnaDirection::ToAscii);
    if (result.status != 0)
        return std::nullopt;
    return std::move(result.text);
}

std::string idn_toascii_safe(const std::string& name) {
    std::optional<std::string> ascii = idn_toascii(name);
    if (!ascii)
        exit_on_failed_conversion("idn_toascii_safe", name);
    return std::move(*ascii);
}

std::optional<std::string> idn_tounicode(const std::string& name) {
    return call_and_store(name, IdnaDirection::ToUnicode).text;
}

std::optional<std::string> idn_email_toascii(const std::string& address) {
    last_status = 0;
    const std::string::size_type at = address.find('@');
    if (at == std::string::npos)
        return std::nullopt;
    const std::string domain_part = address.substr(at + 1);
    if (domain_part.find('@') != std::string::npos) {
        last_status = kIdnaNonLdh;
        return std::nullopt;
    }
    const std::optional<std::string> domain = idn_toascii(domain_part);
    if (!domain)
        return std::nullopt;
    return address.substr(0, at) + "@" + *domain;
}

std::string idn_email_toascii_safe(const std::string& address) {
    std::optional<std::string> ascii = idn_email_toascii(address);
    if (!ascii)
        exit_on_failed_conversion("idn_email_toascii_safe", address);
    return std::move(*ascii);
}

namespace crelm::idn {
namespace {

std::string convert_or_throw(const std::string& name, IdnaDirection direction) {
    IdnaResult result = call_idna(name, direction);
    if (result.status != 0)
        throw IdnaError(result.status);
    if (!result.text)
        throw std::bad_alloc();
    return std::move(*result.text);
}

}  // namespace

std::string to_ascii(const std::string& name) { return convert_or_throw(name, IdnaDirection::ToAscii); }

std::string to_unicode(const std::string& name) { return convert_or_throw(name, IdnaDirection::ToUnicode); }

}  // namespace crelm::idn
