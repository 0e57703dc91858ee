// Domain signing-key directories under /etc/domainkeys: one directory per
// mail domain, named after the domain in lower case. sorvane never reads the
// keys; it only keeps their directories in step when a domain is removed,
// copied or renamed, so that the keys follow the domain.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace crelm::mail::dkim {

// A key directory operation that could not be carried out.
class SystemError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// "/etc/domainkeys".
const std::filesystem::path& domain_keys_base();

// The key directory of a domain: the base joined with the domain lower-cased
// character by character. Throws SystemError for a name that would leave the
// base directory (empty, ".", ".." or holding a "/").
std::filesystem::path domain_key_dir(const std::string& domain);

// Removes the domain's key directory and everything in it; a missing
// directory is not an error. Throws std::filesystem::filesystem_error.
void removeDomainKeys(const std::string& domain);

// Removes one entry (a file or an empty directory); a missing entry is not an
// error. Throws std::filesystem::filesystem_error.
void removeDomainKeyEntry(const std::filesystem::path& path);

// If the source domain has a key directory, copies it recursively to the
// destination domain's key directory (symbolic links are copied as links,
// existing files are overwritten). Throws std::filesystem::filesystem_error.
void copyDomainKeys(const std::string& from, const std::string& to);

// If the source domain has a key directory, renames it to the destination
// domain's. Throws std::filesystem::filesystem_error (for instance when the
// destination is a directory that is not empty).
void moveDomainKeys(const std::string& from, const std::string& to);

// The rename used when a domain is renamed: nothing to do without an old key
// directory; an old path that is no directory throws SystemError "key
// directory path <path>is not a directory"; an existing destination is
// removed completely and replaced, never merged. Throws SystemError or
// std::filesystem::filesystem_error.
void renameDomainKeys(const std::string& old_domain, const std::string& new_domain);

// renameDomainKeys that never throws: true on success; on failure writes
// "cannot rename domain <old> to <new>: <reason>" to standard error and
// returns false, so that the domain rename goes on without its keys.
bool renameDomainKeysReport(const std::string& old_domain, const std::string& new_domain);

}  // namespace crelm::mail::dkim
