#include "commands/session_data_request.h"

#include <optional>

#include "session/acquire_session.h"

namespace crelm::mail::sorvane_commands {

void read_requested_session_data(const CommandOptions& options, std::map<std::string, std::string>& certificates) {
    if (!options.has("wait-stdin"))
        return;
    const std::string domain = options.has("domain-name") ? options.domain_name("domain-name") : std::string();
    // The document on standard input takes the place of the command-line lists.
    acquire_session_mail_data(WaitStdin::Yes, SessionDataUse::NotRequired, domain, std::nullopt, std::nullopt,
                              certificates);
}

}  // namespace crelm::mail::sorvane_commands
