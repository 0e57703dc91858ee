#include "qmail/assign_keys.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string_view>
#include <vector>

#include "mailbox/mailnames_root.h"
#include "qmail/control_names.h"
#include "qmail/paths.h"
#include "util/unique_fd.h"

namespace crelm::qmail {
namespace {

struct AssignRecord {
    char kind = '=';  // '=' or '+'
    std::string key;
    std::string home;
    std::string line;
};

std::optional<std::string> read_assign() {
    const util::UniqueFd fd(::open(kUsersAssign, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid())
        return std::nullopt;
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            return text;
        text.append(buffer, static_cast<std::size_t>(got));
    }
}

// "<kind><key>:<user>:<uid>:<gid>:<home>:..." ; nullopt for any other line.
std::optional<AssignRecord> parse_record(std::string_view line) {
    if (line.empty() || (line[0] != '=' && line[0] != '+'))
        return std::nullopt;
    std::vector<std::string_view> fields;
    std::size_t start = 1;
    for (std::size_t colon = line.find(':', start); colon != std::string_view::npos && fields.size() < 5;
         colon = line.find(':', start)) {
        fields.push_back(line.substr(start, colon - start));
        start = colon + 1;
    }
    if (fields.size() < 5)
        return std::nullopt;
    return AssignRecord{line[0], lower_ascii(std::string(fields[0])), std::string(fields[4]), std::string(line)};
}

// The records above the closing "." line, as qmail-newu reads them.
std::vector<AssignRecord> assign_records() {
    std::vector<AssignRecord> records;
    const std::optional<std::string> text = read_assign();
    if (!text)
        return records;
    std::string_view rest(*text);
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        if (!line.empty() && line[0] == '.')
            break;
        if (std::optional<AssignRecord> record = parse_record(line))
            records.push_back(std::move(*record));
        if (end == std::string_view::npos)
            break;
        rest.remove_prefix(end + 1);
    }
    return records;
}

bool begins_with(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// Whether the record is one of domain's: its home is the domain's
// directory or below it.
bool belongs_to(const AssignRecord& record, const std::string& domain) {
    if (domain.empty())
        return false;
    const std::string dir = mailbox::mailnames_root() + "/" + domain;
    return record.home == dir || begins_with(record.home, dir + "/");
}

// Whether the addresses of the domains "<one>" and "<other>" overlap.
bool domains_share(const std::string& one, const std::string& other) {
    return begins_with(one, other + "-") || begins_with(other, one + "-");
}

std::optional<std::string> first_record(const std::function<bool(const AssignRecord&)>& collides) {
    for (const AssignRecord& record : assign_records())
        if (collides(record))
            return record.line;
    return std::nullopt;
}

}  // namespace

std::optional<std::string> mail_key_collision(const std::string& domain, const std::string& name) {
    const std::string key = domain + "-" + name;
    return first_record([&](const AssignRecord& record) {
        if (belongs_to(record, domain))
            return false;
        return record.kind == '=' ? record.key == key : begins_with(key, record.key + "-");
    });
}

bool mail_key_in_assign(const std::string& domain, const std::string& name) {
    const std::string key = domain + "-" + name;
    return first_record([&](const AssignRecord& record) { return record.kind == '=' && record.key == key; })
        .has_value();
}

std::optional<std::string> domain_key_collision(const std::string& domain, const std::string& renamed_from) {
    return first_record([&](const AssignRecord& record) {
        if (belongs_to(record, domain) || belongs_to(record, renamed_from))
            return false;
        return record.kind == '=' ? begins_with(record.key, domain + "-") : domains_share(domain, record.key);
    });
}

std::optional<std::string> domain_alias_collision(const std::string& alias) {
    return first_record([&](const AssignRecord& record) {
        return belongs_to(record, alias) || (record.kind == '+' && record.key == alias);
    });
}

}  // namespace crelm::qmail
