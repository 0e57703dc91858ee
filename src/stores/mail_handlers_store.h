// The mail handlers store: per recipient address, the external programs the
// mail server runs on messages in its queues. An SQLite database opened and
// closed by every operation, with the busy-retry rule of all mail stores.
//
// Unless said otherwise a function returns 0 on success and -1 on failure,
// after logging the failure once at error level. Selections open the database
// read-only, writes read-write. Addresses are stored lower case by the
// statements themselves; deletes compare addresses regardless of case, the
// other statements compare the caller's text as given.
#pragma once

#include "stores/mail_handler_record.h"

#include <string>
#include <string_view>

inline constexpr const char* kDefaultMailHandlersDbPath = "/var/lib/crelm/mail/handlers/handlers.db";

// The two address keywords of handlers that apply to every recipient.
inline constexpr const char* kGlobalHandlersAddress = "all";
inline constexpr const char* kAllRecipientsAddress = "all-recipients";

enum class HandlerState { Disabled, Enabled };

// The database path in force (the default until replaced).
const std::string& mail_handlers_db_path();
void set_mail_handlers_db_path(std::string path);

// Re-creates the database: makes its directory, replaces the file with an
// empty schema, then gives it owner root, group popuser and mode 0640. When
// owner or mode cannot be set the new file is deleted. 0 or -1.
int recreate_mail_handlers_db();

// Inserts (or replaces, on the same queue, type, name and address) a record.
int add_mail_handler(const MailHandlerRecord& record);

// As add_mail_handler for a handler of every recipient: an empty address
// means "all"; any address but "all" and "all-recipients" is refused.
int add_global_mail_handler(MailHandlerRecord record);

// Deletes the handler of that name, type and queue, for every address.
int remove_mail_handler(const std::string& name, int type, int queue);

// Deletes the handler of that name, type and queue for one address (the
// address is compared regardless of case).
int remove_address_mail_handler(const std::string& name, int type, const std::string& address, int queue);

// Deletes every handler of an address (compared regardless of case).
int remove_mail_handlers_of_address(const std::string& address);

// Deletes every handler of that name.
int remove_mail_handlers_named(const std::string& name);

// Switches one handler on or off for every address, or for one address.
int set_mail_handler_state(const std::string& name, int type, int queue, HandlerState state);
int set_address_mail_handler_state(const std::string& name, int type, int queue, const std::string& address,
                                   HandlerState state);

// Switches every handler of that name on or off.
int set_mail_handlers_state_by_name(const std::string& name, HandlerState state);

// Moves every handler of old_address to new_address (both compared and
// stored as given); a handler already under new_address is replaced.
int rename_mail_handlers_address(const std::string& old_address, const std::string& new_address);

// Appends the handlers of one address (compared as given) to list.
int select_mail_handlers(const std::string& address, MailHandlerList& list);

// Appends the handlers whose address contains text (ASCII case ignored).
int select_mail_handlers_containing(const std::string& text, MailHandlerList& list);

// Appends the handlers of every recipient: address empty or "all" selects
// the "all" rows, "all-recipients" those rows; anything else is refused.
int select_global_mail_handlers(std::string_view address, MailHandlerList& list);

// Appends the enabled handlers of queue and type for one address, highest
// priority first; only executable, context and name are filled in.
int select_mail_handlers_to_run(int queue, int type, const std::string& address, MailHandlerList& list);

// Batch operations: the affected rows are selected through a read-only
// handle, then changed one by one inside one transaction, so either all of
// them change or none does.

// Copies every handler of old_address to new_address with all its columns;
// the old ones stay.
int clone_mail_handlers(const std::string& old_address, const std::string& new_address);

// Switches every handler of an address on or off.
int set_mail_handlers_state_of_address(const std::string& address, HandlerState state);

// The same for every address of a mail domain (addresses ending in
// "@domain"): copy them to the same local parts at new_domain, delete them,
// or switch them on or off.
int clone_domain_mail_handlers(const std::string& old_domain, const std::string& new_domain);
int remove_domain_mail_handlers(const std::string& domain);
int set_domain_mail_handlers_state(const std::string& domain, HandlerState state);
