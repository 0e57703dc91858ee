#include "qmail/session_hooks.h"

namespace crelm::qmail {
namespace {

SessionHooks empty_session_hooks() {
    SessionHooks hooks;
    hooks.domain_aliases = [](std::string_view, NameList& aliases) {
        aliases.reset();
        return 0;
    };
    hooks.mail_aliases = [](std::string_view, std::string_view, NameList& aliases) {
        aliases.reset();
        return 0;
    };
    hooks.init_quota_record = [](std::string_view, std::string_view) { return 1; };
    return hooks;
}

SessionHooks& installed_hooks() {
    static SessionHooks hooks = empty_session_hooks();
    return hooks;
}

}  // namespace

void set_qmail_session_hooks(SessionHooks hooks) {
    SessionHooks& installed = installed_hooks();
    const SessionHooks empty = empty_session_hooks();
    installed.domain_aliases = hooks.domain_aliases ? std::move(hooks.domain_aliases) : empty.domain_aliases;
    installed.mail_aliases = hooks.mail_aliases ? std::move(hooks.mail_aliases) : empty.mail_aliases;
    installed.init_quota_record =
        hooks.init_quota_record ? std::move(hooks.init_quota_record) : empty.init_quota_record;
}

const SessionHooks& qmail_session_hooks() {
    return installed_hooks();
}

}  // namespace crelm::qmail
