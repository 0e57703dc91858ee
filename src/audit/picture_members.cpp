#include "audit/picture_members.h"

#include <string>

#include "qmail/catchall.h"

namespace crelm::audit {

namespace {

using mail::JsonError;
using mail::JsonReader;
using Read = mail::DocumentExtension::Read;

Read result_of(bool read) { return read ? Read::Taken : Read::Failed; }

bool read_flag(JsonReader& reader, std::optional<bool>& flag) {
    bool value = false;
    if (!mail::json_boolean(reader, value))
        return false;
    flag = value;
    return true;
}

bool read_text(JsonReader& reader, std::optional<std::string>& text) {
    std::size_t length = 0;
    const char* read = mail::json_string(reader, &length);
    if (read == nullptr)
        return false;
    text.emplace(read, length);
    return true;
}

// The action's members as written, checked once the object has ended.
struct ActionMembers {
    std::optional<std::string> kind;
    std::optional<std::string> phrase;
    std::optional<std::string> email;

    bool read(JsonReader& reader, std::string_view name) {
        if (name == "kind")
            return read_text(reader, kind);
        if (name == "phrase")
            return read_text(reader, phrase);
        if (name == "email")
            return read_text(reader, email);
        return mail::json_skip_value(reader);
    }
};

bool read_action_members(JsonReader& reader, ActionMembers& members) {
    if (!mail::json_begin_object(reader))
        return false;
    if (mail::json_end_object(reader))
        return mail::json_fail(reader, JsonError::RequiredFieldsMissing);
    mail::JsonNext next = mail::JsonNext::More;
    while (next == mail::JsonNext::More) {
        std::size_t length = 0;
        const char* name = mail::json_member_name(reader, &length);
        if (name == nullptr || !members.read(reader, std::string_view(name, length)))
            return false;
        next = mail::json_object_separator(reader);
    }
    return next == mail::JsonNext::End;
}

bool action_of(JsonReader& reader, const ActionMembers& members, PictureAction& action) {
    if (!members.kind)
        return mail::json_fail(reader, JsonError::RequiredFieldsMissing);
    if (*members.kind == "bounce") {
        action = {PictureAction::Kind::bounce, members.phrase.value_or("")};
        return true;
    }
    if (*members.kind == "reject") {
        action = {PictureAction::Kind::reject, ""};
        return true;
    }
    if (*members.kind != "catch-all")
        return mail::json_fail(reader, JsonError::ConstraintFailed, "Domain action kind is not valid");
    if (!members.email)
        return mail::json_fail(reader, JsonError::RequiredFieldsMissing);
    if (!has_local_part_and_domain(*members.email))
        return mail::json_fail(reader, JsonError::ConstraintFailed, "Catch-all address is not valid");
    action = {PictureAction::Kind::catchall, *members.email};
    return true;
}

bool read_action(JsonReader& reader, std::optional<PictureAction>& action) {
    ActionMembers members;
    PictureAction read;
    if (!read_action_members(reader, members) || !action_of(reader, members, read))
        return false;
    action = std::move(read);
    return true;
}

}  // namespace

Read PictureMembers::read_domain_member(JsonReader& reader, std::string_view name) {
    if (name == "enabled")
        return result_of(read_flag(reader, enabled));
    if (name == "action")
        return result_of(read_action(reader, action));
    return Read::Skipped;
}

Read PictureMembers::read_mail_member(JsonReader& reader, std::size_t mail, std::string_view name) {
    if (name != "mailbox")
        return Read::Skipped;
    if (mailboxes.size() <= mail)
        mailboxes.resize(mail + 1);
    return result_of(read_flag(reader, mailboxes[mail]));
}

}  // namespace crelm::audit
