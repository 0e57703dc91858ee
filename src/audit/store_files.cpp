#include <grp.h>
#include <sys/stat.h>

#include <cstdio>
#include <optional>

#include "audit/store_checks.h"
#include "stores/mail_auth_paths.h"

namespace crelm::audit {

namespace {

// What the stores' set-up leaves: the authentication store and its key
// readable by root and the mail server's group nofiles only, the handlers
// store by root and group popuser, the quota store owned by popuser.
constexpr mode_t kAuthDirMode = 0750;
constexpr mode_t kAuthDbMode = 0640;
constexpr mode_t kKeyMode = 0440;
constexpr mode_t kHandlersMode = 0640;

struct Expected {
    uid_t uid;
    std::optional<gid_t> gid;  // nullopt: the group is unknown on this server
    mode_t mode;
};

std::string owner_and_mode(const struct stat& info) {
    char mode[16];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(info.st_mode & 07777));
    return std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid) + " " + mode;
}

std::string expected_text(const Expected& expected, const char* owner) {
    if (expected.mode == 0)
        return owner;
    char mode[16];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(expected.mode & 07777));
    return std::string(owner) + " " + mode;
}

std::optional<gid_t> group_id(const char* name) {
    const group* entry = ::getgrnam(name);
    return entry == nullptr ? std::nullopt : std::optional<gid_t>(entry->gr_gid);
}

// Who else can read or change the file: "" when nobody but its owner and
// group (and root).
// A secret's group other than the one it is set up for reads it as much as
// everybody would.
std::string exposure(const struct stat& info, const Expected& expected, bool secret) {
    if (info.st_uid != 0 && info.st_uid != expected.uid)
        return "owned by uid " + std::to_string(info.st_uid) + ", who can change it";
    if ((info.st_mode & 0022) != 0)
        return "writable by group or others";
    if (secret && (info.st_mode & 0007) != 0)
        return "readable by every user";
    if (secret && expected.gid && info.st_gid != *expected.gid && (info.st_mode & 0040) != 0)
        return "readable by group " + std::to_string(info.st_gid);
    return {};
}

void check_path(const AuditContext& context, const std::string& path, const struct stat& info,
                const Expected& expected, const char* owner, bool secret, const char* exposed_code,
                const char* mode_code) {
    const std::string exposed = exposure(info, expected, secret);
    if (!exposed.empty()) {
        context.findings.add(Severity::error, exposed_code, path,
                             exposed + " (" + owner_and_mode(info) + ", set up as " + expected_text(expected, owner) +
                                 ")");
        return;
    }
    if (!expected.gid)
        return;
    if (info.st_uid != expected.uid || info.st_gid != *expected.gid || (info.st_mode & 07777) != expected.mode)
        context.findings.add(Severity::warning, mode_code, path,
                             owner_and_mode(info) + ", not " + expected_text(expected, owner) +
                                 " as the store's set-up leaves it");
}

std::string directory_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string("/") : path.substr(0, slash);
}

void check_auth_files(const AuditContext& context, const std::optional<gid_t>& nofiles) {
    const StoreRead& auth = context.server.stores.auth;
    const std::string directory = directory_of(auth.path);
    struct stat info {};
    if (::lstat(directory.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        check_path(context, directory, info, {0, nofiles, kAuthDirMode}, "root:nofiles", false, "store-file-exposed",
                   "store-file-mode");
    if (auth.exists && S_ISREG(auth.info.st_mode))
        check_path(context, auth.path, auth.info, {0, nofiles, kAuthDbMode}, "root:nofiles", true,
                   "store-file-exposed", "store-file-mode");
    if (!auth.exists)
        return;
    set_mail_auth_paths(kMailServerQmail);
    const std::string& key = mail_auth_key_path();
    if (::lstat(key.c_str(), &info) != 0) {
        context.findings.add(Severity::error, "store-key-file-missing", key,
                             "the passwords' key file is missing: no stored password can be read");
        return;
    }
    if (!S_ISREG(info.st_mode)) {
        context.findings.add(Severity::error, "store-key-file-exposed", key,
                             "not a regular file: whatever it leads to is taken for the passwords' key");
        return;
    }
    check_path(context, key, info, {0, nofiles, kKeyMode}, "root:nofiles", true, "store-key-file-exposed",
               "store-key-file-mode");
}

}  // namespace

void check_store_files(const AuditContext& context) {
    const ServerSnapshot& server = context.server;
    const std::optional<gid_t> nofiles = group_id("nofiles");
    check_auth_files(context, nofiles);
    const StoreRead& handlers = server.stores.handlers;
    if (handlers.exists && S_ISREG(handlers.info.st_mode)) {
        const std::optional<gid_t> popuser =
            server.popuser_uid != 0 ? std::optional<gid_t>(server.popuser_gid) : std::nullopt;
        check_path(context, handlers.path, handlers.info, {0, popuser, kHandlersMode}, "root:popuser", false,
                   "store-file-exposed", "store-file-mode");
    }
    // The quota store is the mail server's to write: only who else may
    // write it matters.
    const StoreRead& quota = server.stores.quota;
    if (quota.exists && S_ISREG(quota.info.st_mode))
        check_path(context, quota.path, quota.info, {server.popuser_uid, std::nullopt, 0}, "popuser:popuser", false,
                   "store-file-exposed", "store-file-mode");
}

}  // namespace crelm::audit
