// The server against the panel's picture: each kind of difference in each
// direction gives exactly its finding, and the repair plan brings the server
// to the picture (or says that a person must act).
#include <gtest/gtest.h>

#include "audit/picture_support.h"

namespace sorvane::test {
namespace {

using Lines = std::vector<std::string>;
using PictureCompareTest = AuditTest;

void expect_findings(const std::string& picture, const Lines& expected, const std::vector<std::string>& args = {}) {
    const ProcessResult result = audit_against(picture, args);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(finding_lines(result.out), expected) << result.out;
    EXPECT_EQ(result.status, expected.empty() ? 0 : 1) << result.out;
}

TEST_F(PictureCompareTest, TheSeededDocumentsMatchTheSeededServer) {
    const std::string neighbour = R"({"domain": {"name": "neighbour.test", "mails": [{"name": "info", )"
                                  R"("mbox_quota": 2, "mbox_quota_unit": "MB"}]}})";
    expect_findings("[" + seeded_document() + ", " + neighbour + "]", {});
}

TEST_F(PictureCompareTest, APictureWithEveryMemberThatMatchesGivesNothing) {
    std::vector<DomainPicture> picture = seeded_picture();
    domain_of(picture, kDomain).extra = R"("enabled": true, "action": {"kind": "bounce"})";
    domain_of(picture, kNeighbour).extra = R"("enabled": true, "action": {"kind": "reject"})";
    for (DomainPicture& domain : picture)
        for (MailPicture& mail : domain.mails)
            mail.extra = R"("mailbox": true)";
    write_file("/tmp/picture.json", picture_json(picture), 0600);
    const ProcessResult result = run_sorvane_audit({"--expect=/tmp/picture.json"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(finding_lines(result.out), Lines{}) << result.out;
    EXPECT_EQ(result.status, 0);
}

TEST_F(PictureCompareTest, ADomainOnlyThePanelHasIsAddedWithItsMailNames) {
    std::vector<DomainPicture> picture = seeded_picture();
    picture.push_back({"new.test", {"new-alias.test"}, {{"post", 4096, {"hello"}, ""}}, ""});
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-domain-alias-missing new-alias.test: the panel has it as an alias of new.test, the server "
        "does not",
        "error expect-domain-missing new.test: the panel hosts it, the server does not",
        "error expect-mail-alias-missing hello@new.test: the panel has it as an alias of post@new.test, the server "
        "does not",
        "error expect-mail-name-missing post@new.test: the panel has this mail name, the server does not",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, ADomainOnlyThePanelHasAndHasOffIsAddedOffWithItsAction) {
    std::vector<DomainPicture> picture = seeded_picture();
    picture.push_back({"new.test", {}, {{"post", 0, {}, ""}},
                       R"("enabled": false, "action": {"kind": "bounce", "phrase": "Closed."})"});
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-domain-missing new.test: the panel hosts it, the server does not",
        "error expect-mail-name-missing post@new.test: the panel has this mail name, the server does not",
        "warning expect-domain-on new.test: the panel has mail service off, a domain added has it on",
    });
    const ProcessResult planned = audit_against(text, {"--repair-plan"});
    EXPECT_EQ(repair_lines(planned.out),
              (Lines{"sorvane --add-domain --domain-name=new.test",
                     "sorvane --add-mailname --domain-name=new.test --mailname=post --disk-quota=0",
                     "sorvane --turn-off-domain --domain-name=new.test --mail-addresses=post"}));
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, ADomainThePanelDoesNotHaveIsRemoved) {
    std::vector<DomainPicture> picture = seeded_picture();
    picture.pop_back();
    const std::string text = picture_json(picture);
    expect_findings(text, {"warning expect-domain-extra neighbour.test: the server hosts it, the panel does not"});
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, OnlyTheDomainsInScopeAreCompared) {
    std::vector<DomainPicture> picture = seeded_picture();
    picture.pop_back();
    picture.push_back({"new.test", {}, {}, ""});
    expect_findings(picture_json(picture), {}, {"--domain=EXAMPLE.test"});
    expect_findings(picture_json(picture),
                    {"warning expect-domain-extra neighbour.test: the server hosts it, the panel does not"},
                    {"--domain=neighbour.test"});
}

TEST_F(PictureCompareTest, ADomainTheServerHasAsAnAliasNeedsAPerson) {
    std::vector<DomainPicture> picture = seeded_picture();
    domain_of(picture, kDomain).aliases = {kAliasOne};
    picture.push_back({kAliasTwo, {"alias-three.test"}, {{"post", 0, {}, ""}}, R"("enabled": false)"});
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-domain-missing alias-two.test: the panel hosts it, the server has it as an alias of "
        "example.test",
        "warning expect-domain-alias-extra alias-two.test: the server has it as an alias of example.test, the "
        "panel does not",
    });
    const ProcessResult planned = audit_against(text, {"--repair-plan"});
    EXPECT_EQ(repair_lines(planned.out),
              Lines{"sorvane --del-domain-alias --domain-name=example.test --domain-alias-name=alias-two.test "
                    "--domain-aliases=alias-one.test,alias-two.test '--mail-addresses=box,abuse;info,office,sales;"
                    "john,j.doe'"});
    EXPECT_NE(planned.out.find("needs a person: expect-domain-missing alias-two.test\n"), std::string::npos)
        << planned.out;
}

