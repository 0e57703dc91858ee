// The built sorvane-auth on a seeded server (example.test with its domain
// aliases, mail names with mail aliases, a neighbour domain), run the way
// the mail server runs a checkpassword program: the login on descriptor 3,
// /usr/bin/env as the program it runs on success, so that the environment
// it hands on is printed. Every exit status: 0 (the program ran), 1
// refused, 2 misused, 3 unknown in a lookup without a password, 111
// temporary.
#include <crypt.h>
#include <sys/stat.h>
#include <unistd.h>

#include "auth/auth_support.h"
#include "e2e/server_state.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"

namespace sorvane::test {
namespace {

const std::string kAuthDb = "/var/lib/crelm/mail/auth/passwd.db";
const std::string kAuthKey = "/var/lib/crelm/mail/auth/passwd_db_key";
const std::string kInfoPassword = "Info-secret 1";

std::string home_of(const std::string& domain, const std::string& name) {
    return kMailnamesDir + "/" + domain + "/" + name;
}

class AuthProgramTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        set_mail_auth_paths(kMailServerQmail);
        seed_server_state();
    }

    // A login that must succeed into home: the fields the mail server takes.
    void expect_login(const std::string& login, const std::string& password, const std::string& user,
                      const std::string& home) {
        const ProcessResult result = log_in(login, password);
        ASSERT_EQ(result.status, 0) << login << "\n" << result.err;
        EXPECT_EQ(result.err, "") << login;
        EXPECT_EQ(env_value(result.out, "USER"), user) << login;
        EXPECT_EQ(env_value(result.out, "HOME"), home) << login;
        EXPECT_EQ(env_value(result.out, "userdb_home"), home) << login;
        EXPECT_EQ(env_value(result.out, "userdb_uid"), std::to_string(popuser_uid())) << login;
        EXPECT_EQ(env_value(result.out, "userdb_gid"), std::to_string(popuser_gid())) << login;
        EXPECT_EQ(env_value(result.out, "EXTRA"), "userdb_uid userdb_gid userdb_home") << login;
        EXPECT_EQ(env_value(result.out, "AUTHORIZED"), std::nullopt) << login;
        EXPECT_EQ(result.out.find(password), std::string::npos) << login;
    }

    // A login that is refused with status: the program never runs.
    void expect_refused(const std::string& login, const std::string& password, int status = 1) {
        const ProcessResult result = log_in(login, password);
        EXPECT_EQ(result.status, status) << login << "\n" << result.err;
        EXPECT_EQ(result.out, "") << login;
        if (!password.empty()) {
            EXPECT_EQ(result.err.find(password), std::string::npos) << login;
        }
    }
};

TEST_F(AuthProgramTest, MailNameLogsInWithItsPassword) {
    expect_login("info@example.test", kInfoPassword, "info@example.test", home_of(kDomain, "info"));
    expect_login("john@example.test", "john's p4ss", "john@example.test", home_of(kDomain, "john"));
}

TEST_F(AuthProgramTest, AliasesAndDomainAliasesReachTheMailNamesHome) {
    expect_login("sales@example.test", kInfoPassword, "sales@example.test", home_of(kDomain, "info"));
    expect_login("office@alias-one.test", kInfoPassword, "office@alias-one.test", home_of(kDomain, "info"));
    expect_login("info@alias-two.test", kInfoPassword, "info@alias-two.test", home_of(kDomain, "info"));
    expect_login("j.doe@alias-one.test", "john's p4ss", "j.doe@alias-one.test", home_of(kDomain, "john"));
}

TEST_F(AuthProgramTest, LoginIsTakenInLowerCase) {
    expect_login("INFO@Example.TEST", kInfoPassword, "info@example.test", home_of(kDomain, "info"));
}

TEST_F(AuthProgramTest, CompiledTableGivesTheHome) {
    compile_users_cdb();
    write_file("/var/qmail/users/assign", ".\n", 0644);
    expect_login("sales@alias-one.test", kInfoPassword, "sales@alias-one.test", home_of(kDomain, "info"));
}

TEST_F(AuthProgramTest, WrongPasswordIsRefused) {
    expect_refused("info@example.test", "Info-secret 2");
    expect_refused("info@example.test", "Info-secret 1 ");
    expect_refused("info@example.test", "info-secret 1");
    expect_refused("info@example.test", "");
    expect_refused("info@example.test", "john's p4ss");
    // the neighbour's info has its own password, which opens only its own
    expect_refused("info@example.test", neighbour_mail().password);
    expect_login("info@neighbour.test", neighbour_mail().password, "info@neighbour.test", home_of(kNeighbour, "info"));
}

TEST_F(AuthProgramTest, UnknownAddressIsRefused) {
    expect_refused("nobody@example.test", kInfoPassword);
    expect_refused("info@unknown.test", kInfoPassword);
    expect_refused("info", kInfoPassword);
    expect_refused("", kInfoPassword);
    expect_refused("info@example.test@", kInfoPassword);
}

