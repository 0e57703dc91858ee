// Selections of the mail handlers store, each through a read-only handle.
#include "stores/mail_handlers_store.h"

#include "stores/mail_handlers_columns.h"
#include "stores/mail_handlers_sql.h"
#include "stores/mail_handlers_statement.h"

int select_mail_handlers(const std::string& address, MailHandlerList& list) {
    return select_handler_rows(mail_handlers_sql::kSelectByAddress, {{"'address'", address}},
                               handler_columns::kFull, HandlerSelection::Listing, {}, list);
}

int select_mail_handlers_containing(const std::string& text, MailHandlerList& list) {
    return select_handler_rows(mail_handlers_sql::kSelectContaining, {{"'address'", text}},
                               handler_columns::kFull, HandlerSelection::Listing, {}, list);
}

int select_mail_handlers_to_run(int queue, int type, const std::string& address, MailHandlerList& list) {
    return select_handler_rows(mail_handlers_sql::kSelectToRun,
                               {{"'queue'", queue}, {"'type'", type}, {"'enabled'", 1}, {"'address'", address}},
                               handler_columns::kToRun, HandlerSelection::Running, {}, list);
}
