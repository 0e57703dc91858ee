#include "stores/library_warm_up.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <grp.h>
#include <pwd.h>
#include <sqlite3.h>

#include <array>
#include <memory>
#include <string>

#include "stores/mail_passwd_cipher.h"

namespace {

struct CipherContextFree {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

void warm_up_cipher() {
    const std::string name(kMailPasswdCipherSpec.substr(0, kMailPasswdCipherSpec.find(':')));
    const EVP_CIPHER* cipher = EVP_get_cipherbyname(name.c_str());
    const std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree> context(EVP_CIPHER_CTX_new());
    if (cipher == nullptr || !context)
        return;
    const std::array<unsigned char, EVP_MAX_KEY_LENGTH> zero_key{};
    const std::array<unsigned char, EVP_MAX_IV_LENGTH> zero_iv{};
    EVP_EncryptInit_ex(context.get(), cipher, nullptr, zero_key.data(), zero_iv.data());
}

void warm_up_random() {
    std::array<unsigned char, 16> bytes{};
    RAND_bytes(bytes.data(), static_cast<int>(bytes.size()));
    OPENSSL_cleanse(bytes.data(), bytes.size());
}

// A statement prepared and run on a database that lives in memory only.
void warm_up_sqlite() {
    if (sqlite3_initialize() != SQLITE_OK)
        return;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) == SQLITE_OK)
        sqlite3_exec(db, "CREATE TABLE t (a TEXT PRIMARY KEY); INSERT INTO t VALUES ('a'); SELECT a FROM t;", nullptr,
                     nullptr, nullptr);
    sqlite3_close(db);
}

// The C library's name service reads its configuration and looks for its
// caching daemon at the first user or group lookup of a process; the
// entries themselves are read afresh at every lookup, so nothing looked up
// here is carried over.
void warm_up_name_service() {
    ::getpwuid(0);
    ::getgrgid(0);
}

}  // namespace

void warm_up_libraries_before_forks() {
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
    warm_up_cipher();
    warm_up_random();
    warm_up_sqlite();
    warm_up_name_service();
}
