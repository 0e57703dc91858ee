// Names that are never hosted: localhost, address literals, single labels.
#include "runtime/host_name_rules.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string refusal(const char* name) {
    const char* reason = crelm::hosted_name_refusal(name);
    return reason == nullptr ? "" : reason;
}

TEST(HostNameRules, LocalhostAndItsSubdomains) {
    EXPECT_EQ(refusal("localhost"), "it names the local host");
    EXPECT_EQ(refusal("localhost.localdomain"), "it names the local host");
    EXPECT_EQ(refusal("localhost.example.test"), "it names the local host");
    EXPECT_EQ(refusal("localhostx.test"), "");
    EXPECT_EQ(refusal("my-localhost.test"), "");
    EXPECT_EQ(refusal("localhost-x.test"), "");
}

TEST(HostNameRules, AddressLiterals) {
    EXPECT_EQ(refusal("1.2.3.4"), "it is an address literal");
    EXPECT_EQ(refusal("10.1"), "it is an address literal");
    EXPECT_EQ(refusal("example.123"), "it is an address literal");
    EXPECT_EQ(refusal("[1.2.3.4]"), "it is an address literal");
    EXPECT_EQ(refusal("[ipv6:::1]"), "it is an address literal");
    EXPECT_EQ(refusal("::1"), "it is an address literal");
    EXPECT_EQ(refusal("fe80::1"), "it is an address literal");
    EXPECT_EQ(refusal("1.2.3.example"), "");
    EXPECT_EQ(refusal("123.test"), "");
    EXPECT_EQ(refusal("example.x1"), "");
}

TEST(HostNameRules, SingleLabels) {
    EXPECT_EQ(refusal("test"), "it has a single label");
    EXPECT_EQ(refusal("postmaster"), "it has a single label");
    EXPECT_EQ(refusal("xn--bcher-kva"), "it has a single label");
    EXPECT_EQ(refusal("1234"), "it is an address literal");
}

TEST(HostNameRules, OrdinaryDomainsPass) {
    EXPECT_EQ(refusal("example.test"), "");
    EXPECT_EQ(refusal("a.test-x.com"), "");
    EXPECT_EQ(refusal("xn--bcher-kva.example"), "");
    EXPECT_EQ(refusal("mail.localhost-provider.test"), "");
}

}  // namespace
