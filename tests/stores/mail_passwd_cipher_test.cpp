// The password cipher: stored form, independent decryption by the openssl
// program, key handling, use counts and refusals.
#include "stores/mail_passwd_cipher.h"

#include <cerrno>

#include "stores/base64_codec.h"
#include "stores/mail_auth_paths.h"
#include "stores/store_test_support.h"
#include "support/repeated_text.h"

namespace sorvane::test {
namespace {

std::string bytes_from(unsigned char first, std::size_t count) {
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes += static_cast<char>(first + i);
    return bytes;
}

const std::string kKeyA = bytes_from(0x00, 32);
const std::string kKeyAHex = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
const std::string kKeyB = bytes_from(0x20, 32);
const std::string kIvHex = "0f0e0d0c0b0a09080706050403020100";
const std::string kIvBase64 = "Dw4NDAsKCQgHBgUEAwIBAA==";

struct StoredFields {
    std::string iv;
    std::string cipher_text;
};

// Splits "$AES-256-CBC:PKCS$<iv>$<cipher text>".
StoredFields fields_of(const std::string& stored) {
    const auto second = stored.find('$', 1);
    const auto last = stored.rfind('$');
    return {stored.substr(second + 1, last - second - 1), stored.substr(last + 1)};
}

// Deciphers the Base64 fields with the openssl program alone.
ProcessResult openssl_decrypt(const std::string& key_hex, const StoredFields& fields) {
    const std::string script =
        "iv=$(printf %s \"$2\" | openssl base64 -d -A | od -An -v -tx1 | tr -d ' \\n') && "
        "printf %s \"$3\" | openssl enc -d -aes-256-cbc -a -A -K \"$1\" -iv \"$iv\"";
    return run_process({"/bin/sh", "-c", script, "decrypt", key_hex, fields.iv, fields.cipher_text});
}

// The stored form of plain enciphered by the openssl program with key A and
// the fixed IV.
std::string stored_by_openssl(const std::string& plain) {
    const ProcessResult result =
        run_process({"/bin/sh", "-c", "printf %s \"$1\" | openssl enc -aes-256-cbc -a -A -K \"$2\" -iv \"$3\"",
                     "encrypt", plain, kKeyAHex, kIvHex});
    EXPECT_EQ(result.status, 0) << result.err;
    return "$AES-256-CBC:PKCS$" + kIvBase64 + "$" + result.out;
}

class MailPasswdCipherTest : public LoggedStoreTest {
protected:
    const std::string key_path = mail_auth_key_path();

    void use_key(const std::string& key) { write_file(key_path, key, 0600); }
};

TEST_F(MailPasswdCipherTest, StoredFormIsPrefixBase64IvAndBase64CipherText) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    const auto stored = mail_passwd_encrypt("secret");
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->substr(0, 18), "$AES-256-CBC:PKCS$");
    const StoredFields fields = fields_of(*stored);
    EXPECT_EQ(fields.iv.size(), 24u);
    EXPECT_EQ(base64_decode(fields.iv)->size(), 16u);
    EXPECT_EQ(base64_decode(fields.cipher_text)->size() % 16, 0u);
    EXPECT_EQ(*stored, "$AES-256-CBC:PKCS$" + fields.iv + "$" + fields.cipher_text);
}

TEST_F(MailPasswdCipherTest, TheOpensslProgramDeciphersAStoredPasswordWithTheKeyFile) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    const auto stored = mail_passwd_encrypt("pa$$w0rd with spaces");
    ASSERT_TRUE(stored);
    const ProcessResult result = openssl_decrypt(kKeyAHex, fields_of(*stored));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "pa$$w0rd with spaces");
}

TEST_F(MailPasswdCipherTest, DeciphersWhatTheOpensslProgramEnciphered) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    EXPECT_EQ(mail_passwd_decrypt(stored_by_openssl("from elsewhere")), "from elsewhere");
}

TEST_F(MailPasswdCipherTest, SamePasswordTwiceGivesTwoStoredFormsThatBothDecipher) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    const auto first = mail_passwd_encrypt("secret");
    const auto second = mail_passwd_encrypt("secret");
    ASSERT_TRUE(first && second);
    EXPECT_NE(*first, *second);
    EXPECT_NE(fields_of(*first).iv, fields_of(*second).iv);
    EXPECT_EQ(mail_passwd_decrypt(*first), "secret");
    EXPECT_EQ(mail_passwd_decrypt(*second), "secret");
}

TEST_F(MailPasswdCipherTest, EmptyPasswordIsOneBlockOfPadding) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    const auto stored = mail_passwd_encrypt("");
    ASSERT_TRUE(stored);
    EXPECT_EQ(fields_of(*stored).cipher_text.size(), 24u);
    EXPECT_EQ(base64_decode(fields_of(*stored).cipher_text)->size(), 16u);
    EXPECT_EQ(mail_passwd_decrypt(*stored), "");
}

TEST_F(MailPasswdCipherTest, PasswordMadeWithAnotherKeyFailsToDecipher) {
    use_key(kKeyB);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    errno = 0;
    EXPECT_EQ(mail_passwd_decrypt(stored_by_openssl("secret")), std::nullopt);
    EXPECT_EQ(errno, EBADMSG);
}

TEST_F(MailPasswdCipherTest, DamagedCipherTextFailsToDecipher) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    std::string stored = stored_by_openssl("secret");
    ASSERT_EQ(mail_passwd_decrypt(stored), "secret");
    stored[stored.size() - 4] = stored[stored.size() - 4] == 'A' ? 'B' : 'A';
    errno = 0;
    EXPECT_EQ(mail_passwd_decrypt(stored), std::nullopt);
    EXPECT_EQ(errno, EBADMSG);
}

