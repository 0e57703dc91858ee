// The sorvane command lines that bring a part of the server back in step,
// built from what the server itself says: a domain's aliases and mail names
// (the session lists the commands need) and its action for mail to names
// that do not exist.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "audit/server_model.h"

namespace crelm::audit {

using CommandLine = std::vector<std::string>;

// "--domain-aliases=a,b" and "--mail-addresses=m1,a1;m2" of the domain, as
// the server holds them (the aliases left out when there are none; the mail
// addresses given, empty, when both are empty).
std::vector<std::string> session_lists(const ServerModel& model, const std::string& domain);

// The options of the domain's current action for mail to unknown names:
// "--set-reject", "--set-catchall --email=<a>" or "--set-bounce
// [--phrase=<p>]", read from rejectnonexist and its ".qmail-default".
std::vector<std::string> domain_action_options(const ServerSnapshot& server, const ServerModel& model,
                                               const std::string& domain);

CommandLine turn_on_domain(const ServerSnapshot& server, const ServerModel& model, const std::string& domain);
CommandLine turn_off_domain(const ServerModel& model, const std::string& domain);
CommandLine add_domain(const std::string& domain);
CommandLine remove_domain(const ServerModel& model, const std::string& domain);
CommandLine add_mailname(const std::string& domain, const std::string& mail_name);
CommandLine remove_mailname(const ServerModel& model, const std::string& domain, const std::string& mail_name);
CommandLine remove_alias(const ServerModel& model, const std::string& domain, const std::string& mail_name,
                         const std::string& alias);
CommandLine add_alias(const ServerModel& model, const std::string& domain, const std::string& mail_name,
                      const std::string& alias);
CommandLine add_domain_alias(const ServerSnapshot& server, const ServerModel& model, const std::string& domain,
                             const std::string& alias);
CommandLine remove_domain_alias(const ServerModel& model, const std::string& domain, const std::string& alias);

// --add-mailname again, keeping the quota the store holds: a quota above 0
// is passed on (the store row and "maildirsize" keep it); without one the
// command stores its own "0B", which is what no limit is stored as.
CommandLine add_mailname_keeping_quota(const std::string& domain, const std::string& mail_name,
                                       std::int64_t stored_quota);
// --set-mailbox-disk-quota with quota bytes (negative: no limit).
CommandLine set_mailbox_disk_quota(const std::string& domain, const std::string& mail_name, std::int64_t quota);

}  // namespace crelm::audit

namespace crelm::audit {

// Takes the mailbox of a mail name away (its delivery line and the
// authentication rows of all its addresses).
CommandLine remove_mailbox(const ServerModel& model, const std::string& domain, const std::string& mail_name);

}  // namespace crelm::audit

namespace crelm::audit {

// The line with "--mail-addresses=;" (a list of no mail names) when it has
// neither session list: without one, sorvane waits for the session
// document on standard input, and an empty value is refused.
CommandLine with_session(CommandLine line);

}  // namespace crelm::audit
