// The mail names of the domains in scope: each "=" record against the homes
// in its domain's directory, then each home that has its record, one at a
// time (memory stays linear in the number of mail names).
#include "audit/checks.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <unordered_map>

#include "audit/leftover_temporaries.h"
#include "audit/mail_home_check.h"
#include "audit/repair_commands.h"
#include "mailbox/directory_entries.h"
#include "mailbox/open_directory.h"
#include "util/unique_fd.h"

namespace crelm::audit {

namespace {

using AliasesByDomain = std::unordered_map<std::string, std::vector<const MailAliasFacts*>>;

// The directories in a domain's directory that are mail name homes, by
// name; anything else that is not a dot file and is not a directory (a
// link or a FIFO where a home would be) is reported. has_default tells
// whether the directory holds the domain's ".qmail-default".
std::set<std::string> list_homes(const AuditContext& context, const std::string& domain, util::UniqueFd& dir,
                                 bool& has_default) {
    std::set<std::string> homes;
    const std::string path = context.server.mailnames_dir + "/" + domain;
    dir = mailbox::open_directory(path);
    if (!dir.valid()) {
        if (errno != ENOENT && errno != ENOTDIR && errno != ELOOP)
            context.findings.add(Severity::error, "mailname-tree-unreadable", path, std::strerror(errno));
        return homes;  // a missing domain directory is a domain finding
    }
    mailbox::DirectoryEntries entries(dir.get());
    mailbox::DirectoryEntry entry;
    std::vector<std::string> temporaries;
    while (entries.next(entry)) {
        if (is_edit_temporary(entry.name, ".qmail-default"))
            temporaries.push_back(path + "/" + std::string(entry.name));
        has_default |= entry.name == ".qmail-default";
        if (entry.name.empty() || entry.name.front() == '.')
            continue;
        const std::string name(entry.name);
        struct stat info {};
        if (::fstatat(dir.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISDIR(info.st_mode))
            homes.insert(name);
        else if (S_ISLNK(info.st_mode))
            context.findings.add(Severity::warning, "mailname-tree-link", path + "/" + name,
                                 "a symbolic link where a mail name's home would be");
        else if (!S_ISREG(info.st_mode))
            context.findings.add(Severity::error, "mailname-tree-special", path + "/" + name,
                                 "a FIFO, device or socket where a mail name's home would be");
    }
    if (entries.error() != 0)
        context.findings.add(Severity::error, "mailname-tree-unreadable", path, std::strerror(entries.error()));
    report_edit_temporaries(context, temporaries);
    return homes;
}

void home_missing(const AuditContext& context, const MailNameSubject& subject) {
    // Without a home there is no mail to lose: the record is made whole
    // again (a killed --add-mailname leaves exactly this), unless a mailbox
    // was there, which a person has to give its password back.
    TextFile none;
    context.findings.add(Severity::error, "mailname-home-missing", subject.address,
                         "assign has its record but its home " + subject.home + " is missing",
                         add_mailname_repair(subject, none), RepairPhase::mail_names);
}

void record_missing(const AuditContext& context, const MailNameSubject& subject, int domain_fd) {
    // The home holds mail: the record comes back rather than the home going.
    const util::UniqueFd home = mailbox::open_directory_at(domain_fd, subject.name.c_str());
    TextFile dot_qmail;
    dot_qmail.state = FileState::unreadable;
    if (home.valid())
        dot_qmail = read_dot_qmail(home.get());
    context.findings.add(Severity::error, "mailname-record-missing", subject.address,
                         "the home " + subject.home +
                             " has no \"=\" record in assign: its mail goes to the domain's default",
                         add_mailname_repair(subject, dot_qmail), RepairPhase::mail_names);
}

void alias_home_missing(const AuditContext& context, const MailAliasFacts& alias, const MailStoreIndex& index) {
    const MailNameSubject owner = mail_name_subject(context.server, index, alias.domain, alias.mail_name);
    std::vector<std::vector<std::string>> repairs;
    if (context.model.mail_names.count({alias.domain, alias.mail_name}) != 0) {
        TextFile none;
        repairs = add_mailname_repair(owner, none);
    } else {
        repairs = {remove_alias(context.model, alias.domain, alias.mail_name, alias.alias)};
    }
    context.findings.add(Severity::error, "mail-alias-home-missing", alias.alias + "@" + alias.domain,
                         "assign delivers it to " + owner.home + ", which is missing", repairs,
                         RepairPhase::mail_aliases);
}

// An enabled domain answers mail for unknown names through its
// ".qmail-default" (a bounce or a catch-all) unless rejectnonexist refuses
// them; without it qmail answers with its own bounce instead (a killed
// --add-domain leaves exactly this). Turning the domain on again writes it.
void check_domain_default(const AuditContext& context, const std::string& domain, bool has_default) {
    const auto facts = context.model.domains.find(domain);
    if (has_default || facts == context.model.domains.end() || !facts->second.enabled() ||
        facts->second.in_rejectnonexist)
        return;
    context.findings.add(Severity::warning, "domain-missing-default", domain,
                         "the domain is enabled but " + context.server.mailnames_dir + "/" + domain +
                             " has no .qmail-default, so mail to unknown names gets qmail's own bounce",
                         {turn_on_domain(context.server, context.model, domain)}, RepairPhase::domains);
}

void check_domain(const AuditContext& context, const MailStoreIndex& index, const AliasesByDomain& aliases,
                  const std::string& domain) {
    util::UniqueFd dir;
    bool has_default = false;
    const std::set<std::string> homes = list_homes(context, domain, dir, has_default);
    if (dir.valid())
        check_domain_default(context, domain, has_default);
    const auto& names = context.model.mail_names;
    for (auto found = names.lower_bound({domain, std::string()}); found != names.end() && found->first.first == domain;
         ++found) {
        const MailNameSubject subject = mail_name_subject(context.server, index, domain, found->first.second);
        if (homes.count(subject.name) == 0) {
            home_missing(context, subject);
            continue;
        }
        const util::UniqueFd home = mailbox::open_directory_at(dir.get(), subject.name.c_str());
        if (!home.valid()) {
            if (errno != ENOENT)
                context.findings.add(Severity::error, "mailname-tree-unreadable", subject.home, std::strerror(errno));
            continue;
        }
        check_mail_home(context, subject, home.get());
    }
    for (const std::string& name : homes)
        if (names.count({domain, name}) == 0)
            record_missing(context, mail_name_subject(context.server, index, domain, name), dir.get());
    const auto domain_aliases = aliases.find(domain);
    if (domain_aliases == aliases.end())
        return;
    for (const MailAliasFacts* alias : domain_aliases->second)
        if (homes.count(alias->mail_name) == 0)
            alias_home_missing(context, *alias, index);
}

}  // namespace

void check_mail_names(const AuditContext& context) {
    // Behind a link at the mail names directory that the audit does not
    // follow nothing is read: the link is the finding (root-link-unsafe).
    if (context.server.mailnames_dir_state.state == FileState::link)
        return;
    const ServerModel& model = context.model;
    std::set<std::string> domains;
    for (const auto& [domain, facts] : model.domains)
        if (context.scope.covers(domain))
            domains.insert(domain);
    for (const auto& [key, facts] : model.mail_names)
        if (context.scope.covers(key.first))
            domains.insert(key.first);
    AliasesByDomain aliases;
    for (const MailAliasFacts& alias : model.mail_aliases)
        if (context.scope.covers(alias.domain)) {
            aliases[alias.domain].push_back(&alias);
            domains.insert(alias.domain);
        }
    const MailStoreIndex index = index_mail_stores(context.server.stores);
    for (const std::string& domain : domains)
        check_domain(context, index, aliases, domain);
}

}  // namespace crelm::audit
