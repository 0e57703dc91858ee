// The floor of one login by sorvane-auth, for bench/auth_bench.sh: the same
// process start (a program of ours, the C++ runtime linked in), descriptor 3
// read, one indexed lookup of the login's row in the authentication store
// (the query sorvane-auth runs), then the program given run in its place.
// No password check and no home lookup: what any login check must do at
// least.
//
//   auth_floor_lookup <program> [arguments...]   (login\0password\0 on descriptor 3)
#include <sqlite3.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace {

const char* const kStore = "/var/lib/crelm/mail/auth/passwd.db";
const char* const kQuery =
    "SELECT u.userPassword, u.cmusaslsecretPLAIN, u.status, d.status FROM users AS u, domains AS d "
    "WHERE u.dom_id = d.id AND u.name=LOWER(?) AND d.name=LOWER(?)";

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2)
        return 2;
    char input[513];
    std::size_t length = 0;
    ssize_t got = 0;
    while (length < sizeof input && (got = read(3, input + length, sizeof input - length)) > 0)
        length += static_cast<std::size_t>(got);
    close(3);
    const std::string login(input, strnlen(input, length));
    const std::size_t at = login.rfind('@');
    if (at == std::string::npos)
        return 1;
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_open_v2(kStore, &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(db, kQuery, -1, &statement, nullptr) != SQLITE_OK)
        return 111;
    sqlite3_bind_text(statement, 1, login.c_str(), static_cast<int>(at), SQLITE_TRANSIENT);
    sqlite3_bind_text(statement, 2, login.c_str() + at + 1, -1, SQLITE_TRANSIENT);
    const bool found = sqlite3_step(statement) == SQLITE_ROW;
    sqlite3_finalize(statement);
    sqlite3_close(db);
    if (!found)
        return 1;
    execv(argv[1], argv + 1);
    return 111;
}