TEST_F(PictureCompareTest, ADomainAliasMovedToAnotherDomainNeedsAPerson) {
    std::vector<DomainPicture> picture = seeded_picture();
    domain_of(picture, kDomain).aliases = {kAliasOne};
    domain_of(picture, kNeighbour).aliases = {kAliasTwo};
    expect_findings(picture_json(picture), {
        "error expect-domain-alias-missing alias-two.test: the panel has it as an alias of neighbour.test, the "
        "server as an alias of example.test",
        "warning expect-domain-alias-extra alias-two.test: the server has it as an alias of example.test, the "
        "panel does not",
    });
}

TEST_F(PictureCompareTest, DomainAliasesDifferingBothWays) {
    std::vector<DomainPicture> picture = seeded_picture();
    domain_of(picture, kDomain).aliases = {kAliasOne, "alias-three.test"};
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-domain-alias-missing alias-three.test: the panel has it as an alias of example.test, the "
        "server does not",
        "warning expect-domain-alias-extra alias-two.test: the server has it as an alias of example.test, the "
        "panel does not",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, MailNamesDifferingBothWays) {
    std::vector<DomainPicture> picture = seeded_picture();
    DomainPicture& example = domain_of(picture, kDomain);
    example.mails.erase(example.mails.begin() + 2);  // box
    example.mails.push_back({"sam", 2048, {"samuel"}, ""});
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-mail-alias-missing samuel@example.test: the panel has it as an alias of sam@example.test, the "
        "server does not",
        "error expect-mail-name-missing sam@example.test: the panel has this mail name, the server does not",
        "warning expect-mail-name-extra box@example.test: the server has this mail name, the panel does not",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, MailAliasesDifferingBothWays) {
    std::vector<DomainPicture> picture = seeded_picture();
    mail_of(picture, kDomain, "info").aliases = {"sales", "help"};
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-mail-alias-missing help@example.test: the panel has it as an alias of info@example.test, the "
        "server does not",
        "warning expect-mail-alias-extra office@example.test: the server has it as an alias of info@example.test, "
        "the panel does not",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, AnAliasMovedToAnotherMailNameIsMoved) {
    std::vector<DomainPicture> picture = seeded_picture();
    mail_of(picture, kDomain, "info").aliases = {"sales"};
    mail_of(picture, kDomain, "john").aliases = {"j.doe", "office"};
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-mail-alias-missing office@example.test: the panel has it as an alias of john@example.test, "
        "the server does not",
        "warning expect-mail-alias-extra office@example.test: the server has it as an alias of info@example.test, "
        "the panel does not",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, AnAliasMadeAMailNameBecomesOne) {
    std::vector<DomainPicture> picture = seeded_picture();
    mail_of(picture, kDomain, "box").aliases = {};
    domain_of(picture, kDomain).mails.push_back({"abuse", 0, {}, ""});
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-mail-name-missing abuse@example.test: the panel has this mail name, the server does not",
        "warning expect-mail-alias-extra abuse@example.test: the server has it as an alias of box@example.test, the "
        "panel does not",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, AMailboxThePanelWantsNeedsAPerson) {
    std::vector<DomainPicture> picture = seeded_picture();
    domain_of(picture, kDomain).mails.push_back({"sam", 0, {}, R"("mailbox": true)"});
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-mail-name-missing sam@example.test: the panel has this mail name, the server does not",
        "error expect-mailbox-missing sam@example.test: the panel has a mailbox for it, the authentication store "
        "has no row",
    });
    const ProcessResult planned = audit_against(text, {"--repair-plan"});
    EXPECT_EQ(repair_lines(planned.out),
              Lines{"sorvane --add-mailname --domain-name=example.test --mailname=sam --disk-quota=0"});
    EXPECT_NE(planned.out.find("needs a person: expect-mailbox-missing sam@example.test\n"), std::string::npos)
        << planned.out;
    run_repair_plan(planned.out);
    expect_findings(text, {
        "error expect-mailbox-missing sam@example.test: the panel has a mailbox for it, the authentication store "
        "has no row",
    });
}

