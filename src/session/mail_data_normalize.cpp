#include "session/mail_data_normalize.h"

#include <cstring>

#include "runtime/log.h"

namespace crelm::mail {
namespace {

// tolower() of the C locale, without a library call per byte.
void lower_case(char* text) {
    for (; text != nullptr && *text != '\0'; ++text) {
        if (*text >= 'A' && *text <= 'Z') {
            *text = static_cast<char>(*text - 'A' + 'a');
        }
    }
}

void lower_case_all(std::vector<char*>& texts) {
    for (char* text : texts) {
        lower_case(text);
    }
}

}  // namespace

std::int64_t quota_unit_multiplier(const char* unit) {
    struct Unit {
        const char* name;
        std::int64_t multiplier;
    };
    static constexpr Unit kUnits[] = {
        {"B", 1}, {"KB", 1024}, {"MB", 1048576}, {"GB", 1073741824}, {"TB", 1099511627776}};
    for (const Unit& known : kUnits) {
        if (unit != nullptr && std::strcmp(unit, known.name) == 0) {
            return known.multiplier;
        }
    }
    return 0;
}

void lower_case_names(SessionMailData& data) {
    lower_case(data.domain_name);
    lower_case_all(data.domain_aliases);
    for (SessionMail& mail : data.mails) {
        lower_case(mail.name);
        lower_case_all(mail.aliases);
    }
    for (SessionCertificate& certificate : data.certificates) {
        lower_case(certificate.name);
    }
}

bool quota_in_bytes(std::int64_t quota, const char* unit, std::int64_t& bytes) {
    std::int64_t product = 0;
    if (__builtin_mul_overflow(quota, quota_unit_multiplier(unit), &product))
        return false;
    bytes = product;
    return true;
}

bool convert_quotas_to_bytes(SessionMailData& data) {
    for (SessionMail& mail : data.mails) {
        if (mail.mbox_quota <= 0) {
            continue;
        }
        std::int64_t bytes = 0;
        if (!quota_in_bytes(mail.mbox_quota, mail.mbox_quota_unit, bytes)) {
            log_message(3, "Mailbox quota of '%s' is too large: %ld %s is more bytes than a quota can hold",
                        mail.name != nullptr ? mail.name : "", static_cast<long>(mail.mbox_quota),
                        mail.mbox_quota_unit != nullptr ? mail.mbox_quota_unit : "B");
            return false;
        }
        mail.mbox_quota = bytes;
    }
    return true;
}

bool normalize_read_mail_data(SessionMailData& data) {
    lower_case_names(data);
    return convert_quotas_to_bytes(data);
}

}  // namespace crelm::mail
