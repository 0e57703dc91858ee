#include <gtest/gtest.h>

#include <string>

#include "qmail/mailname_files.h"
#include "qmail/qmail_test_support.h"

namespace sorvane::test {
namespace {

using MailnamePathsTest = QmailTest;

// A domain of 63-letter labels whose ".qmail" path is exactly length bytes
// long for the mail name "m".
std::string domain_for_qmail_path_length(std::size_t length) {
    std::size_t need = length - std::string(kMailnamesDir).size() - std::string("/").size() -
                       std::string("/m/.qmail").size();
    std::string domain;
    for (; need > 63; need -= 64)
        domain += std::string(63, 'a') + ".";
    return domain + std::string(need, 'b');
}

TEST_F(MailnamePathsTest, HomeAndDotQmailAreLowerCaseAscii) {
    std::string home;
    std::string qmail;
    ASSERT_EQ(mailname_home_path(home, "John.Doe", "Example.TEST"), 0);
    ASSERT_EQ(mailname_qmail_path(qmail, "John.Doe", "Bücher.Example"), 0);
    EXPECT_EQ(home, "/var/qmail/mailnames/example.test/john.doe");
    EXPECT_EQ(qmail, "/var/qmail/mailnames/xn--bcher-kva.example/john.doe/.qmail");
    EXPECT_EQ(domain_dir_path("Example.TEST"), "/var/qmail/mailnames/example.test");
    EXPECT_EQ(qmail_default_path("Bücher.Example"), "/var/qmail/mailnames/xn--bcher-kva.example/.qmail-default");
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailnamePathsTest, EmptyNamesAreRefused) {
    std::string path = "unchanged";
    EXPECT_EQ(mailname_home_path(path, "", "example.test"), -1);
    EXPECT_EQ(mailname_qmail_path(path, "info", ""), -1);
    EXPECT_EQ(path, "unchanged");
    EXPECT_EQ(logged(), (std::vector<std::string>{"3 empty mailname or maildomain", "3 empty mailname or maildomain"}));
}

TEST_F(MailnamePathsTest, DomainThatDoesNotConvertIsRefused) {
    std::string path;
    EXPECT_EQ(mailname_home_path(path, "info", "a..b"), -1);
    EXPECT_EQ(domain_dir_path("a..b"), "");
    ASSERT_EQ(logged().size(), 2u);
    EXPECT_EQ(logged()[0].rfind("3 idn_toascii(a..b) failed: ", 0), 0u) << logged()[0];
}

TEST_F(MailnamePathsTest, DotQmailPathOfFullBufferIsRefusedOneByteLessAccepted) {
    const std::string too_long = domain_for_qmail_path_length(4096);
    const std::string fits = domain_for_qmail_path_length(4095);
    std::string path;
    ASSERT_EQ(mailname_qmail_path(path, "m", fits), 0);
    EXPECT_EQ(path.size(), 4095u);
    EXPECT_EQ(path, std::string(kMailnamesDir) + "/" + fits + "/m/.qmail");

    std::string refused = "unchanged";
    EXPECT_EQ(mailname_qmail_path(refused, "m", too_long), -1);
    EXPECT_EQ(refused, "unchanged");
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Either domain name '" + too_long +
                                                 "' or mailname 'm' are too long to store .qmail path in the "
                                                 "provided buffer"});
}

TEST_F(MailnamePathsTest, HomePathOfFullBufferIsRefused) {
    // "<mailnames>/<domain>/" plus a mail name that brings it to 4096 bytes.
    const std::string domain = "example.test";
    const std::size_t fixed = std::string(kMailnamesDir).size() + 2 + domain.size();
    const std::string refused_name(4096 - fixed, 'm');
    const std::string accepted_name(4095 - fixed, 'm');
    std::string path;
    ASSERT_EQ(mailname_home_path(path, accepted_name, domain), 0);
    EXPECT_EQ(path.size(), 4095u);
    EXPECT_EQ(mailname_home_path(path, refused_name, domain), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Either domain name 'example.test' or mailname '" + refused_name +
                                                 "' are too long to store mailname home path in the provided buffer"});
}

}  // namespace
}  // namespace sorvane::test
