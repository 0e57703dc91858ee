#include "audit/mail_home_check.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "audit/leftover_temporaries.h"
#include "audit/mail_home_walk.h"
#include "audit/mail_quota.h"
#include "audit/repair_commands.h"
#include "mailbox/open_directory.h"
#include "qmail/delivery.h"
#include "qmail/mailname_tree.h"

namespace crelm::audit {

namespace {

constexpr off_t kDotQmailLimit = 1 << 20;
// Delivery agents rewrite a "maildirsize" long before it grows to this.
constexpr off_t kMaildirsizeLimit = 64 * 1024;
constexpr std::string_view kTrueOnly = "| true\n";
// How many entries a tree finding names before it only counts the rest.
constexpr std::size_t kNamedEntries = 4;

using Repairs = std::vector<std::vector<std::string>>;

// The directories of the tree, then the folder markers, as sorvane makes
// them.
const std::vector<std::string>& tree_paths() {
    static const std::vector<std::string> paths = [] {
        std::vector<std::string> all;
        for (const qmail::MailnameTreeEntry& entry : qmail::kMailnameTree)
            all.emplace_back(entry.directory);
        for (const qmail::MailnameTreeEntry& entry : qmail::kMailnameTree)
            if (entry.folder_marker != nullptr)
                all.emplace_back(entry.folder_marker);
        return all;
    }();
    return paths;
}

std::string mode_text(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

std::string owner_text(const struct stat& info) {
    return std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid) + " " + mode_text(info.st_mode);
}

bool popusers(const ServerSnapshot& server, const struct stat& info) {
    return info.st_uid == server.popuser_uid && info.st_gid == server.popuser_gid;
}

// Names the first few entries and counts the rest.
std::string entry_list(const std::vector<std::string>& entries) {
    std::string text;
    for (std::size_t i = 0; i < entries.size() && i < kNamedEntries; ++i)
        text += (i == 0 ? "" : ", ") + entries[i];
    if (entries.size() > kNamedEntries)
        text += " and " + std::to_string(entries.size() - kNamedEntries) + " more";
    return text;
}

bool has_delivery_line(const std::string& text) {
    const std::vector<std::string>& known = known_delivery_lines();
    for (const std::string_view line : text_lines(text))
        if (std::find(known.begin(), known.end(), line) != known.end())
            return true;
    return false;
}

void check_tree(const AuditContext& context, const MailNameSubject& subject, const struct stat& home_info,
                const HomeWalk& walk, const Repairs& repair) {
    const ServerSnapshot& server = context.server;
    std::vector<std::string> missing;
    std::vector<std::string> owners;
    // --add-mailname makes a missing entry but does not replace another
    // kind of file at its name.
    bool replaced = false;
    if (!popusers(server, home_info) || (home_info.st_mode & 07777) != qmail::kMailnameDirMode)
        owners.push_back(". (" + owner_text(home_info) + ")");
    const std::vector<std::string>& paths = tree_paths();
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const bool directory = i < qmail::kMailnameTree.size();
        const std::optional<struct stat>& found = walk.watched[i];
        if (!found || (directory ? !S_ISDIR(found->st_mode) : !S_ISREG(found->st_mode))) {
            replaced = replaced || found;
            missing.push_back(paths[i]);
            continue;
        }
        const mode_t mode = directory ? qmail::kMailnameDirMode : qmail::kMailnameFileMode;
        if (!popusers(server, *found) || (found->st_mode & 07777) != mode)
            owners.push_back(paths[i] + " (" + owner_text(*found) + ")");
    }
    if (!missing.empty())
        context.findings.add(Severity::error, "mailname-tree-incomplete", subject.address,
                             "the Maildir++ tree lacks " + entry_list(missing), replaced ? Repairs{} : repair,
                             RepairPhase::mail_names);
    if (!owners.empty())
        context.findings.add(Severity::error, "mailname-tree-owner", subject.address,
                             "not popuser's with mode 0700 (0600 for folder markers): " + entry_list(owners), repair,
                             RepairPhase::mail_names);
}

void check_dot_qmail(const AuditContext& context, const MailNameSubject& subject, const TextFile& dot_qmail,
                     const Repairs& repair) {
    const std::string path = subject.home + "/.qmail";
    switch (dot_qmail.state) {
    case FileState::missing:
        context.findings.add(Severity::error, "mailname-dot-qmail-missing", subject.address,
                             "no " + path + ": qmail delivers its mail by the server's default", repair,
                             RepairPhase::mail_names);
        return;
    case FileState::link:
    case FileState::not_regular:
        return;  // the walk of the home reports it
    case FileState::too_large:
    case FileState::unreadable:
        context.findings.add(Severity::error, "mailname-dot-qmail-unreadable", subject.address,
                             path + ": " + file_state_text(dot_qmail));
        return;
    case FileState::present:
        break;
    }
    if (!popusers(context.server, dot_qmail.info))
        context.findings.add(Severity::error, "mailname-dot-qmail-owner", subject.address,
                             path + " is " + owner_text(dot_qmail.info) + ", not popuser's", repair,
                             RepairPhase::mail_names);
    if ((dot_qmail.info.st_mode & 022) != 0)
        context.findings.add(Severity::error, "mailname-dot-qmail-writable", subject.address,
                             path + " has mode " + mode_text(dot_qmail.info.st_mode) +
                                 ": qmail defers all its mail while group or others may write it",
                             repair, RepairPhase::mail_names);
    const bool delivers = has_delivery_line(dot_qmail.text);
    if (!subject.auth_rows_read)
        return;
    if (delivers && !subject.auth_row)
        context.findings.add(Severity::error, "mailbox-login-missing", subject.address,
                             ".qmail delivers to the mailbox but the authentication store has no row for it: "
                             "nobody can read its mail (--add-mailbox with its password repairs it)");
    if (!delivers && subject.auth_row)
        context.findings.add(Severity::error, "mailbox-delivery-missing", subject.address,
                             "the authentication store has a row for it but .qmail has no delivery line: its mail "
                             "is discarded (--add-mailbox with its password repairs it)");
}

void check_maildirsize(const AuditContext& context, const MailNameSubject& subject, int home_fd,
                       const HomeWalk& walk) {
    const util::UniqueFd maildir = mailbox::open_directory_at(home_fd, "Maildir");
    if (!maildir.valid())
        return;  // the tree check reports it
    if (!subject.quota_rows_read)
        return;
    const TextFile file = read_text_file_at(maildir.get(), "maildirsize", kMaildirsizeLimit);
    const std::string path = subject.home + "/Maildir/maildirsize";
    // A row of 0 bytes is written back as no limit, never as a quota that
    // refuses all mail.
    const std::int64_t quota = subject.stored_quota.value_or(-1) > 0 ? *subject.stored_quota : -1;
    const Repairs repair{set_mailbox_disk_quota(subject.domain, subject.name, quota)};
    switch (file.state) {
    case FileState::missing:
        // sorvane writes the file with every quota above 0; without it the
        // delivery agent enforces none.
        if (subject.stored_quota.value_or(0) > 0)
            context.findings.add(Severity::error, "mailbox-maildirsize-missing", subject.address,
                                 path + " is missing: the quota of " + std::to_string(*subject.stored_quota) +
                                     " bytes is not enforced",
                                 repair, RepairPhase::quotas);
        return;
    case FileState::link:
        return;  // a link, which the walk reports
    case FileState::not_regular:
        // A FIFO or device the walk reports; a directory no command
        // replaces.
        if (S_ISDIR(file.info.st_mode))
            context.findings.add(Severity::error, "mailbox-maildirsize-unreadable", subject.address,
                                 path + ": " + file_state_text(file));
        return;
    case FileState::too_large:
    case FileState::unreadable:
        context.findings.add(Severity::warning, "mailbox-maildirsize-unreadable", subject.address,
                             path + ": " + file_state_text(file), repair, RepairPhase::quotas);
        return;
    case FileState::present:
        break;
    }
    if (!popusers(context.server, file.info) || (file.info.st_mode & 0600) != 0600 || (file.info.st_mode & 022) != 0)
        context.findings.add(Severity::error, "mailbox-maildirsize-owner", subject.address,
                             path + " is " + owner_text(file.info) +
                                 ": the delivery agent (popuser) must read and write it, nobody else write it",
                             repair, RepairPhase::quotas);
    const std::vector<std::string_view> lines = text_lines(file.text);
    const std::optional<long long> storage =
        lines.empty() ? std::nullopt : maildirsize_storage_quota(lines.front());
    if (!storage) {
        context.findings.add(Severity::error, "mailbox-maildirsize-corrupt", subject.address,
                             path + " does not start with a quota header", repair, RepairPhase::quotas);
        return;
    }
    if (!quota_in_step(*storage, subject.stored_quota, walk.attachments_bytes)) {
        const auto row = subject.stored_quota ? std::to_string(*subject.stored_quota) + " bytes" : "no row";
        context.findings.add(Severity::error, "mailbox-quota-differs", subject.address,
                             "maildirsize holds a quota of " + std::to_string(*storage) +
                                 " bytes, the quota store " + row,
                             repair, RepairPhase::quotas);
    }
}

void check_unsafe(const AuditContext& context, const MailNameSubject& subject, const HomeWalk& walk) {
    for (const UnsafeEntry& entry : walk.unsafe) {
        const std::string path = subject.home + "/" + entry.path;
        switch (entry.kind) {
        case UnsafeKind::link:
            context.findings.add(Severity::warning, "mailname-tree-link", path,
                                 "a symbolic link in the mail tree of " + subject.address);
            break;
        case UnsafeKind::special:
            context.findings.add(Severity::error, "mailname-tree-special", path,
                                 "a FIFO, device or socket in the mail tree of " + subject.address);
            break;
        case UnsafeKind::hard_link:
            context.findings.add(Severity::error, "mailname-tree-hard-link", path,
                                 "a file with other names (hard links) in the mail tree of " + subject.address);
            break;
        }
    }
    if (walk.unsafe_count > walk.unsafe.size())
        context.findings.add(Severity::error, "mailname-tree-unsafe-more", subject.home,
                             std::to_string(walk.unsafe_count - walk.unsafe.size()) +
                                 " more links, FIFOs, devices, sockets or hard-linked files in the mail tree of " +
                                 subject.address);
    if (!walk.failure.empty())
        context.findings.add(Severity::error, "mailname-tree-unreadable", subject.home,
                             "the mail tree could not be read whole: " + walk.failure);
}

}  // namespace

