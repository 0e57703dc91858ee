// The sorvane command lines that bring the server to the panel's picture:
// those that only the picture can give (the action it wants, the quota of a
// mail name the server lacks), and the session lists the picture holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "audit/picture.h"
#include "audit/repair_commands.h"

namespace crelm::audit {

// "--set-reject", "--set-catchall --email=<a>" or "--set-bounce
// [--phrase=<p>]" for the picture's action, in the form
// domain_action_options gives the server's (the default phrase left out).
std::vector<std::string> picture_action_options(const PictureAction& action);

// "--domain-aliases=..." and "--mail-addresses=..." of the picture's domain
// (either left out when empty).
std::vector<std::string> picture_session_lists(const PictureDomain& domain);

CommandLine turn_on_to_picture(const PictureDomain& domain, std::vector<std::string> action_options);
CommandLine turn_off_to_picture(const PictureDomain& domain);
CommandLine add_mailname_with_quota(const std::string& domain, const PictureMail& mail);
// The domain alias with the domain's action for unknown names, and the
// session lists given.
CommandLine add_domain_alias(const std::string& domain, const std::string& alias,
                             std::vector<std::string> action_options, std::vector<std::string> lists);
CommandLine add_alias(const std::string& domain, const std::string& mail_name, const std::string& alias,
                      std::vector<std::string> lists);

}  // namespace crelm::audit
