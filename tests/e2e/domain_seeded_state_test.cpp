// The starting state the domain and mail name tests build on: what the
// seeding writes is what the readers and the expected-state builders say.
#include "e2e/server_state.h"

namespace sorvane::test {
namespace {

class SeededStateTest : public SandboxTest {};

TEST_F(SeededStateTest, ReadersGiveWhatTheBuildersDescribe) {
    seed_server_state();
    expect_server_state(read_server_state(), seeded_server_state());
}

TEST_F(SeededStateTest, PasswordsAreStoredEncipheredAndDecipherWithTheKeyFile) {
    seed_server_state();
    const std::string stored =
        run_process({"/usr/bin/sqlite3", "-batch", "/var/lib/crelm/mail/auth/passwd.db",
                     "SELECT userPassword FROM users WHERE name = 'john' AND dom_id = "
                     "(SELECT id FROM domains WHERE name = 'example.test');"})
            .out;
    ASSERT_EQ(stored.rfind("$AES-256-CBC:PKCS$", 0), 0u) << stored;
    EXPECT_EQ(decipher_password(stored.substr(0, stored.size() - 1)), "john's p4ss");
}

}  // namespace
}  // namespace sorvane::test