MailStoreIndex index_mail_stores(const StoreRows& stores) {
    MailStoreIndex index;
    index.auth.reserve(stores.auth_users.size());
    for (const AuthUserRow& row : stores.auth_users)
        if (!row.domain.empty())
            index.auth.insert(row.name + "@" + row.domain);
    index.quotas.reserve(stores.quotas.size());
    for (const QuotaRow& row : stores.quotas)
        index.quotas.emplace(row.mailbox + "@" + row.domain, &row);
    return index;
}

MailNameSubject mail_name_subject(const ServerSnapshot& server, const MailStoreIndex& index,
                                  const std::string& domain, const std::string& name) {
    MailNameSubject subject;
    subject.domain = domain;
    subject.name = name;
    subject.address = name + "@" + domain;
    subject.home = server.mailnames_dir + "/" + domain + "/" + name;
    subject.auth_row = index.auth.count(subject.address) != 0;
    subject.auth_rows_read = server.stores.auth.failure.empty();
    subject.quota_rows_read = server.stores.quota.failure.empty();
    const auto quota = index.quotas.find(subject.address);
    if (quota != index.quotas.end())
        subject.stored_quota = stored_quota_bytes(quota->second->quota);
    return subject;
}

Repairs add_mailname_repair(const MailNameSubject& subject, const TextFile& dot_qmail) {
    const bool no_mailbox = dot_qmail.state == FileState::present ? dot_qmail.text == kTrueOnly
                                                                  : dot_qmail.state == FileState::missing &&
                                                                        !subject.auth_row;
    if (!no_mailbox)
        return {};
    return {add_mailname_keeping_quota(subject.domain, subject.name, subject.stored_quota.value_or(-1))};
}

TextFile read_dot_qmail(int home_fd) { return read_text_file_at(home_fd, ".qmail", kDotQmailLimit); }

void check_mail_home(const AuditContext& context, const MailNameSubject& subject, int home_fd) {
    struct stat home_info {};
    if (::fstat(home_fd, &home_info) != 0) {
        context.findings.add(Severity::error, "mailname-tree-unreadable", subject.home, std::strerror(errno));
        return;
    }
    const TextFile dot_qmail = read_dot_qmail(home_fd);
    const Repairs repair = add_mailname_repair(subject, dot_qmail);
    const HomeWalk walk = walk_home(home_fd, tree_paths());
    check_tree(context, subject, home_info, walk, repair);
    check_dot_qmail(context, subject, dot_qmail, repair);
    std::vector<std::string> temporaries;
    for (const std::string& name : walk.temporaries)
        temporaries.push_back(subject.home + "/" + name);
    report_edit_temporaries(context, temporaries);
    check_maildirsize(context, subject, home_fd, walk);
    check_unsafe(context, subject, walk);
}

}  // namespace crelm::audit
