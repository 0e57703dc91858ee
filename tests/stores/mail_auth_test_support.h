// Shared setup of the mail authentication store tests: a freshly initialised
// store at the qmail paths, and an independent look at its rows.
#pragma once

#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "store_test_support.h"

#include <string>

namespace sorvane::test {

class MailAuthStoreTest : public LoggedStoreTest {
protected:
    void SetUp() override {
        LoggedStoreTest::SetUp();
        ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
        ASSERT_TRUE(logged().empty());
    }

    // Rows of sql on the store, as the sqlite3 program prints them.
    static std::string rows(const std::string& sql) { return sqlite_cli(mail_auth_db_path(), sql); }

    static std::string users() { return rows("SELECT name, dom_id, status FROM users ORDER BY id;"); }
    static std::string domains() { return rows("SELECT id, name, status FROM domains ORDER BY id;"); }
};

}  // namespace sorvane::test
