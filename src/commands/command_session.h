// How a command handler obtains the session mail data its back-end steps
// read, and how those steps reach it.
#pragma once

#include <map>
#include <string>

#include "session/acquire_session.h"

namespace crelm::mail::sorvane_commands {

class CommandOptions;

// Obtains the session data by the acquisition rule: --wait-stdin reads the
// document (blocking); a command that does not require session data reads
// nothing more; one that does takes the command-line lists when either was
// given, else polls standard input and prompts. The domain is the
// command's --domain-name. Certificates of the session go into
// certificates. Then installs the qmail back end's session hooks. Throws as
// acquire_session_mail_data does.
void acquire_command_session(const CommandOptions& options, SessionDataUse use, const std::string& domain,
                             std::map<std::string, std::string>& certificates);

// Hands the qmail back end the session queries: domain aliases, mail
// aliases, and the quota record of a mail name. With no session filled the
// answers are those of an empty session (no aliases, nothing to write).
void install_qmail_session_hooks();

}  // namespace crelm::mail::sorvane_commands
