#include "session/stdin_document.h"

#include <cstring>
#include <string_view>

#include "runtime/name_rules.h"

namespace crelm::mail {
namespace {

enum class EmptyObject { Refused, Allowed };
using NameRule = bool (*)(std::string_view);

bool is_member(const char* name, const char* wanted) { return std::strcmp(name, wanted) == 0; }

// Reads an object member by member; read_member(name) reads or skips the
// value of each.
template <typename ReadMember>
bool read_object(JsonReader& reader, EmptyObject empty, ReadMember&& read_member) {
    if (!json_begin_object(reader)) {
        return false;
    }
    if (json_object_is_empty(reader)) {
        return empty == EmptyObject::Allowed ? json_end_object(reader)
                                             : json_fail(reader, JsonError::RequiredFieldsMissing);
    }
    JsonNext next = JsonNext::More;
    while (next == JsonNext::More) {
        const char* name = json_member_name(reader);
        if (name == nullptr || !read_member(name)) {
            return false;
        }
        next = json_object_separator(reader);
    }
    return next == JsonNext::End;
}

template <typename ReadElement>
bool read_array(JsonReader& reader, ReadElement&& read_element) {
    if (!json_begin_array(reader)) {
        return false;
    }
    if (json_end_array(reader)) {
        return true;
    }
    JsonNext next = JsonNext::More;
    while (next == JsonNext::More) {
        if (!read_element()) {
            return false;
        }
        next = json_array_separator(reader);
    }
    return next == JsonNext::End;
}

bool read_checked_name(JsonReader& reader, char*& target, NameRule rule, const char* failure) {
    char* text = json_string(reader);
    if (text == nullptr) {
        return false;
    }
    if (!rule(text)) {
        return json_fail(reader, JsonError::ConstraintFailed, failure);
    }
    target = text;
    return true;
}

bool read_name_list(JsonReader& reader, std::vector<char*>& list, NameRule rule, const char* failure) {
    list.clear();
    return read_array(reader, [&] {
        char* name = nullptr;
        if (!read_checked_name(reader, name, rule, failure)) {
            return false;
        }
        list.push_back(name);
        return true;
    });
}

bool read_plain_string(JsonReader& reader, char*& target) {
    target = json_string(reader);
    return target != nullptr;
}

bool read_quota(JsonReader& reader, std::int64_t& quota) {
    if (!json_int64(reader, quota)) {
        return false;
    }
    return quota >= -1 || json_fail(reader, JsonError::ConstraintFailed, "Mailbox quota value is out of bounds");
}

bool read_quota_unit(JsonReader& reader, const char*& unit) {
    const char* text = json_string(reader);
    if (text == nullptr) {
        return false;
    }
    for (const char* known : {"B", "KB", "MB", "GB", "TB"}) {
        if (std::strcmp(text, known) == 0) {
            unit = text;
            return true;
        }
    }
    return json_fail(reader, JsonError::ConstraintFailed, "Mailbox quota unit value is invalid");
}

bool read_mail_member(JsonReader& reader, SessionMail& mail, const char* name) {
    if (is_member(name, "name")) {
        return read_checked_name(reader, mail.name, is_valid_mail_name, "Mailname is not valid");
    }
    if (is_member(name, "mbox_quota")) {
        return read_quota(reader, mail.mbox_quota);
    }
    if (is_member(name, "mbox_quota_unit")) {
        return read_quota_unit(reader, mail.mbox_quota_unit);
    }
    if (is_member(name, "aliases")) {
        const bool read = read_name_list(reader, mail.aliases, is_valid_mail_name, "Mail alias is not valid");
        mail.aliases.shrink_to_fit();  // a domain may have very many mails
        return read;
    }
    return json_skip_value(reader);
}

bool read_mails(JsonReader& reader, std::vector<SessionMail>& mails) {
    mails.clear();
    return read_array(reader, [&] {
        SessionMail& mail = mails.emplace_back();
        return read_object(reader, EmptyObject::Refused,
                           [&](const char* name) { return read_mail_member(reader, mail, name); });
    });
}

bool read_domain_member(JsonReader& reader, SessionMailData& data, const char* name) {
    if (is_member(name, "name")) {
        return read_checked_name(reader, data.domain_name, is_valid_domain_name, "Domain name is not valid");
    }
    if (is_member(name, "dom_aliases")) {
        return read_name_list(reader, data.domain_aliases, is_valid_domain_name, "Domain alias is not valid");
    }
    if (is_member(name, "maillists")) {
        return read_name_list(reader, data.maillists, is_valid_mail_name, "Maillist is not valid");
    }
    if (is_member(name, "mails")) {
        return read_mails(reader, data.mails);
    }
    // The domain's own "mbox_quota" and "mbox_quota_unit" are documented but
    // not kept; they are skipped with everything else.
    return json_skip_value(reader);
}

bool read_certificate_member(JsonReader& reader, SessionCertificate& certificate, const char* name) {
    if (is_member(name, "name")) {
        return read_plain_string(reader, certificate.name);
    }
    if (is_member(name, "certfile")) {
        return read_plain_string(reader, certificate.certfile);
    }
    return json_skip_value(reader);
}

bool read_certificates(JsonReader& reader, std::vector<SessionCertificate>& certificates) {
    certificates.clear();
    return read_array(reader, [&] {
        SessionCertificate& certificate = certificates.emplace_back();
        return read_object(reader, EmptyObject::Allowed, [&](const char* name) {
            return read_certificate_member(reader, certificate, name);
        });
    });
}

bool read_top_member(JsonReader& reader, SessionMailData& data, const char* name) {
    if (is_member(name, "domain")) {
        return read_object(reader, EmptyObject::Refused,
                           [&](const char* member) { return read_domain_member(reader, data, member); });
    }
    if (is_member(name, "certificates")) {
        return read_certificates(reader, data.certificates);
    }
    return json_skip_value(reader);
}

}  // namespace

JsonError read_stdin_document(JsonReader& reader, SessionMailData& data) {
    read_object(reader, EmptyObject::Refused,
                [&](const char* name) { return read_top_member(reader, data, name); });
    return reader.error;
}

}  // namespace crelm::mail
