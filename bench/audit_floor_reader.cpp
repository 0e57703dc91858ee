// The floor for auditing a mail server: reads once what sorvane-audit reads,
// and nothing more. The control files and assign are read whole, users/cdb
// and the authentication key file are only looked at, every entry of the
// mail names tree and the domain-key directories is looked at without
// following links (owner, mode, type and link count are what an audit
// judges), the dot-qmail and maildirsize files are read whole (messages are
// not), and every row of the three stores is stepped through with each
// column fetched. Prints what it read, so that no step can be left out.
//
//   audit_floor_reader
#include <dirent.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Tally {
    long long entries = 0;
    long long files_read = 0;
    long long bytes = 0;
    long long rows = 0;
};

void read_whole(int dir_fd, const char* name, Tally& tally) {
    const int fd = ::openat(dir_fd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return;
    char buffer[64 * 1024];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;)
        tally.bytes += got;
    ::close(fd);
    ++tally.files_read;
}

bool read_in_tree(std::string_view name) {
    return name.substr(0, 6) == ".qmail" || name == "maildirsize";
}

// Looks at every entry below dir_fd (closed here), reading the files an
// audit reads; subdirectories are entered, links never.
void walk(int dir_fd, Tally& tally) {
    DIR* dir = ::fdopendir(dir_fd);
    if (dir == nullptr) {
        ::close(dir_fd);
        return;
    }
    std::vector<std::string> subdirectories;
    while (const struct dirent* entry = ::readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        struct stat info {};
        if (::fstatat(dir_fd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        ++tally.entries;
        if (S_ISDIR(info.st_mode))
            subdirectories.emplace_back(name);
        else if (S_ISREG(info.st_mode) && read_in_tree(name))
            read_whole(dir_fd, entry->d_name, tally);
    }
    for (const std::string& name : subdirectories) {
        const int sub = ::openat(dir_fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (sub >= 0)
            walk(sub, tally);
    }
    ::closedir(dir);
}

void walk_tree(const char* root, Tally& tally) {
    const int fd = ::open(root, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0)
        walk(fd, tally);
}

void read_rows(const char* path, Tally& tally) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path, &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return;
    }
    std::vector<std::string> tables;
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, "SELECT name FROM sqlite_master WHERE type='table'", -1, &statement, nullptr);
    while (sqlite3_step(statement) == SQLITE_ROW)
        tables.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    sqlite3_finalize(statement);
    for (const std::string& table : tables) {
        const std::string select = "SELECT * FROM \"" + table + "\"";
        sqlite3_prepare_v2(db, select.c_str(), -1, &statement, nullptr);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            ++tally.rows;
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                sqlite3_column_text(statement, column);
                tally.bytes += sqlite3_column_bytes(statement, column);
            }
        }
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
}

}  // namespace

int main() {
    Tally tally;
    const int control = ::open("/var/qmail/control", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (const char* name : {"rcpthosts", "virtualdomains", "locals", "rejectnonexist"})
        read_whole(control, name, tally);
    ::close(control);
    const int users = ::open("/var/qmail/users", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    read_whole(users, "assign", tally);
    struct stat info {};
    ::fstatat(users, "cdb", &info, AT_SYMLINK_NOFOLLOW);
    ::close(users);
    ::lstat("/var/lib/crelm/mail/auth/passwd_db_key", &info);
    walk_tree("/var/qmail/mailnames", tally);
    walk_tree("/etc/domainkeys", tally);
    for (const char* store : {"/var/lib/crelm/mail/userdb/userdb.db", "/var/lib/crelm/mail/handlers/handlers.db",
                              "/var/lib/crelm/mail/auth/passwd.db"})
        read_rows(store, tally);
    std::printf("%lld entries, %lld files read, %lld bytes, %lld rows\n", tally.entries, tally.files_read, tally.bytes,
                tally.rows);
    return 0;
}
