#include "mailbox/domain_keys.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <system_error>

namespace fs = std::filesystem;

namespace crelm::mail::dkim {
namespace {

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A key directory name must stay one level below the base: the removals
// below run as root on whatever path the name gives.
bool is_safe_entry_name(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

bool exists_without_following(const fs::path& path) {
    std::error_code ec;
    return fs::exists(fs::symlink_status(path, ec));
}

void remove_destination(const fs::path& path) {
    std::error_code ec;
    fs::remove_all(path, ec);
    if (ec)
        throw SystemError("Cannot remove destination path: " + path.string());
}

void create_empty_destination(const fs::path& path) {
    std::error_code ec;
    if (!fs::create_directory(path, ec) || ec)
        throw SystemError("cannot create directory: " + path.string());
}

}  // namespace

const fs::path& domain_keys_base() {
    static const fs::path base = "/etc/domainkeys";
    return base;
}

fs::path domain_key_dir(const std::string& domain) {
    const std::string name = lower_case(domain);
    if (!is_safe_entry_name(name))
        throw SystemError("invalid domain name for a key directory: '" + domain + "'");
    return domain_keys_base() / name;
}

void removeDomainKeys(const std::string& domain) {
    fs::remove_all(domain_key_dir(domain));
}

void removeDomainKeyEntry(const fs::path& path) {
    fs::remove(path);
}

void copyDomainKeys(const std::string& from, const std::string& to) {
    const fs::path source = domain_key_dir(from);
    if (!exists_without_following(source))
        return;
    fs::copy(source, domain_key_dir(to),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks |
                 fs::copy_options::overwrite_existing);
}

void moveDomainKeys(const std::string& from, const std::string& to) {
    const fs::path source = domain_key_dir(from);
    if (!exists_without_following(source))
        return;
    fs::rename(source, domain_key_dir(to));
}

void renameDomainKeys(const std::string& old_domain, const std::string& new_domain) {
    const fs::path old_dir = domain_key_dir(old_domain);
    const fs::path new_dir = domain_key_dir(new_domain);
    if (!exists_without_following(old_dir))
        return;
    if (!fs::is_directory(fs::symlink_status(old_dir)))
        throw SystemError("key directory path " + old_dir.string() + "is not a directory");
    // A rename that only changes the case of the domain keeps the same
    // directory: removing the "destination" would destroy the keys.
    if (old_dir == new_dir)
        return;
    if (exists_without_following(new_dir))
        remove_destination(new_dir);
    create_empty_destination(new_dir);
    fs::rename(old_dir, new_dir);
}

bool renameDomainKeysReport(const std::string& old_domain, const std::string& new_domain) {
    try {
        renameDomainKeys(old_domain, new_domain);
        return true;
    } catch (const std::exception& e) {
        std::cerr << "cannot rename domain " << old_domain << " to " << new_domain << ": " << e.what()
                  << "\n";
    } catch (...) {
        std::cerr << "cannot rename domain " << old_domain << " to " << new_domain << ": unknown error\n";
    }
    std::cerr.flush();
    return false;
}

}  // namespace crelm::mail::dkim
