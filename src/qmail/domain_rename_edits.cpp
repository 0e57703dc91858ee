#include "qmail/domain_rename_edits.h"

#include <strings.h>
#include <unistd.h>

#include <optional>

#include "mailbox/mailnames_root.h"
#include "qmail/assign_domain_rewrite.h"
#include "qmail/control_line_rewrites.h"
#include "qmail/paths.h"
#include "runtime/host_fqdn.h"
#include "util/line_edit.h"
#include "util/owner_mode.h"

namespace crelm::qmail {
namespace {

// The host's own name holds at most 64 characters.
constexpr std::size_t kHostNameBufferSize = 65;

std::optional<std::string> host_name() {
    char buffer[kHostNameBufferSize] = {};
    if (detect_host_fqdn(buffer, sizeof buffer) != 0) {
        return std::nullopt;
    }
    return std::string(buffer);
}

bool is_host(const std::optional<std::string>& host, const std::string& domain) {
    return host && ::strcasecmp(host->c_str(), domain.c_str()) == 0;
}

// One pass over the file; the control files and assign belong to root and
// are readable by everyone.
bool edit(const char* path, const crelm::util::LineRewrite& rewrite, bool root_owned) {
    const bool edited = edit_lines_locked(path, rewrite) == 0;
    if (root_owned) {
        set_owner_mode_if_exists(path, 0, 0, 0644);
    }
    return edited;
}

// rcpthosts follows the rename. The host's own name must stay accepted
// and local: when it is the old name it is put back; when it is the new
// name its old lines go first, so that it does not end up there twice.
bool rename_in_rcpthosts_and_locals(const std::string& old_domain, const std::string& new_domain) {
    const std::optional<std::string> host = host_name();
    bool edited = true;
    if (is_host(host, new_domain)) {
        edited = edit(kRcptHosts, drop_line(new_domain), true) && edited;
        edited = edit(kLocals, drop_line(new_domain), false) && edited;
    }
    edited = edit(kRcptHosts, rename_whole_line(old_domain, new_domain), true) && edited;
    if (is_host(host, old_domain)) {
        edited = edit(kRcptHosts, append_line(old_domain), true) && edited;
        edited = edit(kLocals, append_line(old_domain), false) && edited;
    }
    return edited;
}

bool rename_in_virtualdomains(const std::string& old_domain, const std::string& new_domain) {
    return edit(kVirtualDomains, rename_virtual_domain(old_domain, new_domain), true);
}

// The domain's own records: those whose key is exactly "<old>-<name>" (or the
// "+<old>" record) and whose home is exactly in the old domain's directory.
bool rename_in_assign(const std::string& old_domain, const std::string& new_domain) {
    return edit(kUsersAssign, rename_assign_domain(old_domain, new_domain, crelm::mailbox::mailnames_root()), true);
}

}  // namespace

bool rename_domain_in_control_files(const std::string& old_domain, const std::string& new_domain) {
    bool renamed = rename_in_rcpthosts_and_locals(old_domain, new_domain);
    renamed = rename_in_virtualdomains(old_domain, new_domain) && renamed;
    return rename_in_assign(old_domain, new_domain) && renamed;
}

bool rename_domain_in_reject_list(const std::string& old_domain, const std::string& new_domain) {
    if (::access(kRejectNonExist, F_OK) != 0) {
        return true;
    }
    return edit(kRejectNonExist, rename_whole_line(old_domain, new_domain), true);
}

}  // namespace crelm::qmail
