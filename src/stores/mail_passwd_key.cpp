// Generation of the password cipher's key and re-creation of its key file.
#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "runtime/log.h"
#include "stores/mail_passwd_cipher.h"
#include "util/unique_fd.h"

namespace {

constexpr std::size_t kKeyFileLength = 32;

// Sets the process umask for as long as it lives, and restores the old one.
class UmaskScope {
public:
    explicit UmaskScope(mode_t mask) : saved_(umask(mask)) {}
    ~UmaskScope() { umask(saved_); }
    UmaskScope(const UmaskScope&) = delete;
    UmaskScope& operator=(const UmaskScope&) = delete;

private:
    mode_t saved_;
};

// Key bytes that are wiped when they go out of scope.
struct KeyBytes {
    std::array<unsigned char, kKeyFileLength> bytes{};
    KeyBytes() = default;
    KeyBytes(const KeyBytes&) = delete;
    KeyBytes& operator=(const KeyBytes&) = delete;
    ~KeyBytes() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
};

bool report_key_failure(const char* reason) {
    log_message(3, "Unable to re-create Mail Authentication Password Encryption Key: %s", reason);
    return false;
}

bool create_key_directory(const std::string& key_path) {
    const std::filesystem::path directory = std::filesystem::path(key_path).parent_path();
    std::error_code error;
    if (directory.empty() || std::filesystem::create_directories(directory, error) || !error)
        return true;
    return report_key_failure(error.message().c_str());
}

bool remove_old_key(const std::string& key_path) {
    if (unlink(key_path.c_str()) == 0 || errno == ENOENT)
        return true;
    return report_key_failure(std::strerror(errno));
}

// A new file only (O_EXCL, never through a link), so that nothing placed at
// the path between the unlink and here receives the key.
bool write_new_key(const std::string& key_path, const KeyBytes& key) {
    const UmaskScope private_files(077);
    crelm::util::UniqueFd fd(open(key_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (!fd.valid())
        return report_key_failure(std::strerror(errno));
    errno = 0;
    const bool written = write(fd.get(), key.bytes.data(), key.bytes.size()) == static_cast<ssize_t>(key.bytes.size());
    if (written && fd.close() == 0)
        return true;
    const int error = errno != 0 ? errno : EIO;
    unlink(key_path.c_str());
    return report_key_failure(std::strerror(error));
}

}  // namespace

std::size_t generate_key_data(std::span<unsigned char> buffer) {
    const auto length = static_cast<std::size_t>(EVP_CIPHER_get_key_length(EVP_aes_256_cbc()));
    if (buffer.size() < length) {
        errno = EINVAL;
        return 0;
    }
    if (RAND_bytes(buffer.data(), static_cast<int>(length)) != 1) {
        errno = EIO;
        return 0;
    }
    return length;
}

int recreate_mail_passwd_key(const std::string& key_path) {
    if (!create_key_directory(key_path) || !remove_old_key(key_path))
        return -1;
    KeyBytes key;
    if (generate_key_data(key.bytes) != key.bytes.size()) {
        log_message(3, "Unable to generate new Mail Authentication Password Encryption Key data: %s",
                    std::strerror(errno));
        return -1;
    }
    return write_new_key(key_path, key) ? 0 : -1;
}
