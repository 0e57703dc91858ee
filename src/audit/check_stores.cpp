#include "audit/checks.h"

#include "audit/store_checks.h"
#include "stores/mail_auth_sql.h"
#include "stores/mail_handlers_sql.h"
#include "stores/mailbox_quota_sql.h"

namespace crelm::audit {

void check_stores(const AuditContext& context) {
    const StoreRows& stores = context.server.stores;
    // A store's file serves every domain: its health and modes are the
    // whole server's concern, as assign's are.
    if (context.scope.whole_server()) {
        check_store_health(context, stores.auth, mail_auth_sql::kSchema);
        check_store_health(context, stores.quota, mailbox_quota_sql::kSchema);
        check_store_health(context, stores.handlers, mail_handlers_sql::kSchema);
        check_store_files(context);
    }
    const AddressIndex index = build_address_index(context.model, context.server.mailnames_dir);
    check_auth_rows(context, index);
    check_quota_rows(context, index);
    check_handler_rows(context, index);
}

}  // namespace crelm::audit
