#include "auth/reply_program.h"

#include <unistd.h>

#include <array>
#include <string_view>

namespace crelm::auth {

namespace {

// Entries the reply sets itself, and the password variables of the panel,
// which never reach another program.
constexpr std::array<std::string_view, 9> kReplaced{"USER",        "HOME",        "EXTRA",
                                                    "AUTHORIZED",  "userdb_uid",  "userdb_gid",
                                                    "userdb_home", "QVT_PASSWORD", "QVT_CRYPTED_PASSWORD"};

bool replaced(std::string_view entry) {
    const std::string_view name = entry.substr(0, entry.find('='));
    for (const std::string_view own : kReplaced)
        if (name == own)
            return true;
    return false;
}

}  // namespace

std::vector<std::string> reply_environment(const char* const* environment, const LoginReply& reply) {
    std::vector<std::string> entries;
    for (const char* const* entry = environment; entry != nullptr && *entry != nullptr; ++entry)
        if (!replaced(*entry))
            entries.emplace_back(*entry);
    entries.push_back("USER=" + reply.user);
    entries.push_back("HOME=" + reply.home.home);
    entries.push_back("userdb_uid=" + std::to_string(reply.home.uid));
    entries.push_back("userdb_gid=" + std::to_string(reply.home.gid));
    entries.push_back("userdb_home=" + reply.home.home);
    entries.emplace_back("EXTRA=userdb_uid userdb_gid userdb_home");
    if (reply.lookup_only)
        entries.emplace_back("AUTHORIZED=2");
    return entries;
}

void exec_reply_program(char* const* program, const LoginReply& reply) {
    const std::vector<std::string> entries = reply_environment(environ, reply);
    std::vector<char*> environment;
    environment.reserve(entries.size() + 1);
    for (const std::string& entry : entries)
        environment.push_back(const_cast<char*>(entry.c_str()));
    environment.push_back(nullptr);
    ::execvpe(program[0], program, environment.data());
}

}  // namespace crelm::auth
