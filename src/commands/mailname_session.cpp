#include "commands/mailname_session.h"

#include <map>
#include <stdexcept>

#include "commands/command_options.h"
#include "commands/command_session.h"
#include "session/command_line_lists.h"
#include "session/mail_data.h"
#include "session/session_mail_data.h"

namespace crelm::mail::sorvane_commands {
namespace {

bool names_equal(const char* stored, const std::string& name) {
    return stored != nullptr && name == stored;
}

SessionMail* find_mail(SessionMailData& data, const std::string& mailname) {
    for (SessionMail& mail : data.mails)
        if (names_equal(mail.name, mailname))
            return &mail;
    return nullptr;
}

SessionMailData& filled_session(const std::string& domain, const std::string& mailname) {
    if (SessionMailData* data = existing_session_mail_data())
        return *data;
    MailDbMailAddressesList mails;
    mails.withMailname(mailname);
    if (!fill_session_from_command_line(domain, nullptr, &mails))
        throw std::runtime_error("Failed to create or obtain session mail data object. Maybe out of memory.");
    return *existing_session_mail_data();
}

// Makes the session hold mailname (and its quota, when the command line
// gives one) unless the session describes another domain.
void register_mailname(const std::string& domain, const std::string& mailname, std::optional<std::int64_t> quota) {
    SessionMailData& data = filled_session(domain, mailname);
    if (data.domain_name == nullptr)
        data.domain_name = data.keep(domain);
    if (!names_equal(data.domain_name, domain))
        return;
    SessionMail* mail = find_mail(data, mailname);
    if (mail == nullptr) {
        mail = &data.mails.emplace_back();
        mail->name = data.keep(mailname);
    }
    if (quota) {
        mail->mbox_quota = *quota;
        mail->mbox_quota_unit = "B";
    }
}

}  // namespace

void acquire_mailname_session(const CommandOptions& options, SessionDataUse use, const std::string& domain,
                              const std::string& mailname, std::optional<std::int64_t> quota) {
    const WaitStdin wait = options.has("wait-stdin") ? WaitStdin::Yes : WaitStdin::No;
    const auto domain_aliases = options.optional_value<MailDbDomainAliasesList>("domain-aliases");
    auto mail_addresses = options.optional_value<MailDbMailAddressesList>("mail-addresses");
    // The command's mail name joins the lists only when the lists are the
    // source: without them standard input is asked for.
    if (domain_aliases || mail_addresses) {
        if (!mail_addresses)
            mail_addresses.emplace();
        mail_addresses->withMailname(mailname);
    }
    std::map<std::string, std::string> certificates;
    acquire_session_mail_data(wait, use, domain, domain_aliases, mail_addresses, certificates);
    register_mailname(domain, mailname, quota);
    install_qmail_session_hooks();
}

std::optional<std::int64_t> session_mailbox_quota(const std::string& domain, const std::string& mailname) {
    SessionMailData* data = existing_session_mail_data();
    if (data == nullptr || !names_equal(data->domain_name, domain))
        return std::nullopt;
    const SessionMail* mail = find_mail(*data, mailname);
    if (mail == nullptr)
        return std::nullopt;
    return mail->mbox_quota;
}

}  // namespace crelm::mail::sorvane_commands
