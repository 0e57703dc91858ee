// How a command obtains its session data, and the guard that releases it
// when the command ends.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "session/command_line_lists.h"

namespace crelm::mail {

enum class WaitStdin { No, Yes };
enum class SessionDataUse { NotRequired, Required };

// In this order: with WaitStdin::Yes, reads the document on standard input
// (blocking); otherwise does nothing when the command does not require
// session data; otherwise, when either command-line list was given, fills
// the session from domain_name and those lists; otherwise polls standard
// input and, when nothing is there yet, prints the three-line prompt on
// standard output and reads blocking. Every certificate of the session is
// then entered into certificates (name to file).
// Throws std::runtime_error "Failed to read and parse session mail data from
// STDIN. See mail log for details." when standard input fails (the details
// are logged), and "Failed to create or obtain session mail data object.
// Maybe out of memory." when the session object cannot be had.
void acquire_session_mail_data(WaitStdin wait_stdin, SessionDataUse use, const std::string& domain_name,
                               const std::optional<MailDbDomainAliasesList>& domain_aliases,
                               const std::optional<MailDbMailAddressesList>& mail_addresses,
                               std::map<std::string, std::string>& certificates);

// Fills the session object from the command line: the domain name, its
// aliases, the mail names with their aliases (quota -1, unit "B"); names are
// lower-cased as for a document. The session object is created when it does
// not exist yet. Returns false when it cannot be allocated.
bool fill_session_from_command_line(const std::string& domain_name, const MailDbDomainAliasesList* domain_aliases,
                                    const MailDbMailAddressesList* mail_addresses);

// Releases the session data when the command that acquired it ends.
class SessionMailDataGuard {
public:
    SessionMailDataGuard() = default;
    ~SessionMailDataGuard();
    SessionMailDataGuard(const SessionMailDataGuard&) = delete;
    SessionMailDataGuard& operator=(const SessionMailDataGuard&) = delete;
};

}  // namespace crelm::mail
