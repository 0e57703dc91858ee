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

void convert_quotas_to_bytes(SessionMailData& data) {
    for (SessionMail& mail : data.mails) {
        if (mail.mbox_quota <= 0) {
            continue;
        }
        // Wrapping, not undefined: a product that overflows is reported below.
        const auto product = static_cast<std::uint64_t>(mail.mbox_quota) *
                             static_cast<std::uint64_t>(quota_unit_multiplier(mail.mbox_quota_unit));
        mail.mbox_quota = static_cast<std::int64_t>(product);
        if (mail.mbox_quota < -1) {
            log_message(4, "Resulting quota value in session mail DB info is not valid: got %ld, source size unit was '%s'",
                        static_cast<long>(mail.mbox_quota), mail.mbox_quota_unit);
        }
    }
}

void normalize_read_mail_data(SessionMailData& data) {
    lower_case_names(data);
    convert_quotas_to_bytes(data);
}

}  // namespace crelm::mail
