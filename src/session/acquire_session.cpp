#include "session/acquire_session.h"

#include <cstdio>
#include <stdexcept>

#include "session/mail_data_normalize.h"
#include "session/session_mail_data.h"

namespace crelm::mail {
namespace {

constexpr const char* kStdinFailure =
    "Failed to read and parse session mail data from STDIN. See mail log for details.";

void prompt_for_stdin() {
    std::fputs("This command requires additional data to be passed via STDIN in JSON format.\n"
               "To get help on expected input data format call this utility with --help-stdin option.\n"
               "Type ^D (send EOF) to abort.\n",
               stdout);
    std::fflush(stdout);
}

// Reads the document, without waiting first or, when nothing has arrived
// yet, after the prompt.
void read_from_stdin(StdinPoll poll) {
    int result = read_session_mail_data(stdin, poll);
    if (result == -1) {
        prompt_for_stdin();
        result = read_session_mail_data(stdin, StdinPoll::Skip);
    }
    if (result != 0) {
        throw std::runtime_error(kStdinFailure);
    }
}

void add_mails(SessionMailData& data, const MailDbMailAddressesList& mail_addresses) {
    for (const MailDbMailAddress& address : mail_addresses.mails()) {
        SessionMail& mail = data.mails.emplace_back();
        mail.name = data.keep(address.name);
        for (const std::string& alias : address.aliases) {
            mail.aliases.push_back(data.keep(alias));
        }
    }
}

void add_certificates(const SessionMailData* data, std::map<std::string, std::string>& certificates) {
    if (data == nullptr) {
        return;
    }
    for (const SessionCertificate& certificate : data->certificates) {
        certificates[certificate.name != nullptr ? certificate.name : ""] =
            certificate.certfile != nullptr ? certificate.certfile : "";
    }
}

}  // namespace

bool fill_session_from_command_line(const std::string& domain_name, const MailDbDomainAliasesList* domain_aliases,
                                    const MailDbMailAddressesList* mail_addresses) {
    SessionMailData* data = session_mail_data();
    if (data == nullptr) {
        return false;
    }
    data->domain_name = data->keep(domain_name);
    if (domain_aliases != nullptr) {
        for (const std::string& alias : domain_aliases->aliases()) {
            data->domain_aliases.push_back(data->keep(alias));
        }
    }
    if (mail_addresses != nullptr) {
        add_mails(*data, *mail_addresses);
    }
    lower_case_names(*data);
    return true;
}

void acquire_session_mail_data(WaitStdin wait_stdin, SessionDataUse use, const std::string& domain_name,
                               const std::optional<MailDbDomainAliasesList>& domain_aliases,
                               const std::optional<MailDbMailAddressesList>& mail_addresses,
                               std::map<std::string, std::string>& certificates) {
    if (wait_stdin == WaitStdin::Yes) {
        read_from_stdin(StdinPoll::Skip);
    } else if (use == SessionDataUse::NotRequired) {
        return;
    } else if (domain_aliases || mail_addresses) {
        if (!fill_session_from_command_line(domain_name, domain_aliases ? &*domain_aliases : nullptr,
                                            mail_addresses ? &*mail_addresses : nullptr)) {
            throw std::runtime_error("Failed to create or obtain session mail data object. Maybe out of memory.");
        }
    } else {
        read_from_stdin(StdinPoll::First);
    }
    add_certificates(existing_session_mail_data(), certificates);
}

SessionMailDataGuard::~SessionMailDataGuard() { release_session_mail_data(); }

}  // namespace crelm::mail