TEST_F(AuthProgramTest, DisabledDomainOrUserIsRefused) {
    ASSERT_EQ(set_mail_auth_domain_status(kDomain, kMailAuthDomainStatusDisabled), 0);
    expect_refused("info@example.test", kInfoPassword);
    expect_login("info@alias-one.test", kInfoPassword, "info@alias-one.test", home_of(kDomain, "info"));
    ASSERT_EQ(set_mail_auth_domain_status(kDomain, kMailAuthDomainStatusEnabled), 0);
    ASSERT_EQ(set_mail_auth_password("info", kDomain, kInfoPassword, kMailAuthUserDisabled), 0);
    expect_refused("info@example.test", kInfoPassword);
}

TEST_F(AuthProgramTest, MailboxWithoutLoginIsRefused) {
    ASSERT_EQ(remove_mail_auth_user("box", kDomain), 0);
    expect_refused("box@example.test", "b0x&friends");
    // a row that holds neither password column
    ASSERT_EQ(run_process({"/usr/bin/sqlite3", kAuthDb,
                           "UPDATE users SET userPassword=NULL, cmusaslsecretPLAIN=NULL WHERE name='john'"})
                  .status,
              0);
    expect_refused("john@example.test", "john's p4ss");
}

TEST_F(AuthProgramTest, LoginWithoutMailboxIsRefusedAndSaysWhy) {
    ASSERT_EQ(set_mail_auth_password("ghost", kDomain, "ghost-pw", 0), 0);
    const ProcessResult result = log_in("ghost@example.test", "ghost-pw");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "sorvane-auth: ghost@example.test has a login but qmail delivers it to no mailbox (no virtual domain "
              "or no \"=\" record in users/assign)\n");
}

TEST_F(AuthProgramTest, CryptedPasswordIsCheckedWithCrypt) {
    for (const char* method : {"$6$", "$1$", "$y$"}) {
        char setting[CRYPT_GENSALT_OUTPUT_SIZE];
        ASSERT_NE(crypt_gensalt_rn(method, 0, nullptr, 0, setting, sizeof setting), nullptr) << method;
        crypt_data data{};
        const char* hashed = crypt_r("john's p4ss", setting, &data);
        ASSERT_NE(hashed, nullptr);
        ASSERT_NE(hashed[0], '*') << setting;
        ASSERT_EQ(set_mail_auth_password("john", kDomain, hashed, kMailAuthPasswordInStoredForm), 0);
        expect_login("john@example.test", "john's p4ss", "john@example.test", home_of(kDomain, "john"));
        expect_refused("john@example.test", "john's p4ss!");
        expect_refused("john@example.test", hashed);
    }
}

TEST_F(AuthProgramTest, StoredFormThatNoMethodKnowsIsRefused) {
    ASSERT_EQ(set_mail_auth_password("john", kDomain, "john's p4ss", kMailAuthPasswordInStoredForm), 0);
    expect_refused("john@example.test", "john's p4ss");
}

TEST_F(AuthProgramTest, InternationalDomainLogsInByItsAsciiForm) {
    const std::string ascii = "xn--bcher-kva.test";
    ASSERT_EQ(set_mail_auth_password("info", ascii, "buch-pw", 0), 0);
    write_file("/var/qmail/control/virtualdomains",
               read_file("/var/qmail/control/virtualdomains") + ascii + ":" + ascii + "\n", 0644);
    write_file("/var/qmail/users/assign",
               "=" + ascii + "-info:popuser:" + std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid()) +
                   ":" + home_of(ascii, "info") + ":::\n" + read_file("/var/qmail/users/assign"),
               0644);
    expect_login("info@" + ascii, "buch-pw", "info@" + ascii, home_of(ascii, "info"));
    expect_login("info@b\xc3\xbc" "cher.test", "buch-pw", "info@" + ascii, home_of(ascii, "info"));
}

TEST_F(AuthProgramTest, LookupWithoutPasswordAnswersForTheAddress) {
    const ProcessResult found = log_in("sales@example.test", "", {"AUTHORIZED=1"});
    ASSERT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(env_value(found.out, "AUTHORIZED"), "2");
    EXPECT_EQ(env_value(found.out, "HOME"), home_of(kDomain, "info"));
    const ProcessResult unknown = log_in("nobody@example.test", "", {"AUTHORIZED=1"});
    EXPECT_EQ(unknown.status, 3);
    EXPECT_EQ(unknown.out, "");
    ASSERT_EQ(set_mail_auth_domain_status(kDomain, kMailAuthDomainStatusDisabled), 0);
    EXPECT_EQ(log_in("sales@example.test", "", {"AUTHORIZED=1"}).status, 3);
    // any other value of AUTHORIZED asks for the password
    EXPECT_EQ(log_in("info@alias-one.test", "", {"AUTHORIZED=2"}).status, 1);
}

