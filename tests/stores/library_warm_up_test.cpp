// Setting libcrypto and SQLite up before forking commands: each forked
// process still draws random bytes of its own, holds no cipher context and
// enciphers and opens databases as a fresh process would.
#include "stores/library_warm_up.h"

#include <openssl/rand.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "stores/mail_passwd_cipher.h"

namespace sorvane::test {
namespace {

// Sixteen random bytes drawn by a forked child, as hexadecimal text.
std::string random_bytes_of_a_child() {
    int ends[2];
    if (::pipe(ends) != 0)
        return "no pipe";
    const pid_t child = ::fork();
    if (child == 0) {
        std::array<unsigned char, 16> bytes{};
        const bool drawn = RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1;
        const bool written = drawn && ::write(ends[1], bytes.data(), bytes.size()) == 16;
        ::_exit(written ? 0 : 1);
    }
    ::close(ends[1]);
    std::array<unsigned char, 16> bytes{};
    const ssize_t got = ::read(ends[0], bytes.data(), bytes.size());
    ::close(ends[0]);
    int status = -1;
    ::waitpid(child, &status, 0);
    if (got != 16 || status != 0)
        return "no bytes";
    std::string hex;
    for (const unsigned char byte : bytes)
        hex += "0123456789abcdef"[byte >> 4], hex += "0123456789abcdef"[byte & 0x0f];
    return hex;
}

TEST(LibraryWarmUpTest, EachForkedChildDrawsRandomBytesOfItsOwn) {
    warm_up_libraries_before_forks();
    std::set<std::string> drawn;
    for (int i = 0; i < 8; ++i)
        drawn.insert(random_bytes_of_a_child());
    EXPECT_EQ(drawn.count("no bytes"), 0u);
    EXPECT_EQ(drawn.size(), 8u);
}

TEST(LibraryWarmUpTest, LeavesNoCipherContextBehind) {
    warm_up_libraries_before_forks();
    errno = 0;
    EXPECT_FALSE(mail_passwd_encrypt("secret").has_value());
    EXPECT_EQ(errno, EINVAL);
}

TEST(LibraryWarmUpTest, DatabasesWorkAsBefore) {
    warm_up_libraries_before_forks();
    warm_up_libraries_before_forks();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, "CREATE TABLE t (a TEXT PRIMARY KEY); INSERT INTO t VALUES ('a');", nullptr, nullptr,
                           nullptr),
              SQLITE_OK);
    sqlite3_close(db);
}

}  // namespace
}  // namespace sorvane::test
