#include "qmail/control_names.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "mailbox/mailnames_root.h"
#include "qmail/mail_owner.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "runtime/idn.h"
#include "runtime/system_users.h"

namespace crelm::qmail {
namespace {

std::string fit_record(std::string record) {
    if (record.size() >= kRecordBufferSize) {
        record.resize(kRecordBufferSize - 1);
    }
    return record;
}

std::string ids_text(const PopuserIds& ids) {
    return std::string(kMailOwner) + ":" + std::to_string(ids.uid) + ":" + std::to_string(ids.gid) + ":";
}

}  // namespace

std::string lower_ascii(std::string name) {
    for (char& c : name) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return name;
}

std::string control_domain_name(const std::string& domain) {
    const std::optional<std::string> ascii = idn_toascii(domain);
    if (!ascii) {
        report_fatal("idn_toascii() failed: %s", idn_status_text(idn_last_status()));
    }
    return lower_ascii(*ascii);
}

PopuserIds popuser_ids_or_die(const char* fatal_text) {
    const MailOwnerIds owner = mail_owner_ids();
    if (!owner.known()) {
        report_fatal("%s", fatal_text);
    }
    return PopuserIds{owner.uid, owner.gid};
}

std::string domain_assign_record(const std::string& domain, const PopuserIds& ids) {
    return fit_record("+" + domain + ":" + ids_text(ids) + crelm::mailbox::mailnames_root() + "/" + domain + ":::");
}

std::string mailname_assign_record(const std::string& key, const std::string& domain,
                                   const std::string& mailname, const PopuserIds& ids) {
    return fit_record(lower_ascii("=" + domain + "-" + key + mailname_assign_tail(domain, mailname, ids)));
}

std::string mailname_assign_tail(const std::string& domain, const std::string& mailname, const PopuserIds& ids) {
    return lower_ascii(":" + ids_text(ids) + crelm::mailbox::mailnames_root() + "/" + domain + "/" + mailname +
                       ":::");
}

std::string domain_home_prefix(const std::string& domain) {
    return crelm::mailbox::mailnames_root() + "/" + domain + "/";
}

int set_assign_mode() {
    if (::chmod(kUsersAssign, 0644) != 0) {
        report_failure("ERROR: unable to chmod %s: %s\n", kUsersAssign, std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace crelm::qmail
