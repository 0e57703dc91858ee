#include "session/stdin_document.h"

#include <new>
#include <string_view>

#include "runtime/name_rules.h"

namespace crelm::mail {
namespace {

enum class EmptyObject { Refused, Allowed };
using NameRule = bool (*)(std::string_view);

// Member names are compared with their lengths known: a large document
// has millions of them.
bool is_member(std::string_view name, std::string_view wanted) { return name == wanted; }

void lower_case(char* text, std::size_t length) {
    for (char* end = text + length; text != end; ++text) {
        if (*text >= 'A' && *text <= 'Z') {
            *text = static_cast<char>(*text - 'A' + 'a');
        }
    }
}

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
        std::size_t length = 0;
        const char* name = json_member_name(reader, &length);
        if (name == nullptr || !read_member(std::string_view(name, length))) {
            return false;
        }
        next = json_object_separator(reader);
    }
    return next == JsonNext::End;
}

// One document being read into one session data object.
class DocumentReader {
public:
    DocumentReader(JsonReader& reader, SessionMailData& data, NameCase name_case, DocumentExtension* extension)
        : reader_(reader), data_(data), name_case_(name_case), extension_(extension) {}

    bool read_top_member(std::string_view name) {
        if (is_member(name, "domain")) {
            return read_object(reader_, EmptyObject::Refused,
                               [this](std::string_view member) { return read_domain_member(member); });
        }
        if (is_member(name, "certificates")) {
            return read_certificates();
        }
        return json_skip_value(reader_);
    }

private:
    // Names that the session compares are lower-cased as stored; mailing
    // lists and certificate files are kept as written.
    enum class Stored { AsWritten, AsName };

    // A member the session does not keep: the extension's, or skipped.
    bool read_other_member(DocumentExtension::Read read) {
        if (read == DocumentExtension::Read::Skipped) {
            return json_skip_value(reader_);
        }
        return read == DocumentExtension::Read::Taken;
    }

    bool read_other_domain_member(std::string_view name) {
        if (extension_ == nullptr) {
            return json_skip_value(reader_);
        }
        return read_other_member(extension_->read_domain_member(reader_, name));
    }

    bool read_other_mail_member(std::size_t mail, std::string_view name) {
        if (extension_ == nullptr) {
            return json_skip_value(reader_);
        }
        return read_other_member(extension_->read_mail_member(reader_, mail, name));
    }

    bool read_checked_name(char*& target, NameRule rule, const char* failure, Stored stored) {
        std::size_t length = 0;
        char* text = json_string(reader_, &length);
        if (text == nullptr) {
            return false;
        }
        if (!rule(std::string_view(text, length))) {
            return json_fail(reader_, JsonError::ConstraintFailed, failure);
        }
        store(target, text, length, stored);
        return true;
    }

    void store(char*& target, char* text, std::size_t length, Stored stored) {
        if (stored == Stored::AsName && name_case_ == NameCase::Lower) {
            lower_case(text, length);
        }
        target = text;
    }

    // The list is gathered in a scratch vector and then copied at its exact
    // size: a domain may have very many mails, each with its own list.
    bool read_name_list(std::vector<char*>& list, NameRule rule, const char* failure, Stored stored) {
        scratch_.clear();
        const bool read = json_read_array(reader_, [&] {
            char* name = nullptr;
            if (!read_checked_name(name, rule, failure, stored)) {
                return false;
            }
            scratch_.push_back(name);
            return true;
        });
        list.assign(scratch_.begin(), scratch_.end());
        return read;
    }

    bool read_quota(std::int64_t& quota) {
        if (!json_int64(reader_, quota)) {
            return false;
        }
        return quota >= -1 || json_fail(reader_, JsonError::ConstraintFailed, "Mailbox quota value is out of bounds");
    }

    bool read_quota_unit(const char*& unit) {
        std::size_t length = 0;
        const char* text = json_string(reader_, &length);
        if (text == nullptr) {
            return false;
        }
        for (std::string_view known : {"B", "KB", "MB", "GB", "TB"}) {
            if (std::string_view(text, length) == known) {
                unit = text;
                return true;
            }
        }
        return json_fail(reader_, JsonError::ConstraintFailed, "Mailbox quota unit value is invalid");
    }

    bool read_mail_member(SessionMail& mail, std::size_t index, std::string_view name) {
        if (is_member(name, "name")) {
            return read_checked_name(mail.name, is_valid_mail_name, "Mailname is not valid", Stored::AsName);
        }
        if (is_member(name, "mbox_quota")) {
            return read_quota(mail.mbox_quota);
        }
        if (is_member(name, "mbox_quota_unit")) {
            return read_quota_unit(mail.mbox_quota_unit);
        }
        if (is_member(name, "aliases")) {
            return read_name_list(mail.aliases, is_valid_mail_name, "Mail alias is not valid", Stored::AsName);
        }
        return read_other_mail_member(index, name);
    }

    bool read_mails() {
        data_.mails.clear();
        return json_read_array(reader_, [this] {
            const std::size_t index = data_.mails.size();
            SessionMail& mail = data_.mails.emplace_back();
            return read_object(reader_, EmptyObject::Refused,
                               [&](std::string_view name) { return read_mail_member(mail, index, name); });
        });
    }

    bool read_domain_member(std::string_view name) {
        if (is_member(name, "name")) {
            return read_checked_name(data_.domain_name, is_valid_domain_name, "Domain name is not valid",
                                     Stored::AsName);
        }
        if (is_member(name, "dom_aliases")) {
            return read_name_list(data_.domain_aliases, is_valid_domain_name, "Domain alias is not valid",
                                  Stored::AsName);
        }
        if (is_member(name, "maillists")) {
            return read_name_list(data_.maillists, is_valid_mail_name, "Maillist is not valid", Stored::AsWritten);
        }
        if (is_member(name, "mails")) {
            return read_mails();
        }
        // The domain's own "mbox_quota" and "mbox_quota_unit" are documented
        // but not kept; they are skipped with everything else.
        return read_other_domain_member(name);
    }

    bool read_certificate_text(char*& target, Stored stored) {
        std::size_t length = 0;
        char* text = json_string(reader_, &length);
        if (text == nullptr) {
            return false;
        }
        store(target, text, length, stored);
        return true;
    }

    bool read_certificate_member(SessionCertificate& certificate, std::string_view name) {
        if (is_member(name, "name")) {
            return read_certificate_text(certificate.name, Stored::AsName);
        }
        if (is_member(name, "certfile")) {
            return read_certificate_text(certificate.certfile, Stored::AsWritten);
        }
        return json_skip_value(reader_);
    }

    bool read_certificates() {
        data_.certificates.clear();
        return json_read_array(reader_, [this] {
            SessionCertificate& certificate = data_.certificates.emplace_back();
            return read_object(reader_, EmptyObject::Allowed,
                               [&](std::string_view name) { return read_certificate_member(certificate, name); });
        });
    }

    JsonReader& reader_;
    SessionMailData& data_;
    NameCase name_case_;
    DocumentExtension* extension_;
    std::vector<char*> scratch_;
};

}  // namespace

JsonError read_stdin_document(JsonReader& reader, SessionMailData& data, NameCase name_case,
                              DocumentExtension* extension) {
    try {
        DocumentReader document(reader, data, name_case, extension);
        read_object(reader, EmptyObject::Refused,
                    [&](std::string_view name) { return document.read_top_member(name); });
    } catch (const std::bad_alloc&) {
        json_fail(reader, JsonError::OutOfMemory);
    }
    return reader.error;
}

}  // namespace crelm::mail
