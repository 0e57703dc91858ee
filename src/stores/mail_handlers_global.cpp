// Handlers of every recipient, kept under the address keywords "all" and
// "all-recipients".
#include "stores/mail_handlers_store.h"

#include "runtime/log.h"

#include <syslog.h>


namespace {

bool is_global_keyword(std::string_view address) {
    return address == kGlobalHandlersAddress || address == kAllRecipientsAddress;
}

}  // namespace

int add_global_mail_handler(MailHandlerRecord record) {
    if (record.address.empty())
        record.address = kGlobalHandlersAddress;
    if (!is_global_keyword(record.address)) {
        log_message(LOG_ERR, "Incorrect recipient address for global handler, expected [NULL|EMPTY_STRING|%s|%s]",
                    kGlobalHandlersAddress, kAllRecipientsAddress);
        return -1;
    }
    return add_mail_handler(record);
}

int select_global_mail_handlers(std::string_view address, MailHandlerList& list) {
    const std::string keyword{address.empty() ? std::string_view{kGlobalHandlersAddress} : address};
    if (!is_global_keyword(keyword)) {
        log_message(LOG_ERR, "Incorrect recipient address for global handler `%s', expected [NULL|%s|%s]",
                    keyword.c_str(), kGlobalHandlersAddress, kAllRecipientsAddress);
        return -1;
    }
    return select_mail_handlers(keyword, list);
}
