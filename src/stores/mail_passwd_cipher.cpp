#include "stores/mail_passwd_cipher.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <forward_list>
#include <memory>
#include <vector>

#include "runtime/log.h"
#include "stores/base64_codec.h"
#include "stores/store_file_check.h"
#include "util/unique_fd.h"

namespace {

constexpr std::size_t kMaxKeyLength = 80;
// Input of this size or more does not fit the int lengths of the EVP calls.
constexpr std::size_t kMaxCipherInput = 2147483647;

struct EvpContextFree {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using EvpContext = std::unique_ptr<EVP_CIPHER_CTX, EvpContextFree>;

// One cipher context per cipher text ("AES-256-CBC:PKCS"). The one in use asks
// for a fresh random IV per message and PKCS#7 padding, so the IV is never read
// from the key file.
struct MailPasswdCipher {
    std::string name;
    const EVP_CIPHER* cipher = nullptr;
    std::array<unsigned char, kMaxKeyLength> key{};
    std::array<unsigned char, EVP_MAX_IV_LENGTH> iv{};
    EvpContext encryption;  // created at first use; later messages only re-set the IV
    int use_count = 0;

    MailPasswdCipher() = default;
    MailPasswdCipher(const MailPasswdCipher&) = delete;
    MailPasswdCipher& operator=(const MailPasswdCipher&) = delete;
    ~MailPasswdCipher() { OPENSSL_cleanse(key.data(), key.size()); }

    std::size_t key_length() const { return static_cast<std::size_t>(EVP_CIPHER_get_key_length(cipher)); }
    std::size_t iv_length() const { return static_cast<std::size_t>(EVP_CIPHER_get_iv_length(cipher)); }
};

using CipherList = std::forward_list<std::unique_ptr<MailPasswdCipher>>;

CipherList& contexts() {
    static CipherList list;
    return list;
}

MailPasswdCipher* find_context(std::string_view name) {
    for (const auto& context : contexts())
        if (context->name == name)
            return context.get();
    return nullptr;
}

void clear_contexts() {
    contexts().clear();
}

// The exit handler frees (and so wipes) every context left; it is registered
// after libcrypto's own, so it runs while libcrypto is still usable.
void initialise_crypto_once() {
    static bool initialised = false;
    if (initialised)
        return;
    initialised = true;
    contexts();
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_CIPHERS, nullptr);
    std::atexit(clear_contexts);
}

std::string cipher_name_of(std::string_view spec) {
    return std::string(spec.substr(0, spec.find(':')));
}

bool read_key_file(const std::string& path, std::span<unsigned char> key) {
    const crelm::util::UniqueFd fd = open_regular_store_file(path, "Can't read encryption key");
    if (!fd.valid()) {
        const int error = errno;
        log_message(3, "Can't read encryption key from '%s': %s (%d)", path.c_str(), std::strerror(error), error);
        return false;
    }
    errno = 0;
    if (read(fd.get(), key.data(), key.size()) != static_cast<ssize_t>(key.size())) {
        const int error = errno;
        log_message(3, "Failed to read entire encryption key from '%s': %s (%d)", path.c_str(), std::strerror(error),
                    error);
        return false;
    }
    return true;
}

std::unique_ptr<MailPasswdCipher> make_context(std::string_view spec, const std::string& key_path) {
    auto context = std::make_unique<MailPasswdCipher>();
    context->name = spec;
    context->cipher = EVP_get_cipherbyname(cipher_name_of(spec).c_str());
    if (context->cipher == nullptr)
        return nullptr;
    if (context->key_length() > kMaxKeyLength) {
        log_message(2, "Not enough space supplied to read encryption key data from '%s'", key_path.c_str());
        return nullptr;
    }
    if (context->key_length() == 0 || context->iv_length() > context->iv.size()) {
        log_message(3, "Failed to create encryption cipher '%s'. Invalid key or IV length?", context->name.c_str());
        return nullptr;
    }
    if (!read_key_file(key_path, std::span(context->key.data(), context->key_length())))
        return nullptr;
    return context;
}

bool cipher_init(std::string_view spec, const std::string& key_path) {
    if (MailPasswdCipher* held = find_context(spec)) {
        ++held->use_count;
        return true;
    }
    initialise_crypto_once();
    auto context = make_context(spec, key_path);
    if (!context) {
        log_message(3, "Failed to initialize encryption cipher '%s' with key '%s'", std::string(spec).c_str(),
                    key_path.c_str());
        return false;
    }
    context->use_count = 1;
    contexts().push_front(std::move(context));
    return true;
}

int cipher_release(std::string_view spec) {
    CipherList& list = contexts();
    for (auto before = list.before_begin(), it = list.begin(); it != list.end(); before = it++) {
        if ((*it)->name != spec)
            continue;
        if (--(*it)->use_count == 0)
            list.erase_after(before);
        return 0;
    }
    log_message(3, "Failed to correctly destroy encryption cipher '%s'. A programming error?",
                std::string(spec).c_str());
    return -1;
}

bool fits_cipher_input(std::size_t length, const char* kind) {
    if (length < kMaxCipherInput)
        return true;
    log_message(4, "Attempt to feed into symmetric cipher more %s data (%zu bytes) than it's designed to handle.", kind,
                length);
    return false;
}

bool start_encryption(MailPasswdCipher& context) {
    if (context.encryption)
        return EVP_EncryptInit_ex(context.encryption.get(), nullptr, nullptr, nullptr, context.iv.data()) == 1;
    context.encryption.reset(EVP_CIPHER_CTX_new());
    if (context.encryption && EVP_EncryptInit_ex(context.encryption.get(), context.cipher, nullptr, context.key.data(),
                                                 context.iv.data()) == 1)
        return true;
    context.encryption.reset();
    return false;
}

std::optional<std::vector<unsigned char>> encipher(MailPasswdCipher& context, std::string_view plain) {
    if (RAND_bytes(context.iv.data(), static_cast<int>(context.iv_length())) != 1 || !start_encryption(context))
        return std::nullopt;
    std::vector<unsigned char> out(plain.size() + EVP_CIPHER_get_block_size(context.cipher) + 1);
    int written = 0;
    int finished = 0;
    if (EVP_EncryptUpdate(context.encryption.get(), out.data(), &written,
                          reinterpret_cast<const unsigned char*>(plain.data()), static_cast<int>(plain.size())) != 1 ||
        EVP_EncryptFinal_ex(context.encryption.get(), out.data() + written, &finished) != 1)
        return std::nullopt;
    out.resize(static_cast<std::size_t>(written + finished));
    return out;
}

std::optional<std::string> decipher(const MailPasswdCipher& context, const std::vector<unsigned char>& input) {
    const EvpContext evp(EVP_CIPHER_CTX_new());
    std::vector<unsigned char> out(input.size() + EVP_CIPHER_get_block_size(context.cipher) + 1);
    int written = 0;
    int finished = 0;
    const bool deciphered =
        evp && EVP_DecryptInit_ex(evp.get(), context.cipher, nullptr, context.key.data(), context.iv.data()) == 1 &&
        EVP_DecryptUpdate(evp.get(), out.data(), &written, input.data(), static_cast<int>(input.size())) == 1 &&
        EVP_DecryptFinal_ex(evp.get(), out.data() + written, &finished) == 1;
    std::optional<std::string> plain;
    if (deciphered)
        plain.emplace(reinterpret_cast<const char*>(out.data()), static_cast<std::size_t>(written + finished));
    OPENSSL_cleanse(out.data(), out.size());
    if (!deciphered)
        errno = EBADMSG;
    return plain;
}

// The fields of "$spec$iv$cipher text": the IV is what lies between the
// second and the last "$", empty in the two-field form "$spec$cipher text".
struct StoredFields {
    std::string_view spec;
    std::string_view iv;
    std::string_view cipher_text;
};

StoredFields split_stored_form(std::string_view stored) {
    const std::size_t second = stored.find('$', 1);
    // memrchr: the cipher text field may be long, and it is scanned backwards.
    const auto* last_dollar = static_cast<const char*>(memrchr(stored.data(), '$', stored.size()));
    const std::size_t last = static_cast<std::size_t>(last_dollar - stored.data());
    StoredFields fields;
    fields.spec = stored.substr(1, second - 1);
    fields.cipher_text = stored.substr(last + 1);
    if (last > second)
        fields.iv = stored.substr(second + 1, last - second - 1);
    return fields;
}

bool load_iv(MailPasswdCipher& context, std::string_view text) {
    const auto iv = base64_decode(text);
    if (!iv || iv->size() != context.iv_length())
        return false;
    std::memcpy(context.iv.data(), iv->data(), iv->size());
    return true;
}

std::optional<std::string> invalid_argument() {
    errno = EINVAL;
    return std::nullopt;
}

}  // namespace

