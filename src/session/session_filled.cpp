#include "session/session_filled.h"

#include "runtime/log.h"
#include "session/session_mail_data.h"

using crelm::mail::SessionMail;
using crelm::mail::SessionMailData;

const SessionMailData* filled_session_or_report(const char* caller) {
    const SessionMailData* data = existing_session_mail_data();
    if (data == nullptr) {
        log_message(3, "Session mail DB info is not filled in call to %s(). Probably a programming error.", caller);
    }
    return data;
}

bool is_session_domain(const SessionMailData& data, std::string_view domain) {
    return data.domain_name != nullptr && domain == data.domain_name;
}

const SessionMail* find_session_mail(const SessionMailData& data, std::string_view mailname) {
    for (const SessionMail& mail : data.mails) {
        if (mail.name != nullptr && mailname == mail.name) {
            return &mail;
        }
    }
    return nullptr;
}