TEST_F(PictureCompareTest, AMailboxThePanelDoesNotHaveIsRemoved) {
    std::vector<DomainPicture> picture = seeded_picture();
    mail_of(picture, kDomain, "john").extra = R"("mailbox": false)";
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "warning expect-mailbox-extra john@example.test: the authentication store has a mailbox for it, the panel "
        "does not",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, AQuotaThatDiffersIsSet) {
    std::vector<DomainPicture> picture = seeded_picture();
    mail_of(picture, kDomain, "info").quota = 2097152;
    mail_of(picture, kDomain, "box").quota = -1;
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "warning expect-quota-differs box@example.test: the panel's quota is unlimited, the quota store has 5242880B",
        "warning expect-quota-differs info@example.test: the panel's quota is 2097152 bytes, the quota store has "
        "1048576B",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, ADomainThePanelHasOffIsTurnedOff) {
    std::vector<DomainPicture> picture = seeded_picture();
    domain_of(picture, kDomain).extra = R"("enabled": false)";
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "warning expect-domain-on example.test: the panel has mail service off, the server has it on",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, ADomainThePanelHasOnIsTurnedOnWithThePanelsAction) {
    ASSERT_EQ(run_sorvane({"--turn-off-domain", "--domain-name=neighbour.test", "--mail-addresses=info"}).status, 0);
    std::vector<DomainPicture> picture = seeded_picture();
    domain_of(picture, kNeighbour).extra = R"("enabled": true, "action": {"kind": "bounce", "phrase": "Gone."})";
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-domain-off neighbour.test: the panel has mail service on, the server has it off",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, TurningADomainOnPutsItsDomainAliasesBack) {
    ASSERT_EQ(run_sorvane({"--turn-off-domain", "--domain-name=example.test",
                           "--domain-aliases=alias-one.test,alias-two.test",
                           "--mail-addresses=" + seeded_mail_addresses()})
                  .status,
              0);
    std::vector<DomainPicture> picture = seeded_picture();
    const std::string off = picture_json(picture);
    expect_findings(off, {});
    domain_of(picture, kDomain).extra = R"("enabled": true)";
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "error expect-domain-off example.test: the panel has mail service on, the server has it off",
    });
    expect_repaired_to(text);
}

TEST_F(PictureCompareTest, TheActionForUnknownNamesIsSetAsThePanelHasIt) {
    std::vector<DomainPicture> picture = seeded_picture();
    domain_of(picture, kDomain).extra = R"("action": {"kind": "catch-all", "email": "info@example.test"})";
    domain_of(picture, kNeighbour).extra = R"("action": {"kind": "bounce", "phrase": "Moved away."})";
    const std::string text = picture_json(picture);
    expect_findings(text, {
        "warning expect-action-differs example.test: the panel's action for unknown names is catch-all to "
        "info@example.test, the server's is bounce",
        "warning expect-action-differs neighbour.test: the panel's action for unknown names is bounce with \"Moved "
        "away.\", the server's is reject",
    });
    expect_repaired_to(text);
}

}  // namespace
}  // namespace sorvane::test
