#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "audit/checks.h"
#include "audit/repair_commands.h"
#include "audit/store_checks.h"
#include "mailbox/domain_keys.h"
#include "util/unique_fd.h"
#include "util/walk_steps.h"

namespace crelm::audit {

namespace {

// The names under the key base, sorted; the base itself is never followed
// when it is a link, and a missing base holds no key directory.
bool key_dir_names(const std::string& base, int& base_fd, std::vector<std::string>& names, std::string& failure) {
    base_fd = ::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (base_fd < 0) {
        if (errno == ENOENT)
            return true;
        failure = std::strerror(errno);
        return false;
    }
    if (!util::read_directory_names(base_fd, names)) {
        failure = std::strerror(errno);
        return false;
    }
    std::sort(names.begin(), names.end());
    return true;
}

void check_key_entry(const AuditContext& context, int base_fd, const std::string& base, const std::string& name) {
    struct stat info {};
    if (::fstatat(base_fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return;  // gone since it was listed
    const std::string path = base + "/" + name;
    if (!S_ISDIR(info.st_mode)) {
        context.findings.add(Severity::warning, "domain-key-not-directory", path,
                             S_ISLNK(info.st_mode) ? "a symbolic link where a domain's key directory belongs"
                                                   : "not a directory where a domain's key directory belongs");
        return;
    }
    if (!known_only_to_store(context.model, name))
        return;
    context.findings.add(Severity::notice, "domain-key-unknown-domain", path,
                         "the key directory of " + name + ", which is neither hosted nor a domain alias",
                         {with_session(remove_domain(context.model, name))}, RepairPhase::domains);
}

}  // namespace

void check_domain_keys(const AuditContext& context) {
    const std::string base = mail::dkim::domain_keys_base().string();
    int fd = -1;
    std::vector<std::string> names;
    std::string failure;
    const bool listed = key_dir_names(base, fd, names, failure);
    const util::UniqueFd base_fd(fd);
    if (!listed) {
        if (context.scope.whole_server())
            context.findings.add(Severity::error, "domain-key-base-unreadable", base, failure);
        return;
    }
    for (const std::string& name : names)
        if (context.scope.covers(name))
            check_key_entry(context, base_fd.get(), base, name);
}

}  // namespace crelm::audit