bool mail_passwd_cipher_init(const std::string& key_path) {
    return cipher_init(kMailPasswdCipherSpec, key_path);
}

int mail_passwd_cipher_release() {
    return cipher_release(kMailPasswdCipherSpec);
}

bool mail_passwd_is_encrypted(std::string_view text) {
    return text.starts_with(kMailPasswdStoredPrefix);
}

std::optional<std::string> mail_passwd_encrypt(std::string_view plain) {
    MailPasswdCipher* context = find_context(kMailPasswdCipherSpec);
    if (context == nullptr || !fits_cipher_input(plain.size(), "plain"))
        return invalid_argument();
    const auto cipher_text = encipher(*context, plain);
    if (!cipher_text) {
        errno = EIO;
        return std::nullopt;
    }
    const std::span iv(context->iv.data(), context->iv_length());
    return "$" + context->name + "$" + base64_encode(iv) + "$" + base64_encode(*cipher_text);
}

std::optional<std::string> mail_passwd_decrypt(std::string_view stored) {
    if (!mail_passwd_is_encrypted(stored))
        return invalid_argument();
    const StoredFields fields = split_stored_form(stored);
    MailPasswdCipher* context = find_context(fields.spec);
    if (context == nullptr || (!fields.iv.empty() && !load_iv(*context, fields.iv)))
        return invalid_argument();
    if (!fits_cipher_input(base64_decoded_size(fields.cipher_text), "encrypted"))
        return invalid_argument();
    const auto cipher_text = base64_decode(fields.cipher_text);
    if (!cipher_text)
        return invalid_argument();
    return decipher(*context, *cipher_text);
}
