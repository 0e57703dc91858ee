// What the mail name, mailbox and alias commands leave, built on the seeded
// server state: the listing lines of a mail name made by sorvane, the
// "maildirsize" text, listing edits, and a delivery agent for the sandbox.
#pragma once

#include <string>
#include <vector>

#include "e2e/server_state.h"

namespace sorvane::test {

// The ".qmail" of a seeded mailbox, and the delivery line in it.
inline const std::string kDeliveryLine = "| /usr/bin/deliverquota ./Maildir\n";
inline const std::string kSeededQmail = "| true\n" + kDeliveryLine;

// "maildirsize" as sorvane writes it for a quota of bytes (0S for none),
// with the counted size and number of messages.
std::string maildirsize_text(long long quota_header, long long bytes, long long count);

// The storage quota that "maildirsize" of mailname@example.test holds for
// quota: what "@attachments" takes (as the directory-size walk counts it,
// the directory itself included) is deducted; 0 for no limit, at least 1.
long long quota_header(const std::string& mailname, long long quota);

// A seeded server (with an empty runtime configuration file, so that the
// program finds one) and the state read right after seeding.
class SeededServerTest : public SandboxTest {
protected:
    void SetUp() override;
    ServerState expected;
};

// The listing lines of a mail name that sorvane has just made: its home,
// ".qmail" holding qmail, the 21 directories, the four folder markers and,
// when maildirsize is not empty, "Maildir/maildirsize" with that text.
std::string new_mail_tree_lines(const std::string& domain, const std::string& mailname, const std::string& qmail,
                                const std::string& maildirsize = "");

// Listing edits: the lines added (sorted in), the lines that start with
// prefix taken out, and one file's line with new content.
std::string with_lines(const std::string& listing, const std::string& added);
std::string without_lines(const std::string& listing, const std::string& prefix);
std::string with_file_content(const std::string& listing, const std::string& relative, const std::string& content,
                              const std::string& mode = "0600");

// assign with the lines starting with prefix taken out, and with record
// added at the top.
std::string assign_without(const std::string& assign, const std::string& prefix);

// The text of a listing line for a regular file of popuser.
std::string owned_file_line(const std::string& relative, const std::string& content, const std::string& mode);

// Store rows without those of the listed addresses ("local@domain").
std::string rows_without_addresses(const std::string& rows, const std::vector<std::string>& addresses);

// Makes /usr/bin/deliverquota the real delivery agent (a copy of Debian's
// /usr/sbin/deliverquota); false when it is not installed.
bool install_real_deliverquota();
// Makes /usr/bin/deliverquota a recording fake, so that the agent is found.
void install_fake_deliverquota();

// Runs a ".qmail" delivery line as qmail runs it: "sh -c" of the text after
// "|", in home, as popuser, with message on standard input.
ProcessResult run_delivery_line(const std::string& home, const std::string& line, const std::string& message);

// Every mail name's addresses of the seeded example.test at the domain and
// its two aliases, for the local parts given.
std::vector<std::string> addresses_at_all_domains(const std::vector<std::string>& local_parts);

}  // namespace sorvane::test
