#include "session/session_queries.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>

#include "runtime/log.h"
#include "session/session_filled.h"

using crelm::mail::SessionMail;
using crelm::mail::SessionMailData;

namespace {

std::vector<std::string> copy_list(const std::vector<char*>& texts) {
    std::vector<std::string> copies;
    copies.reserve(texts.size());
    for (const char* text : texts) {
        copies.emplace_back(text);
    }
    return copies;
}

// A list that cannot be built for want of memory is reported and given as
// no list; the query still succeeds.
template <typename Result, typename Fill>
void fill_or_report(Result& result, Fill fill) {
    try {
        result = fill();
    } catch (const std::bad_alloc&) {
        log_message(3, "System error: %s\n", std::strerror(ENOMEM));
        result.reset();
    }
}

// Answers for the session's own domain only; other domains have no list.
template <typename Fill>
int answer_for_domain(const char* caller, std::string_view domain, SessionNameList& result, Fill fill) {
    result.reset();
    const SessionMailData* data = filled_session_or_report(caller);
    if (data == nullptr) {
        return -1;
    }
    if (is_session_domain(*data, domain)) {
        fill_or_report(result, [&] { return fill(*data); });
    }
    return 0;
}

}  // namespace

int get_domain_by_domainalias(std::string_view alias, std::optional<std::string>& domain) {
    domain.reset();
    const SessionMailData* data = filled_session_or_report("get_domain_by_domainalias");
    if (data == nullptr) {
        return -1;
    }
    for (const char* known : data->domain_aliases) {
        if (data->domain_name != nullptr && alias == known) {
            fill_or_report(domain, [&] { return std::optional<std::string>(data->domain_name); });
            break;
        }
    }
    return 0;
}

int get_mailnames_by_domain(std::string_view domain, SessionNameList& mailnames) {
    return answer_for_domain("get_mailnames_by_domain", domain, mailnames, [](const SessionMailData& data) {
        std::vector<std::string> names;
        names.reserve(data.mails.size());
        for (const SessionMail& mail : data.mails) {
            names.emplace_back(mail.name != nullptr ? mail.name : "");
        }
        return SessionNameList(std::move(names));
    });
}

int get_aliases_by_mailname(std::string_view mailname, std::string_view domain, SessionNameList& aliases) {
    return answer_for_domain("get_aliases_by_mailname", domain, aliases, [&](const SessionMailData& data) {
        const SessionMail* mail = find_session_mail(data, mailname);
        if (mail == nullptr || mail->aliases.empty()) {
            return SessionNameList();
        }
        return SessionNameList(copy_list(mail->aliases));
    });
}

int get_domaliases_by_domain(std::string_view domain, SessionNameList& domain_aliases) {
    domain_aliases.reset();
    const SessionMailData* data = filled_session_or_report("get_domaliases_by_domain");
    if (data == nullptr) {
        return -1;
    }
    if (data->domain_name == nullptr) {
        log_message(3, "Session mail DB info has missing domain name in call to %s(). Probably a programming error.",
                    "get_domaliases_by_domain");
        return -1;
    }
    if (is_session_domain(*data, domain)) {
        fill_or_report(domain_aliases, [&] { return SessionNameList(copy_list(data->domain_aliases)); });
    }
    return 0;
}

int get_maillists_by_domain(std::string_view domain, SessionNameList& maillists) {
    return answer_for_domain("get_maillists_by_domain", domain, maillists,
                             [](const SessionMailData& data) { return SessionNameList(copy_list(data.maillists)); });
}

int append_active_domaliases_by_domain(std::string_view, SessionNameList&) {
    throw std::runtime_error(std::string("Function ") + "append_active_domaliases_by_domain" +
                             " is not implemented for JSON/STDIN");
}
