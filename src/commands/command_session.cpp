#include "commands/command_session.h"

#include <optional>

#include "commands/command_options.h"
#include "qmail/session_hooks.h"
#include "session/command_line_lists.h"
#include "session/session_mail_data.h"
#include "session/session_queries.h"

namespace crelm::mail::sorvane_commands {
namespace {

bool session_is_filled() {
    return existing_session_mail_data() != nullptr;
}

}  // namespace

void acquire_command_session(const CommandOptions& options, SessionDataUse use, const std::string& domain,
                             std::map<std::string, std::string>& certificates) {
    const WaitStdin wait = options.has("wait-stdin") ? WaitStdin::Yes : WaitStdin::No;
    acquire_session_mail_data(wait, use, domain, options.optional_value<MailDbDomainAliasesList>("domain-aliases"),
                              options.optional_value<MailDbMailAddressesList>("mail-addresses"), certificates);
    install_qmail_session_hooks();
}

void install_qmail_session_hooks() {
    crelm::qmail::SessionHooks hooks;
    hooks.domain_aliases = [](std::string_view domain, crelm::qmail::NameList& aliases) {
        aliases.reset();
        return session_is_filled() ? get_domaliases_by_domain(domain, aliases) : 0;
    };
    hooks.mail_aliases = [](std::string_view mailname, std::string_view domain, crelm::qmail::NameList& aliases) {
        aliases.reset();
        return session_is_filled() ? get_aliases_by_mailname(mailname, domain, aliases) : 0;
    };
    hooks.init_quota_record = [](std::string_view domain, std::string_view mailname) {
        return session_is_filled() ? rm_mbox_quota(domain, mailname) : 1;
    };
    crelm::qmail::set_qmail_session_hooks(std::move(hooks));
}

}  // namespace crelm::mail::sorvane_commands
