// Key generation and re-creation of the password cipher's key file.
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>

#include <array>
#include <cerrno>

#include "stores/mail_auth_paths.h"
#include "stores/mail_passwd_cipher.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

class MailPasswdKeyTest : public LoggedStoreTest {
protected:
    const std::string key_path = mail_auth_key_path();

    mode_t current_umask() {
        const mode_t mask = umask(0);
        umask(mask);
        return mask;
    }
};

TEST(GenerateKeyDataTest, FillsThirtyTwoRandomBytes) {
    std::array<unsigned char, 64> first{};
    std::array<unsigned char, 64> second{};
    EXPECT_EQ(generate_key_data(first), 32u);
    EXPECT_EQ(generate_key_data(second), 32u);
    EXPECT_NE(first, second);
    EXPECT_TRUE(std::all_of(first.begin() + 32, first.end(), [](unsigned char c) { return c == 0; }));
}

TEST(GenerateKeyDataTest, RefusesABufferBelowTheKeyLength) {
    std::array<unsigned char, 31> buffer{};
    errno = 0;
    EXPECT_EQ(generate_key_data(buffer), 0u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(std::all_of(buffer.begin(), buffer.end(), [](unsigned char c) { return c == 0; }));
}

TEST_F(MailPasswdKeyTest, MissingKeyFileAndDirectoryAreCreatedPrivate) {
    const std::string path = scratch_dir() + "/new/auth/passwd_db_key";
    umask(022);
    EXPECT_EQ(recreate_mail_passwd_key(path), 0);
    EXPECT_EQ(read_file(path).size(), 32u);
    const FileInfo info = file_info(path);
    EXPECT_EQ(info.type, 'f');
    EXPECT_EQ(info.mode, 0600u);
    EXPECT_EQ(info.uid, 0u);
    EXPECT_EQ(current_umask(), 022u) << "umask restored";
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(MailPasswdKeyTest, ExistingKeyIsReplacedByNewBytes) {
    write_file(key_path, std::string(32, 'k'), 0440);
    EXPECT_EQ(recreate_mail_passwd_key(key_path), 0);
    const std::string key = read_file(key_path);
    EXPECT_EQ(key.size(), 32u);
    EXPECT_NE(key, std::string(32, 'k'));
    EXPECT_EQ(file_info(key_path).mode, 0600u);
}

TEST_F(MailPasswdKeyTest, NewKeyFileServesTheCipher) {
    ASSERT_EQ(recreate_mail_passwd_key(key_path), 0);
    ASSERT_TRUE(mail_passwd_cipher_init(key_path));
    const auto stored = mail_passwd_encrypt("secret");
    ASSERT_TRUE(stored);
    EXPECT_EQ(mail_passwd_decrypt(*stored), "secret");
}

TEST_F(MailPasswdKeyTest, LinkAtTheKeyPathIsReplacedAndItsTargetLeftAlone) {
    const std::string target = scratch_dir() + "/target";
    write_file(target, "untouched");
    ASSERT_EQ(symlink(target.c_str(), key_path.c_str()), 0);
    EXPECT_EQ(recreate_mail_passwd_key(key_path), 0);
    EXPECT_EQ(file_info(key_path).type, 'f');
    EXPECT_EQ(read_file(target), "untouched");
}

TEST_F(MailPasswdKeyTest, KeyPathThatIsADirectoryFailsAndRestoresTheUmask) {
    ASSERT_EQ(mkdir(key_path.c_str(), 0700), 0);
    umask(027);
    EXPECT_EQ(recreate_mail_passwd_key(key_path), -1);
    EXPECT_EQ(current_umask(), 027u);
    EXPECT_EQ(logged(), std::vector<std::string>{
                            "3 Unable to re-create Mail Authentication Password Encryption Key: Is a directory"});
}

TEST_F(MailPasswdKeyTest, KeyDirectoryThatCannotBeCreatedFails) {
    const std::string blocker = scratch_dir() + "/file";
    write_file(blocker, "");
    EXPECT_EQ(recreate_mail_passwd_key(blocker + "/auth/passwd_db_key"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{
                            "3 Unable to re-create Mail Authentication Password Encryption Key: Not a directory"});
}

// A full file system: the write fails, the umask comes back, and no partial
// key file is left.
TEST_F(MailPasswdKeyTest, FailedWriteLeavesNoKeyFile) {
    const std::string full = scratch_dir() + "/full";
    ASSERT_EQ(mkdir(full.c_str(), 0700), 0);
    ASSERT_EQ(mount("tmpfs", full.c_str(), "tmpfs", 0, "size=4k"), 0) << std::strerror(errno);
    write_file(full + "/filler", std::string(4096, 'x'));
    umask(022);
    EXPECT_EQ(recreate_mail_passwd_key(full + "/passwd_db_key"), -1);
    EXPECT_EQ(current_umask(), 022u);
    EXPECT_FALSE(path_exists(full + "/passwd_db_key"));
    EXPECT_EQ(logged(),
              std::vector<std::string>{
                  "3 Unable to re-create Mail Authentication Password Encryption Key: No space left on device"});
    umount(full.c_str());
}

}  // namespace
}  // namespace sorvane::test
