#include "qmail/assign_keys.h"
#include "util/io_block.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "mailbox/mailnames_root.h"
#include "qmail/control_names.h"
#include "qmail/paths.h"
#include "util/held_lines.h"
#include "util/unique_fd.h"

namespace crelm::qmail {
namespace {

// One record of assign, viewed in the text read: its kind, its key as
// written (compared without regard to case, as qmail-newu lower-cases it),
// its home and its whole line.
struct AssignRecord {
    char kind = '=';  // '=' or '+'
    std::string_view key;
    std::string_view home;
    std::string_view line;
};

// assign opened for reading, when it is a regular file (a FIFO or device
// planted in its place is not read).
util::UniqueFd open_assign() {
    util::UniqueFd fd(::open(kUsersAssign, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!fd.valid() || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return util::UniqueFd();
    return fd;
}

// "<kind><key>:<user>:<uid>:<gid>:<home>:..." ; nullopt for any other line.
std::optional<AssignRecord> parse_record(std::string_view line) {
    if (line.empty() || (line[0] != '=' && line[0] != '+'))
        return std::nullopt;
    std::string_view fields[5];
    std::size_t count = 0;
    std::size_t start = 1;
    for (std::size_t colon = line.find(':', start); colon != std::string_view::npos && count < 5;
         colon = line.find(':', start)) {
        fields[count++] = line.substr(start, colon - start);
        start = colon + 1;
    }
    if (count < 5)
        return std::nullopt;
    return AssignRecord{line[0], fields[0], fields[4], line};
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Whether text begins with prefix, case aside.
bool begins_with(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size())
        return false;
    for (std::size_t i = 0; i < prefix.size(); ++i)
        if (lower(text[i]) != lower(prefix[i]))
            return false;
    return true;
}

bool same_key(std::string_view key, std::string_view other) {
    return key.size() == other.size() && begins_with(key, other);
}

// Whether text is domain followed by "-" and more: an address of domain's.
bool dash_extends(std::string_view text, std::string_view domain) {
    return text.size() > domain.size() && begins_with(text, domain) && text[domain.size()] == '-';
}

// Whether the record is one of domain's: its home is the domain's
// directory or below it.
bool belongs_to(const AssignRecord& record, const std::string& domain) {
    if (domain.empty())
        return false;
    const std::string dir = mailbox::mailnames_root() + "/" + domain;
    return record.home == dir || (record.home.size() > dir.size() && record.home.substr(0, dir.size()) == dir &&
                                  record.home[dir.size()] == '/');
}

// Calls visit for each record above the closing "." line, as qmail-newu
// reads them, until it returns true; that record's whole line is the
// result. worth_parsing looks at a raw line first: a table of a million
// records is mostly lines that cannot matter, and they are passed over
// without being taken apart. assign is read in blocks into one buffer (a
// line that a read cut is carried to the next), so that a large table is
// never held whole; the lines given to both calls live until the next read.
// nullopt when no record was taken or assign cannot be read.
std::optional<std::string> first_record(const std::function<bool(std::string_view line)>& worth_parsing,
                                        const std::function<bool(const AssignRecord&)>& visit) {
    if (const util::LineTable* table = util::held_lines(kUsersAssign)) {
        // The lines a batch holds for assign, each with its newline.
        std::optional<std::string> found;
        table->for_each([&](util::LineTable::Id, std::string_view held) {
            const std::string_view line = held.substr(0, held.size() - 1);
            if (!line.empty() && line[0] == '.')
                return true;
            if (worth_parsing(line))
                if (const std::optional<AssignRecord> record = parse_record(line); record && visit(*record)) {
                    found = std::string(record->line);
                    return true;
                }
            return false;
        });
        return found;
    }
    const util::UniqueFd fd = open_assign();
    if (!fd.valid())
        return std::nullopt;
    std::size_t size = util::io_block_for(fd.get());
    std::unique_ptr<char[]> block = util::io_buffer(size);
    std::size_t held = 0;  // bytes in block: the carried line, then the last read
    for (;;) {
        if (held == size) {  // a line longer than the block
            std::unique_ptr<char[]> larger = util::io_buffer(2 * size);
            std::memcpy(larger.get(), block.get(), held);
            block = std::move(larger);
            size *= 2;
        }
        const ssize_t got = ::read(fd.get(), block.get() + held, size - held);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        const bool at_end = got == 0;
        held += static_cast<std::size_t>(got);
        const std::string_view text(block.get(), held);
        std::size_t start = 0;
        while (start < text.size()) {
            const std::size_t end = text.find('\n', start);
            if (end == std::string_view::npos && !at_end)
                break;
            const std::string_view line = text.substr(start, end == std::string_view::npos ? end : end - start);
            if (!line.empty() && line[0] == '.')
                return std::nullopt;
            if (worth_parsing(line))
                if (const std::optional<AssignRecord> record = parse_record(line); record && visit(*record))
                    return std::string(record->line);
            if (end == std::string_view::npos)
                return std::nullopt;
            start = end + 1;
        }
        if (at_end)
            return std::nullopt;
        std::memmove(block.get(), block.get() + start, held - start);
        held -= start;
    }
}

// first_record, when the only records that can be taken are those whose
// first field ("=<key>" or "+<key>", case aside) is one of fields: on the
// lines a batch holds for assign, only those records are looked at, through
// the table's index, in the order of the table and above its closing "."
// line; otherwise the whole table is read as first_record reads it.
std::optional<std::string> first_record_among(const std::vector<std::string>& fields,
                                              const std::function<bool(std::string_view line)>& worth_parsing,
                                              const std::function<bool(const AssignRecord&)>& visit) {
    const util::LineTable* table = util::held_lines(kUsersAssign);
    if (table == nullptr)
        return first_record(worth_parsing, visit);
    std::vector<util::LineTable::Id> ids;
    for (const std::string& field : fields)
        for (const util::LineTable::Id id : table->with_first_field(field))
            if (std::find(ids.begin(), ids.end(), id) == ids.end())
                ids.push_back(id);
    std::sort(ids.begin(), ids.end(), [table](util::LineTable::Id one, util::LineTable::Id other) {
        return table->position(one) < table->position(other);
    });
    const std::vector<util::LineTable::Id> dots = table->beginning_with_dot();
    const std::size_t end = dots.empty() ? SIZE_MAX : table->position(dots.front());
    for (const util::LineTable::Id id : ids) {
        if (table->position(id) >= end)
            break;
        const std::string_view held = table->line(id);
        const std::string_view line = held.substr(0, held.size() - 1);
        if (worth_parsing(line))
            if (const std::optional<AssignRecord> record = parse_record(line); record && visit(*record))
                return std::string(record->line);
    }
    return std::nullopt;
}

// The fields of the records that can hold key's addresses: its "=" record,
// and the "+" record of each domain whose addresses include it (each
// beginning of key that a '-' follows).
std::vector<std::string> fields_for_key(const std::string& key) {
    std::vector<std::string> fields{"=" + key};
    for (std::size_t dash = key.find('-'); dash != std::string::npos; dash = key.find('-', dash + 1))
        fields.push_back("+" + key.substr(0, dash));
    return fields;
}

// The domain whose mail names directory holds the record's home
// ("<mailnames>/<domain>/<name>"), or nullopt for a home elsewhere.
std::optional<std::string_view> owner_of(const AssignRecord& record) {
    const std::string root = mailbox::mailnames_root() + "/";
    if (record.home.size() <= root.size() || record.home.substr(0, root.size()) != root)
        return std::nullopt;
    const std::string_view below = record.home.substr(root.size());
    return below.substr(0, below.find('/'));
}

// Whether the "=" record of another domain, whose key lies in domain's
// addresses, is that domain's own by qmail's longest-prefix rule: its owner
// extends domain ("a.test-x.com" beside "a.test"), so the owner's "+"
// record, not domain's, answers for the whole of "<owner>-...".
bool owned_by_longer_domain(const AssignRecord& record, std::string_view domain) {
    const std::optional<std::string_view> owner = owner_of(record);
    return owner && dash_extends(*owner, domain) && (begins_with(record.key, std::string(*owner) + "-"));
}

// Raw lines that may hold the "=" record of key, and every "+" record.
bool may_be_key_or_domain(std::string_view line, std::string_view key) {
    if (line.empty())
        return false;
    if (line[0] == '+')
        return true;
    return line[0] == '=' && line.size() > key.size() + 1 && line[key.size() + 1] == ':' &&
           begins_with(line.substr(1), key);
}

// A "+" record: its key (the domain) and its whole line.
struct DomainRecord {
    std::string key;
    std::string line;
};

// The "+" records of the domains that extend domain ("<domain>-..."),
// other than domain's and renamed_from's own.
std::vector<DomainRecord> longer_neighbours(const std::string& domain, const std::string& renamed_from) {
    std::vector<DomainRecord> neighbours;
    first_record([](std::string_view line) { return line.starts_with('+'); },
                 [&](const AssignRecord& record) {
                     if (!belongs_to(record, domain) && !belongs_to(record, renamed_from) &&
                         dash_extends(record.key, domain))
                         neighbours.push_back({std::string(record.key), std::string(record.line)});
                     return false;
                 });
    return neighbours;
}

// Renaming renamed_from to domain gives each of its "=" records the key
// "<domain>-<name>"; the first "+" record of a longer domain whose addresses
// such a key would then lie in, or nullopt.
std::optional<std::string> renamed_keys_collision(const std::string& domain, const std::string& renamed_from) {
    const std::vector<DomainRecord> neighbours = longer_neighbours(domain, renamed_from);
    if (neighbours.empty())
        return std::nullopt;
    const std::string old_prefix = renamed_from + "-";
    std::optional<std::string> found;
    first_record([](std::string_view line) { return line.starts_with('='); },
                 [&](const AssignRecord& record) {
                     if (!belongs_to(record, renamed_from) || !begins_with(record.key, old_prefix))
                         return false;
                     const std::string renamed_key = domain + std::string(record.key.substr(renamed_from.size()));
                     for (const DomainRecord& neighbour : neighbours)
                         if (dash_extends(renamed_key, neighbour.key)) {
                             found = neighbour.line;
                             return true;
                         }
                     return false;
                 });
    return found;
}

}  // namespace

std::optional<std::string> mail_key_collision(const std::string& domain, const std::string& name) {
    const std::string key = domain + "-" + name;
    return first_record_among(fields_for_key(key), [&](std::string_view line) { return may_be_key_or_domain(line, key); },
                        [&](const AssignRecord& record) {
                            if (belongs_to(record, domain))
                                return false;
                            if (record.kind == '=')
                                return same_key(record.key, key);
                            // A shorter domain's addresses that domain's own
                            // "+" record already answers for are not taken.
                            return dash_extends(key, record.key) && !dash_extends(domain, record.key);
                        });
}

std::vector<bool> mail_keys_in_assign(const std::string& domain, const std::vector<std::string>& names) {
    std::vector<std::string> keys;
    for (const std::string& name : names)
        keys.push_back(domain + "-" + name);
    std::vector<bool> found(keys.size(), false);
    std::size_t left = keys.size();
    const auto may_hold_a_key = [&](std::string_view line) {
        if (!line.starts_with('='))
            return false;
        for (const std::string& key : keys)
            if (may_be_key_or_domain(line, key))
                return true;
        return false;
    };
    std::vector<std::string> fields;
    for (const std::string& key : keys)
        fields.push_back("=" + key);
    // Goes on until every key has been found (or assign ends).
    first_record_among(fields, may_hold_a_key, [&](const AssignRecord& record) {
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (!found[i] && record.kind == '=' && same_key(record.key, keys[i])) {
                found[i] = true;
                --left;
            }
        }
        return left == 0;
    });
    return found;
}

std::optional<std::string> domain_key_collision(const std::string& domain, const std::string& renamed_from) {
    const std::string prefix = domain + "-";
    std::optional<std::string> record_line = first_record(
        [&](std::string_view line) {
            return line.starts_with('+') || (line.starts_with('=') && begins_with(line.substr(1), prefix));
        },
        [&](const AssignRecord& record) {
            if (belongs_to(record, domain) || belongs_to(record, renamed_from))
                return false;
            if (record.kind == '+')
                return same_key(record.key, domain);
            return begins_with(record.key, prefix) && !owned_by_longer_domain(record, domain);
        });
    if (record_line || renamed_from.empty())
        return record_line;
    return renamed_keys_collision(domain, renamed_from);
}

std::optional<std::string> domain_alias_collision(const std::string& alias) {
    const std::string dir = mailbox::mailnames_root() + "/" + alias;
    return first_record(
        [&](std::string_view line) { return line.starts_with('+') || line.find(dir) != std::string_view::npos; },
        [&](const AssignRecord& record) {
            return belongs_to(record, alias) || (record.kind == '+' && same_key(record.key, alias));
        });
}

}  // namespace crelm::qmail
