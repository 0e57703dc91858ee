// The login as sorvane stores addresses: local part lower-cased, domain in
// its ASCII form and lower-cased; what cannot be an address is refused.
#include "auth/login_address.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

using crelm::auth::LoginAddress;
using crelm::auth::parse_login_address;

TEST(LoginAddress, LowerCasesBothParts) {
    LoginAddress address;
    ASSERT_EQ(parse_login_address("Info@Example.TEST", address), 0);
    EXPECT_EQ(address.local, "info");
    EXPECT_EQ(address.domain, "example.test");
    EXPECT_EQ(address.text(), "info@example.test");
}

TEST(LoginAddress, InternationalDomainTakesItsAsciiForm) {
    LoginAddress address;
    ASSERT_EQ(parse_login_address("info@b\xc3\xbc" "cher.test", address), 0);
    EXPECT_EQ(address.domain, "xn--bcher-kva.test");
    LoginAddress ascii;
    ASSERT_EQ(parse_login_address("info@XN--BCHER-KVA.test", ascii), 0);
    EXPECT_EQ(ascii.domain, "xn--bcher-kva.test");
}

TEST(LoginAddress, SplitsAtTheLastAt) {
    LoginAddress address;
    ASSERT_EQ(parse_login_address("a@b@example.test", address), 0);
    EXPECT_EQ(address.local, "a@b");
    EXPECT_EQ(address.domain, "example.test");
}

TEST(LoginAddress, RefusesWhatIsNoAddress) {
    for (const char* login : {"info", "@example.test", "info@", "", "in fo@example.test", "info@exa\tmple.test",
                                    "info\n@example.test", "info@\x7f.test"}) {
        LoginAddress address;
        EXPECT_EQ(parse_login_address(login, address), -1) << login;
    }
}

}  // namespace
}  // namespace sorvane::test
