#include "stores/mail_handler_record.h"

std::string stored_handler_context(const MailHandlerRecord& record) {
    return record.context.value_or("none");
}