TEST_F(AuthProgramTest, PasswordVariablesAreNotHandedOn) {
    const ProcessResult result =
        log_in("info@example.test", kInfoPassword, {"QVT_PASSWORD=leak-1", "QVT_CRYPTED_PASSWORD=leak-2", "KEEP=me"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(env_value(result.out, "QVT_PASSWORD"), std::nullopt);
    EXPECT_EQ(env_value(result.out, "QVT_CRYPTED_PASSWORD"), std::nullopt);
    EXPECT_EQ(env_value(result.out, "KEEP"), "me");
}

// ---- misuse: status 2 ----

void expect_misused(const AuthRunOptions& options, const std::string& message) {
    const ProcessResult result = run_auth(options);
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "sorvane-auth: " + message + "\n");
}

TEST_F(AuthProgramTest, MissingDescriptorIsMisuse) {
    AuthRunOptions options;
    expect_misused(options, "descriptor 3 is not open for reading: run it the way the mail server runs a "
                            "checkpassword program");
}

TEST_F(AuthProgramTest, InputBeyondTheLimitIsMisuse) {
    AuthRunOptions options;
    options.input = login_input("info@example.test", kInfoPassword + std::string(512, 'x'));
    expect_misused(options, "more than 512 bytes on descriptor 3");
}

TEST_F(AuthProgramTest, MalformedInputIsMisuse) {
    for (const std::string& input : {std::string(), std::string("info@example.test"),
                                    std::string("info@example.test\0Info-secret 1", 31)}) {
        AuthRunOptions options;
        options.input = input;
        expect_misused(options, "descriptor 3 holds no login and password each ended by a zero byte");
    }
}

TEST_F(AuthProgramTest, NoProgramIsMisuse) {
    AuthRunOptions options;
    options.input = login_input("info@example.test", kInfoPassword);
    options.program.clear();
    expect_misused(options,
                   "usage: sorvane-auth <program> [arguments...] (run by the mail server, the login on descriptor 3)");
}

TEST_F(AuthProgramTest, TimestampAfterThePasswordIsAllowed) {
    AuthRunOptions options;
    options.input = login_input("info@example.test", kInfoPassword) + "1700000000" + std::string(1, '\0');
    EXPECT_EQ(run_auth(options).status, 0);
}

// ---- temporary failures: status 111 ----

void expect_temporary(const ProcessResult& result, const std::string& message) {
    EXPECT_EQ(result.status, 111) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
}

TEST_F(AuthProgramTest, MissingKeyFileIsTemporary) {
    ASSERT_EQ(unlink(kAuthKey.c_str()), 0);
    expect_temporary(log_in("info@example.test", kInfoPassword),
                     "sorvane-auth: info@example.test: cannot read the key file " + kAuthKey + "\n");
}

TEST_F(AuthProgramTest, MissingStoreIsTemporary) {
    ASSERT_EQ(unlink(kAuthDb.c_str()), 0);
    expect_temporary(log_in("info@example.test", kInfoPassword),
                     "sorvane-auth: cannot read " + kAuthDb + ": No such file or directory\n");
    EXPECT_FALSE(path_exists(kAuthDb));
}

TEST_F(AuthProgramTest, OtherKeyFileIsTemporary) {
    write_file(kAuthKey, std::string(32, 'k'), 0400);
    expect_temporary(log_in("info@example.test", kInfoPassword),
                     "its stored password does not decipher with the key file " + kAuthKey);
}

TEST_F(AuthProgramTest, HotJournalIsTemporaryAndLeftAlone) {
    const std::string journal = kAuthDb + "-journal";
    write_file(journal, std::string("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", 8) + std::string(504, '\0'), 0644);
    expect_temporary(log_in("info@example.test", kInfoPassword), "has a journal that a killed writer left");
    ASSERT_TRUE(path_exists(journal));
    EXPECT_EQ(read_file(journal).size(), 512U);
}

TEST_F(AuthProgramTest, ProgramThatCannotRunIsTemporary) {
    AuthRunOptions options;
    options.input = login_input("info@example.test", kInfoPassword);
    options.program = {"/nonexistent/reply"};
    expect_temporary(run_auth(options), "sorvane-auth: cannot run /nonexistent/reply: No such file or directory\n");
}

TEST_F(AuthProgramTest, UserWithoutReadAccessIsToldSo) {
    AuthRunOptions options;
    options.input = login_input("info@example.test", kInfoPassword);
    options.prefix = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--"};
    const ProcessResult result = run_auth(options);
    expect_temporary(result, "cannot read " + kAuthDb + ": permission denied to uid 65534");
    EXPECT_NE(result.err.find("must run sorvane-auth as root"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace sorvane::test
