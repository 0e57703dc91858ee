// The session data of the mail name, mailbox and mail alias commands: the
// acquisition rule of every command, with the command's own mail name
// entered into the session so that the back-end steps find it there.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "session/acquire_session.h"

namespace crelm::mail::sorvane_commands {

class CommandOptions;

// Obtains the session data by the acquisition rule (--wait-stdin, the
// command-line lists, or a poll of standard input when use is Required),
// with mailname registered in the command-line mail list. Afterwards the
// session is filled and holds mailname of domain: when nothing was read it
// is filled from the command line; a document that lacks the mail name gets
// it added (quota -1). quota, when given, becomes the session's quota of the
// mail name, so that the back end's quota record step writes what the
// command wrote. A session that describes another domain is left as it is.
// Then installs the qmail back end's session hooks. Throws as
// acquire_session_mail_data does.
void acquire_mailname_session(const CommandOptions& options, SessionDataUse use, const std::string& domain,
                              const std::string& mailname, std::optional<std::int64_t> quota = std::nullopt);

// The session's quota of mailname@domain in bytes, or std::nullopt when the
// session does not hold that mail.
std::optional<std::int64_t> session_mailbox_quota(const std::string& domain, const std::string& mailname);

}  // namespace crelm::mail::sorvane_commands
