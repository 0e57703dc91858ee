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

#include <sys/stat.h>

using namespace crelm::qmail;

namespace {

// An earlier run of the same rename that ended after moving the directory
// (killed, or its machine lost power) leaves the new directory in place and
// no old one. The directory is renamed only if it exists, so the refusal is
// still reported and still makes the result 1, but the later steps, each of
// which finds its own work done or still to do, finish what that run began:
// otherwise the control files would keep pointing at a directory that is no
// longer there and no later run could ever put them right.
bool moved_by_earlier_run(const std::string& old_domain, const std::string& new_domain) {
    const std::string old_path = domain_dir_path(old_domain);
    const std::string new_path = domain_dir_path(new_domain);
    struct stat info {};
    if (old_path.empty() || new_path.empty() || ::lstat(old_path.c_str(), &info) == 0)
        return false;
    return ::lstat(new_path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

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
    bool renamed = rename_domain_dir(old_domain, new_domain) == 0;
    if (!renamed && !moved_by_earlier_run(old_domain, new_domain))
        return 1;
    renamed = rename_domain_in_control_files(old_domain, new_domain) && renamed;
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
