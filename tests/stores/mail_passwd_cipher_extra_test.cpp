// The password cipher: values it made itself under another key file, and a
// real crypt(3) hash handed to the decipher.
#include "stores/mail_passwd_cipher.h"

#include <crypt.h>

#include <cerrno>

#include "stores/mail_auth_paths.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

class MailPasswdCipherExtraTest : public LoggedStoreTest {
protected:
    const std::string key_path = mail_auth_key_path();

    void use_key(char fill) { write_file(key_path, std::string(32, fill), 0600); }

    std::vector<std::string> stored_with_key(char fill, int count) {
        use_key(fill);
        EXPECT_TRUE(mail_passwd_cipher_init(key_path));
        std::vector<std::string> stored;
        for (int i = 0; i < count; ++i)
            stored.push_back(mail_passwd_encrypt("secret").value_or(""));
        EXPECT_EQ(mail_passwd_cipher_release(), 0);
        return stored;
    }
};

// A wrong key is caught by the padding check, which a random IV passes by
// chance once in about 256 tries: of several values none gives the password
// back and (all but surely) some fail outright.
TEST_F(MailPasswdCipherExtraTest, ValuesItStoredFailWithAnotherKeyFileAndDecipherWithTheirOwn) {
    const std::vector<std::string> stored = stored_with_key('A', 8);
    use_key('B');
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    int refused = 0;
    for (const std::string& value : stored) {
        errno = 0;
        const auto plain = mail_passwd_decrypt(value);
        EXPECT_NE(plain, std::optional<std::string>("secret")) << value;
        refused += !plain && errno == EBADMSG;
    }
    EXPECT_GT(refused, 0);
    ASSERT_EQ(mail_passwd_cipher_release(), 0);
    use_key('A');
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    for (const std::string& value : stored)
        EXPECT_EQ(mail_passwd_decrypt(value), "secret") << value;
}

TEST_F(MailPasswdCipherExtraTest, ARealMd5CryptHashIsRefusedWithEinval) {
    use_key('A');
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    const std::string hash = crypt("secret", "$1$abcdefgh$");
    ASSERT_EQ(hash.substr(0, 12), "$1$abcdefgh$");
    EXPECT_FALSE(mail_passwd_is_encrypted(hash));
    errno = 0;
    EXPECT_EQ(mail_passwd_decrypt(hash), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

}  // namespace
}  // namespace sorvane::test
