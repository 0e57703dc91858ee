// What the qmail back end asks of the session mail data that the running
// command holds. The session lives above this layer, so the command layer
// hands these answers in once, before it calls any back-end step
// (set_qmail_session_hooks). Until then every hook answers as an empty
// session would: no aliases, and a quota record step that writes nothing.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace crelm::qmail {

using NameList = std::optional<std::vector<std::string>>;

struct SessionHooks {
    // The domain aliases of domain: 0 with the list (std::nullopt: none), or
    // -1 after the session layer reported why.
    std::function<int(std::string_view domain, NameList& aliases)> domain_aliases;
    // The mail aliases of mailname@domain: 0 with the list (std::nullopt:
    // none or unknown mail), or -1 after the session layer reported why.
    std::function<int(std::string_view mailname, std::string_view domain, NameList& aliases)> mail_aliases;
    // Initialises the quota record of mailname@domain from the session:
    // 1 written (or nothing to write), 0 failed.
    std::function<int(std::string_view domain, std::string_view mailname)> init_quota_record;
};

// Installs hooks for the rest of the process; members left empty keep the
// empty-session answer.
void set_qmail_session_hooks(SessionHooks hooks);
const SessionHooks& qmail_session_hooks();

}  // namespace crelm::qmail
