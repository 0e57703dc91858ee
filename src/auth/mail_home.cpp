#include "auth/mail_home.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "auth/cdb_lookup.h"
#include "qmail/paths.h"
#include "util/strict_number.h"
#include "util/unique_fd.h"

namespace crelm::auth {

namespace {

struct FileClose {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileClose>;

enum class Found { yes, no, failed };

std::string reason(const std::string& path) { return path + ": " + std::strerror(errno); }

// The prefix that control/virtualdomains gives the address: an entry for the
// whole address first, else one for its domain (qmail's order; sorvane
// writes only domain entries). An empty prefix means the domain is not
// virtual here.
Found virtual_prefix(const std::string& path, const LoginAddress& address, std::string& prefix,
                     std::string& failure) {
    const File file(std::fopen(path.c_str(), "re"));
    if (!file) {
        if (errno == ENOENT)
            return Found::no;
        failure = reason(path);
        return Found::failed;
    }
    const std::string whole = address.text() + ":";
    const std::string domain = address.domain + ":";
    std::string domain_prefix;
    char* line = nullptr;
    size_t capacity = 0;
    ssize_t length = 0;
    Found found = Found::no;
    while ((length = ::getline(&line, &capacity, file.get())) > 0) {
        std::string_view text(line, static_cast<std::size_t>(length));
        if (text.back() == '\n')
            text.remove_suffix(1);
        if (text.size() > whole.size() && text.substr(0, whole.size()) == whole) {
            prefix = text.substr(whole.size());
            found = Found::yes;
            break;
        }
        if (domain_prefix.empty() && text.size() > domain.size() && text.substr(0, domain.size()) == domain)
            domain_prefix = text.substr(domain.size());
    }
    const bool read_failed = std::ferror(file.get()) != 0;
    std::free(line);
    if (read_failed) {
        failure = reason(path);
        return Found::failed;
    }
    if (found == Found::yes)
        return found;
    prefix = domain_prefix;
    return prefix.empty() ? Found::no : Found::yes;
}

std::string lower_ascii(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> fields;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find(separator, start)) != std::string_view::npos; start = end + 1)
        fields.emplace_back(text.substr(start, end - start));
    fields.emplace_back(text.substr(start));
    return fields;
}

// user, uid, gid, home (then dash and extension) of one record.
HomeLookup take_fields(const std::vector<std::string>& fields, MailHome& home) {
    if (fields.size() < 4)
        return HomeLookup::unusable;
    const int uid = parse_strict_number(fields[1]);
    const int gid = parse_strict_number(fields[2]);
    if (uid <= 0 || gid <= 0 || fields[3].empty() || fields[3][0] != '/')
        return HomeLookup::unusable;
    home.uid = static_cast<uid_t>(uid);
    home.gid = static_cast<gid_t>(gid);
    home.home = fields[3];
    return HomeLookup::found;
}

// The exact record "=<local>:user:uid:gid:home:dash:ext:" of users/assign,
// for a server where qmail-newu has not compiled it yet.
HomeLookup assign_record(const std::string& path, const std::string& local, MailHome& home, std::string& failure) {
    const File file(std::fopen(path.c_str(), "re"));
    if (!file) {
        if (errno == ENOENT)
            return HomeLookup::missing;
        failure = reason(path);
        return HomeLookup::failed;
    }
    char* line = nullptr;
    size_t capacity = 0;
    ssize_t length = 0;
    HomeLookup found = HomeLookup::missing;
    const std::string key = "=" + local + ":";
    while ((length = ::getline(&line, &capacity, file.get())) > 0) {
        std::string text(line, static_cast<std::size_t>(length));
        if (text.back() == '\n')
            text.pop_back();
        if (text == ".")
            break;
        if (text.size() > key.size() && lower_ascii(text.substr(0, key.size())) == key) {
            found = take_fields(split(std::string_view(text).substr(key.size()), ':'), home);
            break;
        }
    }
    const bool read_failed = std::ferror(file.get()) != 0;
    std::free(line);
    if (read_failed) {
        failure = reason(path);
        return HomeLookup::failed;
    }
    return found;
}

}  // namespace

MailHomePaths qmail_home_paths() {
    return {crelm::qmail::kVirtualDomains, std::string(crelm::qmail::kQmailRoot) + "/users/cdb",
            crelm::qmail::kUsersAssign};
}

HomeLookup find_mail_home(const MailHomePaths& paths, const LoginAddress& address, MailHome& home,
                          std::string& failure) {
    std::string prefix;
    const Found virtual_domain = virtual_prefix(paths.virtualdomains, address, prefix, failure);
    if (virtual_domain != Found::yes)
        return virtual_domain == Found::failed ? HomeLookup::failed : HomeLookup::missing;
    const std::string local = lower_ascii(prefix + "-" + address.local);
    const crelm::util::UniqueFd fd(::open(paths.users_cdb.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!fd.valid()) {
        if (errno == ENOENT)
            return assign_record(paths.users_assign, local, home, failure);
        failure = reason(paths.users_cdb);
        return HomeLookup::failed;
    }
    std::string value;
    const std::string key = "!" + local + std::string(1, '\0');
    switch (cdb_find(fd.get(), key, value)) {
    case CdbLookup::found:
        if (!value.empty() && value.back() == '\0')
            value.pop_back();
        return take_fields(split(value, '\0'), home);
    case CdbLookup::missing:
        return HomeLookup::missing;
    case CdbLookup::failed:
        break;
    }
    failure = reason(paths.users_cdb);
    return HomeLookup::failed;
}

}  // namespace crelm::auth
