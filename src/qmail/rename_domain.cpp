// Renaming a mail domain everywhere the mail system knows it: its directory,
// the control files and assign, the authentication store, rejectnonexist,
// the key directory and the handlers.
#include "mailbox/domain_keys.h"
#include "qmail/control_files.h"
#include "qmail/control_names.h"
#include "qmail/delivery.h"
#include "qmail/domain_rename_edits.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "stores/mail_auth_store.h"
#include "stores/mail_handlers_store.h"

using namespace crelm::qmail;

namespace {

bool move_handlers(const std::string& old_domain, const std::string& new_domain) {
    if (clone_domain_mail_handlers(old_domain, new_domain) != 0 || remove_domain_mail_handlers(old_domain) != 0) {
        report_failure("Unable to move domain handlers from %s to %s\n", old_domain.c_str(), new_domain.c_str());
        return false;
    }
    return true;
}

}  // namespace

int qmail_rename_domain(const std::string& old_name, const std::string& new_name) {
    const std::string old_domain = control_domain_name(old_name);
    const std::string new_domain = control_domain_name(new_name);
    if (rename_domain_dir(old_domain, new_domain) != 0) {
        return 1;
    }
    bool renamed = rename_domain_in_control_files(old_domain, new_domain);
    if (rename_mail_auth_domain(old_domain, new_domain) != 0) {
        return 1;
    }
    renamed = rename_domain_in_reject_list(old_domain, new_domain) && renamed;
    renamed = crelm::mail::dkim::renameDomainKeysReport(old_domain, new_domain) && renamed;
    renamed = move_handlers(old_domain, new_domain) && renamed;
    renamed = qmail_newu() == 0 && renamed;
    renamed = restart_qmail() == 0 && renamed;
    return renamed ? 0 : 1;
}
