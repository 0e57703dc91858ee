#include "qmail/domain_rename_edits.h"

#include <strings.h>
#include <unistd.h>

#include <optional>
#include <vector>

#include "mailbox/mailnames_root.h"
#include "qmail/paths.h"
#include "qmail/sed_literal.h"
#include "runtime/host_fqdn.h"
#include "util/owner_mode.h"
#include "util/sed_edit.h"

namespace crelm::qmail {
namespace {

using Scripts = std::vector<std::string>;

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

// One sed pass with every script of the file; the control files and assign
// belong to root and are readable by everyone.
bool edit(const char* path, const Scripts& scripts, bool root_owned) {
    std::vector<std::string> args;
    for (const std::string& script : scripts) {
        args.push_back("-e");
        args.push_back(script);
    }
    const bool edited = run_sed_on_file(args, path) == 0;
    if (root_owned) {
        set_owner_mode_if_exists(path, 0, 0, 0644);
    }
    return edited;
}

std::string delete_line_script(const std::string& line) {
    return "/^" + sed_pattern_literal(line, '/') + "$/d";
}

std::string append_line_script(const std::string& line) {
    return "$ a\\" + sed_append_literal(line);
}

// rcpthosts follows the rename. The host's own name must stay accepted
// and local: when it is the old name it is put back; when it is the new
// name its old lines go first, so that it does not end up there twice.
bool rename_in_rcpthosts_and_locals(const std::string& old_domain, const std::string& new_domain) {
    const std::optional<std::string> host = host_name();
    const std::string rename = sed_substitute(old_domain, new_domain, Anchor::whole);
    bool edited = true;
    if (is_host(host, new_domain)) {
        edited = edit(kRcptHosts, {delete_line_script(new_domain)}, true) && edited;
        edited = edit(kLocals, {delete_line_script(new_domain)}, false) && edited;
    }
    edited = edit(kRcptHosts, {rename}, true) && edited;
    if (is_host(host, old_domain)) {
        edited = edit(kRcptHosts, {append_line_script(old_domain)}, true) && edited;
        edited = edit(kLocals, {append_line_script(old_domain)}, false) && edited;
    }
    return edited;
}

bool rename_in_virtualdomains(const std::string& old_domain, const std::string& new_domain) {
    return edit(kVirtualDomains,
                {sed_substitute(old_domain + ":", new_domain + ":", Anchor::start),
                 sed_substitute(":" + old_domain, ":" + new_domain, Anchor::end)},
                true);
}

// A "=" record "=<old>-<name>:<user>:<uid>:<gid>:<mailnames>/<old>/...:<dash>:<ext>:"
// gets the new name in its key and its home; every other field stays.
std::string mailname_records_script(const std::string& old_domain, const std::string& new_domain) {
    const std::string root = crelm::mailbox::mailnames_root();
    return "s|^=" + sed_pattern_literal(old_domain, '|') + "-\\([^:]*:[^:]*:[^:]*:[^:]*:\\)" +
           sed_pattern_literal(root + "/" + old_domain + "/", '|') + "\\([^:]*:[^:]*:[^:]*:\\)$|=" +
           sed_replacement_literal(new_domain, '|') + "-\\1" + sed_replacement_literal(root + "/" + new_domain + "/", '|') +
           "\\2|";
}

// The "+" record "+<old>:<user>:<uid>:<gid>:<mailnames>/<old>:<dash>:<ext>:".
std::string domain_record_script(const std::string& old_domain, const std::string& new_domain) {
    const std::string root = crelm::mailbox::mailnames_root();
    return "s|^+" + sed_pattern_literal(old_domain, '|') + ":\\([^:]*:[^:]*:[^:]*:\\)" +
           sed_pattern_literal(root + "/" + old_domain, '|') + "\\(:[^:]*:[^:]*:\\)$|+" +
           sed_replacement_literal(new_domain, '|') + ":\\1" + sed_replacement_literal(root + "/" + new_domain, '|') +
           "\\2|";
}

// The domain's own records: those whose key is exactly "<old>-<name>" (or the
// "+<old>" record) and whose home is exactly in the old domain's directory.
// Records of a domain whose name only begins with the old one
// ("<old>-x.com", "<old>x.com") stay as they are. Every pattern holds the old
// name, so the substitutions are tried only on lines that hold it: on a
// large table that one search per line is most of the pass.
bool rename_in_assign(const std::string& old_domain, const std::string& new_domain) {
    return edit(kUsersAssign,
                {"/" + sed_pattern_literal(old_domain, '/') + "/{", mailname_records_script(old_domain, new_domain),
                 domain_record_script(old_domain, new_domain), "}"},
                true);
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
    return edit(kRejectNonExist, {sed_substitute(old_domain, new_domain, Anchor::whole)}, true);
}

}  // namespace crelm::qmail
