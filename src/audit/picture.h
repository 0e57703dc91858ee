// The panel's picture of the server (--expect): one document per domain in
// the schema of sorvane's standard-input document, with the members only the
// audit reads: "enabled", "action" and, per mail, "mailbox".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "audit/audit_context.h"

namespace crelm::audit {

struct PictureAction {
    enum class Kind { bounce, catchall, reject } kind = Kind::bounce;
    std::string text;  // the bounce phrase or the catch-all address
};

struct PictureMail {
    std::string name;                // ASCII, lower case
    std::int64_t quota = -1;         // bytes; -1 none
    std::vector<std::string> aliases;
    std::optional<bool> mailbox;     // absent: not compared
};

struct PictureDomain {
    std::string name;                  // ASCII, lower case
    std::vector<std::string> aliases;  // domain aliases
    std::vector<PictureMail> mails;
    std::optional<bool> enabled;
    std::optional<PictureAction> action;
};

struct Picture {
    std::vector<PictureDomain> domains;
};

// Reads the picture from path ("-" for standard input). On a refused
// document returns false and fills message with the text to print.
bool read_picture(const std::string& path, Picture& picture, std::string& message);

// Adds a finding for each difference between the picture and the server, in
// both directions, for the domains in scope.
void compare_picture(const AuditContext& context, const Picture& picture);

}  // namespace crelm::audit
