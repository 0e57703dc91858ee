// The panel's picture of the server (--expect): a JSON array with one
// document per domain, each in the schema of sorvane's standard-input
// document ({"domain": {"name", "dom_aliases", "mails": [{"name",
// "mbox_quota", "mbox_quota_unit", "aliases"}]}}), read by the same reader
// with the same checks and error texts, plus members only the audit reads:
//
//   domain "enabled": true | false        mail service on or off
//   domain "action":  {"kind": "bounce"}
//                     {"kind": "bounce", "phrase": "<text>"}
//                     {"kind": "catch-all", "email": "<address>"}
//                     {"kind": "reject"}
//                     what happens to mail for names that do not exist
//   mail "mailbox":   true | false        whether the mail name has a mailbox
//
// A member left out is not compared. Names are lower-cased as sorvane
// stores them (the reader takes ASCII only, so IDN names come in their
// ASCII form); quotas are bytes after their unit, -1 unlimited.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "audit/audit_context.h"

namespace crelm::audit {

struct PictureAction {
    enum class Kind { bounce, catchall, reject } kind = Kind::bounce;
    std::string text;  // the bounce phrase (empty: the default one) or the catch-all address
};

struct PictureMail {
    std::string name;              // lower case
    std::int64_t quota = -1;       // bytes; -1 unlimited
    std::vector<std::string> aliases;
    std::optional<bool> mailbox;   // absent: not compared
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
// document returns false and fills message with the text to print: the
// source, then the standard-input reader's error text.
bool read_picture(const std::string& path, Picture& picture, std::string& message);

// The same for a document already in memory (buffer is zero-terminated and
// is changed: strings are decoded in place).
bool parse_picture(char* buffer, Picture& picture, std::string& message);

// Adds a finding for each difference between the picture and the server, in
// both directions, for the domains in scope.
void compare_picture(const AuditContext& context, const Picture& picture);

}  // namespace crelm::audit
