#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <set>

#include "audit/picture.h"
#include "audit/picture_members.h"
#include "session/input_buffer.h"
#include "session/mail_data_normalize.h"

namespace crelm::audit {

namespace {

using mail::JsonError;
using mail::JsonReader;

// Quotas in bytes as the session has them after its conversion: a quota
// above 0 times its unit's multiplier, anything else as written.
std::int64_t quota_in_bytes(const mail::SessionMail& mail) {
    if (mail.mbox_quota <= 0)
        return mail.mbox_quota;
    const auto product = static_cast<std::uint64_t>(mail.mbox_quota) *
                         static_cast<std::uint64_t>(mail::quota_unit_multiplier(mail.mbox_quota_unit));
    return static_cast<std::int64_t>(product);
}

std::vector<std::string> texts_of(const std::vector<char*>& names) {
    return std::vector<std::string>(names.begin(), names.end());
}

PictureDomain domain_of(const mail::SessionMailData& data, PictureMembers& members) {
    PictureDomain domain;
    domain.name = data.domain_name;
    domain.aliases = texts_of(data.domain_aliases);
    domain.enabled = members.enabled;
    domain.action = std::move(members.action);
    members.mailboxes.resize(data.mails.size());
    for (std::size_t i = 0; i < data.mails.size(); ++i) {
        const mail::SessionMail& read = data.mails[i];
        domain.mails.push_back({read.name, quota_in_bytes(read), texts_of(read.aliases), members.mailboxes[i]});
    }
    return domain;
}

bool mails_are_named(const mail::SessionMailData& data) {
    for (const mail::SessionMail& mail : data.mails)
        if (mail.name == nullptr)
            return false;
    return true;
}

// One document of the array: sorvane's reader with the audit's members. A
// domain or mail without its name, or a domain given twice, is refused: the
// picture would say nothing about it, or two things.
bool read_domain(JsonReader& reader, std::set<std::string>& seen, Picture& picture) {
    mail::SessionMailData data;
    PictureMembers members;
    if (mail::read_stdin_document(reader, data, mail::NameCase::Lower, &members) != JsonError::Ok)
        return false;
    if (data.domain_name == nullptr || !mails_are_named(data))
        return mail::json_fail(reader, JsonError::RequiredFieldsMissing);
    if (!seen.insert(data.domain_name).second)
        return mail::json_fail(reader, JsonError::ConstraintFailed, "Domain is given twice");
    picture.domains.push_back(domain_of(data, members));
    return true;
}

bool read_domains(JsonReader& reader, Picture& picture) {
    std::set<std::string> seen;
    try {
        return mail::json_read_array(reader, [&] { return read_domain(reader, seen, picture); });
    } catch (const std::bad_alloc&) {
        return mail::json_fail(reader, JsonError::OutOfMemory);
    }
}

}  // namespace

bool parse_picture(char* buffer, Picture& picture, std::string& message) {
    mail::JsonReaderPtr reader(mail::json_reader_create(buffer));
    if (!reader) {
        message = "cannot allocate the document reader";
        return false;
    }
    errno = 0;
    if (read_domains(*reader, picture))
        return true;
    message = mail::json_error_text(*reader);
    return false;
}

bool read_picture(const std::string& path, Picture& picture, std::string& message) {
    const bool from_stdin = path == "-";
    std::FILE* stream = from_stdin ? stdin : std::fopen(path.c_str(), "re");
    const std::string source = from_stdin ? "STDIN" : path;
    if (stream == nullptr) {
        message = "cannot read " + source + ": " + std::strerror(errno);
        return false;
    }
    InputBuffer buffer = read_whole_stream(stream);
    const int read_error = errno;
    if (!from_stdin)
        std::fclose(stream);
    if (!buffer) {
        message = "cannot read " + source + ": " + std::strerror(read_error);
        return false;
    }
    if (parse_picture(buffer.get(), picture, message))
        return true;
    message = source + ": " + message;
    return false;
}

}  // namespace crelm::audit
