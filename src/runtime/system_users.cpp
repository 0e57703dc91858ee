#include "runtime/system_users.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <string_view>

#include "runtime/log.h"

namespace {

// The password entry for name, with errno cleared first so that a failure's
// errno belongs to this lookup alone.
const passwd* lookup_user(const char* name) {
    errno = 0;
    return name == nullptr ? nullptr : getpwnam(name);
}

const char* lookup_failure_reason(const char* not_found) {
    return errno != 0 ? std::strerror(errno) : not_found;
}

bool is_all_digits(std::string_view text) {
    return text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Reads a group id as "%u" would; a number past the id range becomes the
// largest id, which no group has.
gid_t parse_group_id(std::string_view digits) {
    unsigned value = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return result.ec == std::errc() ? value : UINT_MAX;
}

GroupEntry to_entry(const group& found) {
    GroupEntry entry{found.gr_name, found.gr_gid, {}};
    for (char** member = found.gr_mem; member != nullptr && *member != nullptr; ++member)
        entry.members.emplace_back(*member);
    return entry;
}

std::optional<GroupEntry> find_group_by_id(gid_t gid) {
    errno = 0;
    const group* found = getgrgid(gid);
    if (found != nullptr)
        return to_entry(*found);
    report_error(0, 0, "getgrgid(%u): %s", gid, lookup_failure_reason("Group not found"));
    return std::nullopt;
}

std::optional<GroupEntry> find_group_by_name(const char* name) {
    errno = 0;
    const group* found = getgrnam(name);
    if (found != nullptr)
        return to_entry(*found);
    report_error(0, 0, "getgrnam(%s): %s", name, lookup_failure_reason("Group not found"));
    return std::nullopt;
}

}  // namespace

int get_user_ids(const char* name, uid_t* uid, gid_t* gid, std::string* home) {
    const passwd* user = lookup_user(name);
    if (user == nullptr) {
        report_error(0, 0, "Unable to getpwnam for user %s", name == nullptr ? "(null)" : name);
        return -1;
    }
    if (uid != nullptr)
        *uid = user->pw_uid;
    if (gid != nullptr)
        *gid = user->pw_gid;
    if (home != nullptr)
        *home = user->pw_dir;
    return 0;
}

unsigned get_user_id_or_group(const char* name, UserIdKind kind) {
    uid_t uid = 0;
    gid_t gid = 0;
    if (get_user_ids(name, &uid, &gid, nullptr) != 0)
        return 0;
    return kind == UserIdKind::Uid ? uid : gid;
}

uid_t find_uid(const char* name) {
    const passwd* user = lookup_user(name);
    if (user != nullptr)
        return user->pw_uid;
    report_error(0, 0, "Unable to find uid for user %s: %s", name == nullptr ? "(null)" : name,
                 lookup_failure_reason("User not found"));
    return 0;
}

std::optional<GroupEntry> find_group(const char* name) {
    if (name == nullptr || name[0] == '\0')
        return std::nullopt;
    if (is_all_digits(name))
        return find_group_by_id(parse_group_id(name));
    return find_group_by_name(name);
}

gid_t find_gid(const char* name, bool* found) {
    const std::optional<GroupEntry> entry = find_group(name);
    if (found != nullptr)
        *found = entry.has_value();
    return entry ? entry->gid : 0;
}

std::string user_name_of(uid_t uid) {
    const passwd* user = getpwuid(uid);
    if (user == nullptr)
        return std::to_string(uid);
    return std::string(user->pw_name).substr(0, 4095);
}
