// Setting a mailbox's quota in its Maildir++ "maildirsize" file.
#pragma once

#include <string>

// Writes "maildirsize" in the Maildir of <mail names root>/<domain in
// ASCII>/<mailname> for a quota in bytes (negative: no limit), owned by
// popuser. The space taken by the mail name's "@attachments" directory is
// deducted from a quota of 0 or more; if nothing is left, the quota becomes
// 0 and "WARNING: @attachments directory is big enough to disable delivery!"
// is written (not an error). The header then holds the storage quota as
// storage_quota_to_write gives it and a count quota of 0.
// Returns true, or false with errno set after reporting one of
//   "idn_toascii(<domain>) failed: <status text>",
//   "domain and/or user name too long to be stored on the filesystem",
//   "unable to get current working directory",
//   "unable to change to mbox folder <path>: <reason>",
//   "unable to count attachments folder size",
// a failed lookup of popuser, or a failure of maildirsize_create. The working
// directory is the same afterwards in every case.
bool maildir_size(const std::string& domain, const std::string& mailname, long long quota);
