// Shared setup of the mail handlers store tests: a freshly re-created store
// and records to put into it.
#pragma once

#include "stores/mail_handlers_store.h"
#include "store_test_support.h"

#include <string>

namespace sorvane::test {

class MailHandlersTest : public LoggedStoreTest {
protected:
    void SetUp() override {
        LoggedStoreTest::SetUp();
        set_mail_handlers_db_path(kDefaultMailHandlersDbPath);
        ASSERT_EQ(recreate_mail_handlers_db(), 0);
        ASSERT_TRUE(logged().empty());
    }

    static MailHandlerRecord handler(const std::string& name, const std::string& address, int priority = 10,
                                     bool enabled = true) {
        MailHandlerRecord record;
        record.name = name;
        record.address = address;
        record.priority = priority;
        record.type = 2;
        record.queue = 1;
        record.executable = "/usr/lib/handlers/" + name;
        record.context = "ctx-" + name;
        record.enabled = enabled;
        return record;
    }

    static std::string rows(const std::string& sql) { return sqlite_cli(mail_handlers_db_path(), sql); }

    // Every row: queue, type, enabled, priority, name, address, executable,
    // context, protected.
    static std::string all_rows() { return rows("SELECT * FROM handlers ORDER BY address, name, queue, type;"); }
};

}  // namespace sorvane::test
