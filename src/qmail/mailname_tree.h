// The directory tree of a mail name's home, as data: what create_mailname
// makes, in this order, and what a check of the tree expects.
#pragma once

#include <sys/types.h>

#include <array>

namespace crelm::qmail {

// Every directory of the tree and every folder marker: owner popuser.
inline constexpr mode_t kMailnameDirMode = 0700;
inline constexpr mode_t kMailnameFileMode = 0600;

struct MailnameTreeEntry {
    const char* directory;  // relative to the home
    // The empty marker file that makes a Maildir++ folder of the folder
    // just completed (its "cur" is made last), or nullptr.
    const char* folder_marker;
};

// The folders are Maildir++ folders: delivery agents, IMAP servers and
// the size count only treat a directory with "maildirfolder" as one.
inline constexpr std::array<MailnameTreeEntry, 21> kMailnameTree = {{
    {"Maildir", nullptr},
    {"Maildir/tmp", nullptr},
    {"Maildir/new", nullptr},
    {"Maildir/cur", nullptr},
    {"Maildir/.Spam", nullptr},
    {"Maildir/.Spam/tmp", nullptr},
    {"Maildir/.Spam/new", nullptr},
    {"Maildir/.Spam/cur", "Maildir/.Spam/maildirfolder"},
    {"Maildir/.Sent", nullptr},
    {"Maildir/.Sent/tmp", nullptr},
    {"Maildir/.Sent/new", nullptr},
    {"Maildir/.Sent/cur", "Maildir/.Sent/maildirfolder"},
    {"Maildir/.Drafts", nullptr},
    {"Maildir/.Drafts/tmp", nullptr},
    {"Maildir/.Drafts/new", nullptr},
    {"Maildir/.Drafts/cur", "Maildir/.Drafts/maildirfolder"},
    {"Maildir/.Trash", nullptr},
    {"Maildir/.Trash/tmp", nullptr},
    {"Maildir/.Trash/new", nullptr},
    {"Maildir/.Trash/cur", "Maildir/.Trash/maildirfolder"},
    {"@attachments", nullptr},
}};

}  // namespace crelm::qmail
