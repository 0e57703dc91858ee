// The per-record changes of the mail handlers store on an open database,
// shared by the single operations and the batch operations. Internal to the
// store; each returns 0 or -1 after logging.
#pragma once

#include "stores/mail_handler_record.h"
#include "stores/mail_handlers_store.h"

#include <sqlite3.h>

#include <string>

int insert_mail_handler(sqlite3* db, const MailHandlerRecord& record);
// Copies the stored row of record (found by its address, name, type and
// queue) to new_address with all its columns.
int clone_mail_handler(sqlite3* db, const MailHandlerRecord& record, const std::string& new_address);
int delete_address_mail_handler(sqlite3* db, const MailHandlerRecord& record);
int update_address_mail_handler_state(sqlite3* db, const MailHandlerRecord& record, HandlerState state);
