#include "qmail/reject_list.h"

#include "qmail/mail_names.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "qmail/session_hooks.h"
#include "util/file_create.h"
#include "util/file_str.h"
#include "util/umask_scope.h"

namespace crelm::qmail {
namespace {

int ensure_reject_file() {
    const util::UmaskScope umask(022);
    if (create_file(kRejectNonExist) != 0) {
        log_error("set_reject: Unable to create %s file.", kRejectNonExist);
        return -1;
    }
    return 0;
}

int update_line(const std::string& domain, RejectSwitch state) {
    const int removed = file_str_one(kRejectNonExist, domain, LineAction::remove_exact, LinePosition::anywhere);
    const int added = state == RejectSwitch::on && removed == 0
                          ? file_str_one(kRejectNonExist, domain, LineAction::add, LinePosition::end)
                          : removed;
    if (added != 0) {
        log_error("set_reject: Unable to update %s file.", kRejectNonExist);
        return -1;
    }
    return 0;
}

}  // namespace

int set_reject_lines(const std::vector<std::string>& domains, RejectSwitch state) {
    if (ensure_reject_file() != 0)
        return -1;
    int result = 0;
    for (const std::string& domain : domains) {
        const std::optional<std::string> ascii = ascii_domain(domain);
        if (!ascii || update_line(*ascii, state) != 0)
            result = -1;
    }
    return result;
}

std::optional<std::vector<std::string>> domain_with_aliases(const std::string& domain) {
    NameList aliases;
    if (qmail_session_hooks().domain_aliases(domain, aliases) != 0)
        return std::nullopt;
    std::vector<std::string> domains{domain};
    if (aliases)
        domains.insert(domains.end(), aliases->begin(), aliases->end());
    return domains;
}

int clear_reject_for(const std::string& domain, RejectCleanup cleanup) {
    if (cleanup == RejectCleanup::domain_only)
        return set_reject_lines({domain}, RejectSwitch::off);
    return set_reject(domain, RejectSwitch::off);
}

}  // namespace crelm::qmail

int set_reject(const std::string& domain, RejectSwitch state) {
    const std::optional<std::vector<std::string>> domains = crelm::qmail::domain_with_aliases(domain);
    if (!domains)
        return -1;
    return crelm::qmail::set_reject_lines(*domains, state);
}
