// Lookups in the system's user and group databases, with the program's own
// messages. Every lookup reports its failure through report_error (never
// fatal) and answers with a neutral value; the caller decides what is fatal.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

// The system user and group that own every mailbox file.
inline constexpr const char* kMailOwner = "popuser";

// getpwnam(name): fills each output that is not null and returns 0; on
// failure reports "Unable to getpwnam for user <name>" and returns -1.
int get_user_ids(const char* name, uid_t* uid, gid_t* gid, std::string* home);

enum class UserIdKind { Uid, PrimaryGid };

// The user's uid or primary gid; 0 when the user is unknown (reported as
// get_user_ids does).
unsigned get_user_id_or_group(const char* name, UserIdKind kind);

// The user's uid; 0 when unknown, reported as
// "Unable to find uid for user <name>: <strerror, or User not found>".
uid_t find_uid(const char* name);

struct GroupEntry {
    std::string name;
    gid_t gid = 0;
    std::vector<std::string> members;
};

// A name made only of digits is a group id (getgrgid, failure reported as
// "getgrgid(<id>): <reason>"); any other name is looked up with getgrnam
// ("getgrnam(<name>): <reason>"). reason is strerror, or "Group not found"
// when errno stayed 0. Returns the entry, or nullopt when not found; a null or
// empty name gives nullopt without a message.
std::optional<GroupEntry> find_group(const char* name);

// The group's gid; 0 when unknown. found (if not null) tells whether the
// group exists.
gid_t find_gid(const char* name, bool* found = nullptr);

// The name of the user with this uid (cut to 4095 characters), or the uid in
// decimal when there is no such user. Never reports.
std::string user_name_of(uid_t uid);
