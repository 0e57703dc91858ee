// The authentication records of a mailbox: one per address of its mail name
// (every local part at every domain), all with the same password.
#pragma once

#include "commands/mailbox_password.h"
#include "commands/mailname_addresses.h"

namespace crelm::mail::sorvane_commands {

// Stores the password for every address (an empty password removes the
// records). Every address is tried; 0, or -1 when any store step failed
// (each failure logged by the store).
int store_mailbox_password(const MailnameAddresses& addresses, const MailboxPassword& password);

// Removes the record of every address. Every address is tried; 0, or -1
// when any removal failed (each failure logged by the store).
int remove_mailbox_auth_records(const MailnameAddresses& addresses);

}  // namespace crelm::mail::sorvane_commands
