// What a server must have before sorvane can work on it: the mail owner and
// its group, the stores' group, qmail's programs and directories, the
// reload's killall, the panel's service helper, a sound runtime
// configuration and the stores' directory. None of these is something a
// sorvane command makes, so each finding carries what a person runs or does
// instead of a repair command.
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "audit/checks.h"
#include "audit/text_file.h"
#include "qmail/paths.h"
#include "runtime/qvt_conf.h"

namespace crelm::audit {

namespace {

constexpr const char* kMailOwner = "popuser";
constexpr const char* kStoreGroup = "nofiles";
constexpr const char* kKillall = "/usr/bin/killall";
constexpr const char* kServiceHelper = "/opt/qvt/admin/sbin/crelmrc";
constexpr const char* kStoresDir = "/var/lib/crelm/mail";

void add_for_a_person(const AuditContext& context, Severity severity, std::string code, std::string object,
                      std::string detail, std::string fix) {
    Finding finding;
    finding.severity = severity;
    finding.code = std::move(code);
    finding.object = std::move(object);
    finding.detail = std::move(detail);
    finding.person_fix = std::move(fix);
    context.findings.add(std::move(finding));
}

// stat without following a link at the last component: a program or
// directory that is a link is judged by what it is, not by its target.
bool status_of(const std::string& path, struct stat& info) { return ::lstat(path.c_str(), &info) == 0; }

bool is_executable_file(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    return (info.st_mode & 0111) != 0;
}

bool is_directory(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

void check_accounts(const AuditContext& context) {
    const bool group_known = ::getgrnam(kMailOwner) != nullptr;
    if (!group_known)
        add_for_a_person(context, Severity::error, "server-mail-group-missing", kMailOwner,
                         "the mail owner's group popuser does not exist: mail names' files cannot get their group",
                         "groupadd -r popuser");
    if (::getpwnam(kMailOwner) == nullptr)
        add_for_a_person(context, Severity::error, "server-mail-user-missing", kMailOwner,
                         "the mail owner popuser does not exist: no mail name can be added",
                         std::string(group_known ? "" : "groupadd -r popuser && ") +
                             "useradd -r -g popuser -d /var/qmail/popuser -M -s /usr/sbin/nologin popuser");
    if (::getgrnam(kStoreGroup) == nullptr)
        add_for_a_person(context, Severity::error, "server-store-group-missing", kStoreGroup,
                         "the group nofiles does not exist: the authentication store cannot be made readable "
                         "to the mail server only",
                         "groupadd -r nofiles");
}

void check_programs(const AuditContext& context) {
    if (!is_executable_file(qmail::kQmailNewu))
        add_for_a_person(context, Severity::error, "server-qmail-program-missing", qmail::kQmailNewu,
                         "qmail's table compiler is missing or not executable: no change of assign goes live",
                         "install qmail under /var/qmail (its installer puts qmail-newu in /var/qmail/bin)");
    if (!is_executable_file(kKillall))
        add_for_a_person(context, Severity::error, "server-reload-program-missing", kKillall,
                         "killall is missing or not executable: qmail-send is not told to reload its control files",
                         "apt-get install psmisc");
    if (!is_executable_file(kServiceHelper))
        add_for_a_person(context, Severity::error, "server-service-helper-missing", kServiceHelper,
                         "the panel's service helper is missing or not executable: qmail is not restarted after "
                         "a domain rename or a failed reload",
                         "install the panel's service helper at /opt/qvt/admin/sbin/crelmrc (sorvane runs it as "
                         "\"crelmrc qmail restart\")");
}

void check_directories(const AuditContext& context) {
    for (const std::string& directory : {std::string(qmail::kControlDir), std::string("/var/qmail/users"),
                                        context.server.mailnames_dir}) {
        if (!is_directory(directory))
            add_for_a_person(context, Severity::error, "server-qmail-directory-missing", directory,
                             "the directory is missing (or not a directory): the commands cannot keep its files",
                             "install -d -m 0755 " + directory);
    }
    if (!is_directory(kStoresDir))
        add_for_a_person(context, Severity::error, "server-store-directory-missing", kStoresDir,
                         "the stores' directory is missing (or not a directory): the three stores cannot be kept",
                         std::string("install -d -m 0755 ") + kStoresDir);
}

// The configuration tells root where to write (the mail names directory):
// it must be a regular file that only root can change. A missing file is
// fine (the defaults hold).
void check_configuration(const AuditContext& context) {
    const TextFile conf = read_text_file(kQvtConfPath);
    if (conf.state == FileState::missing)
        return;
    if (conf.state != FileState::present) {
        add_for_a_person(context, Severity::error, "server-config-unreadable", kQvtConfPath,
                         "the runtime configuration cannot be read (" + file_state_text(conf) +
                             "): every command falls back to the defaults",
                         std::string("make ") + kQvtConfPath +
                             " a regular file of NAME value lines readable by root, or remove it to use the "
                             "defaults");
        return;
    }
    struct stat info {};
    if (status_of(kQvtConfPath, info) && (info.st_uid != 0 || (info.st_mode & 022) != 0))
        add_for_a_person(context, Severity::error, "server-config-writable", kQvtConfPath,
                         "someone other than root can change the runtime configuration, and with it where "
                         "sorvane writes as root",
                         std::string("chown root:root ") + kQvtConfPath + " && chmod go-w " + kQvtConfPath);
}

}  // namespace

void check_readiness(const AuditContext& context) {
    check_accounts(context);
    check_programs(context);
    check_directories(context);
    check_configuration(context);
}

}  // namespace crelm::audit
