#include "audit/server_snapshot.h"

#include <fcntl.h>

#include <algorithm>

#include "audit/host_names.h"
#include "mailbox/mailnames_root.h"
#include "qmail/mail_owner.h"
#include "qmail/paths.h"
#include "util/walk_steps.h"

namespace crelm::audit {

namespace {

LineFile read_line_file(const char* path) {
    LineFile lines;
    lines.path = path;
    lines.file = read_text_file(path);
    for (std::string_view line : text_lines(lines.file.text))
        lines.lines.emplace_back(line);
    return lines;
}

void read_domain_dirs(ServerSnapshot& server) {
    util::UniqueFd root = open_root_directory(server.mailnames_dir);
    if (!root.valid()) {
        server.mailnames_dir_state.error = errno;
        server.mailnames_dir_state.state = errno == ENOENT                     ? FileState::missing
                                           : errno == ELOOP || errno == ENOTDIR ? FileState::link
                                                            : FileState::unreadable;
        return;
    }
    server.mailnames_dir_state.state = FileState::present;
    ::fstat(root.get(), &server.mailnames_dir_state.info);
    std::vector<std::string> names;
    util::read_directory_names(root.get(), names);
    for (std::string& name : names) {
        struct stat info {};
        if (name[0] == '.' || ::fstatat(root.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISDIR(info.st_mode))
            server.domain_dirs.push_back(std::move(name));
    }
    std::sort(server.domain_dirs.begin(), server.domain_dirs.end());
}

std::string directory_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string("/") : path.substr(0, slash);
}

// The configured roots, each once, in the order they are named.
void read_root_links(ServerSnapshot& server) {
    const std::vector<std::string> roots{"/var/qmail",
                                         qmail::kControlDir,
                                         directory_of(qmail::kUsersAssign),
                                         server.mailnames_dir,
                                         directory_of(server.stores.auth.path),
                                         directory_of(server.stores.handlers.path),
                                         directory_of(server.stores.quota.path)};
    std::vector<std::string> seen;
    for (const std::string& root : roots) {
        if (std::find(seen.begin(), seen.end(), root) != seen.end())
            continue;
        seen.push_back(root);
        if (std::optional<RootLink> link = read_root_link(root))
            server.root_links.push_back(std::move(*link));
    }
}

}  // namespace

ServerSnapshot read_server() {
    ServerSnapshot server;
    server.mailnames_dir = mailbox::mailnames_root();
    const qmail::MailOwnerIds owner = qmail::mail_owner_ids();
    server.popuser_uid = owner.uid;
    server.popuser_gid = owner.gid;

    server.rcpthosts = read_line_file(qmail::kRcptHosts);
    server.virtualdomains = read_line_file(qmail::kVirtualDomains);
    server.locals = read_line_file(qmail::kLocals);
    server.rejectnonexist = read_line_file(qmail::kRejectNonExist);
    server.assign_file = read_text_file(qmail::kUsersAssign);
    server.assign = parse_assign(server.assign_file.text);
    server.cdb_exists = ::lstat("/var/qmail/users/cdb", &server.cdb_info) == 0;

    server.stores = read_store_rows();
    read_root_links(server);
    read_domain_dirs(server);
    read_host_names(server);
    return server;
}

}  // namespace crelm::audit