TEST_F(MailPasswdCipherTest, TextWithoutTheCipherPrefixIsRefusedWithEinval) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    const std::vector<std::string> texts{"$1$abcdefgh$0123456789abcdefghijkl", "$AES-256-CBC:PKCS", "plain", "",
                                         "$AES-128-CBC:PKCS$" + kIvBase64 + "$AAAA"};
    for (const std::string& text : texts) {
        errno = 0;
        EXPECT_EQ(mail_passwd_decrypt(text), std::nullopt) << text;
        EXPECT_EQ(errno, EINVAL) << text;
    }
}

TEST_F(MailPasswdCipherTest, MalformedFieldsAreRefusedWithEinval) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    const std::string good_cipher_text = fields_of(stored_by_openssl("secret")).cipher_text;
    const std::vector<std::string> texts{"$AES-256-CBC:PKCS$" + kIvBase64 + "$not base64!",
                                         "$AES-256-CBC:PKCS$AAAA$" + good_cipher_text,
                                         "$AES-256-CBC:PKCS$#" + kIvBase64.substr(1) + "$" + good_cipher_text};
    for (const std::string& text : texts) {
        errno = 0;
        EXPECT_EQ(mail_passwd_decrypt(text), std::nullopt) << text;
        EXPECT_EQ(errno, EINVAL) << text;
    }
}

TEST_F(MailPasswdCipherTest, IsEncryptedLooksAtTheEighteenCharacterPrefixOnly) {
    EXPECT_TRUE(mail_passwd_is_encrypted("$AES-256-CBC:PKCS$"));
    EXPECT_TRUE(mail_passwd_is_encrypted("$AES-256-CBC:PKCS$anything"));
    EXPECT_FALSE(mail_passwd_is_encrypted("$AES-256-CBC:PKCS"));
    EXPECT_FALSE(mail_passwd_is_encrypted("$aes-256-cbc:pkcs$x"));
    EXPECT_FALSE(mail_passwd_is_encrypted("$1$abcdefgh$hash"));
}

TEST_F(MailPasswdCipherTest, MissingKeyFileFailsInitialisationWithBothMessages) {
    EXPECT_FALSE(mail_passwd_cipher_init(key_path));
    EXPECT_EQ(logged(), (std::vector<std::string>{
                            "3 Can't read encryption key from '" + key_path + "': No such file or directory (2)",
                            "3 Failed to initialize encryption cipher 'AES-256-CBC:PKCS' with key '" + key_path + "'",
                        }));
}

TEST_F(MailPasswdCipherTest, ShortKeyFileFailsInitialisation) {
    use_key(kKeyA.substr(0, 31));
    EXPECT_FALSE(mail_passwd_cipher_init(key_path));
    EXPECT_EQ(logged(), (std::vector<std::string>{
                            "3 Failed to read entire encryption key from '" + key_path + "': Success (0)",
                            "3 Failed to initialize encryption cipher 'AES-256-CBC:PKCS' with key '" + key_path + "'",
                        }));
    errno = 0;
    EXPECT_EQ(mail_passwd_encrypt("secret"), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(MailPasswdCipherTest, PlainTextOfTwoGigabytesIsRefused) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    errno = 0;
    const RepeatedText plain("", 'x', 2147483647);
    EXPECT_EQ(mail_passwd_encrypt(plain.view()), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(logged(), std::vector<std::string>{"4 Attempt to feed into symmetric cipher more plain data (2147483647 "
                                                 "bytes) than it's designed to handle."});
}

TEST_F(MailPasswdCipherTest, CipherTextOfTwoGigabytesIsRefused) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    // 2863311532 Base64 characters stand for 2147483649 bytes.
    const RepeatedText stored("$AES-256-CBC:PKCS$" + kIvBase64 + "$", 'A', 2863311532);
    errno = 0;
    EXPECT_EQ(mail_passwd_decrypt(stored.view()), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(logged(), std::vector<std::string>{"4 Attempt to feed into symmetric cipher more encrypted data "
                                                 "(2147483649 bytes) than it's designed to handle."});
}

TEST_F(MailPasswdCipherTest, EncryptingWithoutAContextFailsWithEinval) {
    errno = 0;
    EXPECT_EQ(mail_passwd_encrypt("secret"), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(MailPasswdCipherTest, ContextLivesUntilItsLastHoldIsReleased) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    ASSERT_EQ(unlink(key_path.c_str()), 0);
    EXPECT_TRUE(mail_passwd_cipher_init(key_path)) << "a second hold does not read the key again";
    EXPECT_EQ(mail_passwd_cipher_release(), 0);
    const auto stored = mail_passwd_encrypt("secret");
    ASSERT_TRUE(stored);
    EXPECT_EQ(mail_passwd_decrypt(*stored), "secret");
    EXPECT_EQ(mail_passwd_cipher_release(), 0);
    errno = 0;
    EXPECT_EQ(mail_passwd_decrypt(*stored), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(MailPasswdCipherTest, ReleasingWithoutAHoldFails) {
    EXPECT_EQ(mail_passwd_cipher_release(), -1);
    EXPECT_EQ(logged(),
              std::vector<std::string>{
                  "3 Failed to correctly destroy encryption cipher 'AES-256-CBC:PKCS'. A programming error?"});
}

TEST_F(MailPasswdCipherTest, NewContextReadsTheKeyFileAgain) {
    use_key(kKeyA);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    ASSERT_EQ(mail_passwd_cipher_release(), 0);
    use_key(kKeyB);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    EXPECT_EQ(mail_passwd_decrypt(stored_by_openssl("secret")), std::nullopt);
}

}  // namespace
}  // namespace sorvane::test
