// The panel's picture: sorvane's document schema in an array, with the
// audit's own members, read by the same reader with the same error texts.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "audit/picture.h"

namespace crelm::audit {
namespace {

using Strings = std::vector<std::string>;

struct Parsed {
    bool accepted = false;
    Picture picture;
    std::string message;
};

Parsed parse(std::string text) {
    Parsed parsed;
    parsed.accepted = parse_picture(text.data(), parsed.picture, parsed.message);
    return parsed;
}

std::string refusal(const std::string& text, std::size_t offset, char character) {
    return text + " Error occured at offset " + std::to_string(offset) + ", character '" + character + "'. ";
}

TEST(PictureReader, ReadsTheSchemaAndTheAuditsMembers) {
    const Parsed parsed = parse(R"([
        {"domain": {"name": "Example.TEST", "dom_aliases": ["Alias.test"], "enabled": false,
                    "action": {"kind": "catch-all", "email": "Post@example.test"},
                    "mails": [{"name": "Info", "mbox_quota": 2, "mbox_quota_unit": "KB", "aliases": ["Sales"],
                               "mailbox": true},
                              {"name": "john", "mailbox": false},
                              {"name": "box", "mbox_quota": 0}]}},
        {"domain": {"name": "other.test", "action": {"kind": "bounce", "phrase": "Gone."}}},
        {"domain": {"name": "third.test", "enabled": true, "action": {"kind": "reject"}}, "certificates": []}
    ])");
    ASSERT_TRUE(parsed.accepted) << parsed.message;
    const auto& domains = parsed.picture.domains;
    ASSERT_EQ(domains.size(), 3u);
    EXPECT_EQ(domains[0].name, "example.test");
    EXPECT_EQ(domains[0].aliases, Strings{"alias.test"});
    EXPECT_EQ(domains[0].enabled, std::optional<bool>(false));
    ASSERT_TRUE(domains[0].action);
    EXPECT_EQ(domains[0].action->kind, PictureAction::Kind::catchall);
    EXPECT_EQ(domains[0].action->text, "Post@example.test");
    ASSERT_EQ(domains[0].mails.size(), 3u);
    EXPECT_EQ(domains[0].mails[0].name, "info");
    EXPECT_EQ(domains[0].mails[0].quota, 2048);
    EXPECT_EQ(domains[0].mails[0].aliases, Strings{"sales"});
    EXPECT_EQ(domains[0].mails[0].mailbox, std::optional<bool>(true));
    EXPECT_EQ(domains[0].mails[1].quota, -1);
    EXPECT_EQ(domains[0].mails[1].mailbox, std::optional<bool>(false));
    EXPECT_EQ(domains[0].mails[2].quota, 0);
    EXPECT_EQ(domains[0].mails[2].mailbox, std::nullopt);
    EXPECT_EQ(domains[1].enabled, std::nullopt);
    ASSERT_TRUE(domains[1].action);
    EXPECT_EQ(domains[1].action->kind, PictureAction::Kind::bounce);
    EXPECT_EQ(domains[1].action->text, "Gone.");
    EXPECT_EQ(domains[2].enabled, std::optional<bool>(true));
    ASSERT_TRUE(domains[2].action);
    EXPECT_EQ(domains[2].action->kind, PictureAction::Kind::reject);
    EXPECT_TRUE(domains[2].mails.empty());
}

TEST(PictureReader, AnEmptyArrayIsAnEmptyPicture) {
    const Parsed parsed = parse(" [ ] ");
    EXPECT_TRUE(parsed.accepted) << parsed.message;
    EXPECT_TRUE(parsed.picture.domains.empty());
}

TEST(PictureReader, OneDocumentAloneIsNotAnArray) {
    const Parsed parsed = parse(R"({"domain": {"name": "example.test"}})");
    EXPECT_FALSE(parsed.accepted);
    EXPECT_EQ(parsed.message, refusal("JSON array is expected.", 0, '{'));
}

TEST(PictureReader, TheSchemasOwnChecksKeepTheirTexts) {
    const Parsed bad_name = parse(R"([{"domain": {"name": "bad_name.test"}}])");
    EXPECT_FALSE(bad_name.accepted);
    EXPECT_EQ(bad_name.message,
              refusal("Custom JSON value constraint failed: Domain name is not valid.", 36, '}'));
    const Parsed bad_quota = parse(R"([{"domain": {"name": "a.test", "mails": [{"name": "x", "mbox_quota": -2}]}}])");
    EXPECT_EQ(bad_quota.message,
              refusal("Custom JSON value constraint failed: Mailbox quota value is out of bounds.", 71, '}'));
    const Parsed unit = parse(R"([{"domain": {"name": "a.test", "mails": [{"name": "x", "mbox_quota_unit": "kb"}]}}])");
    EXPECT_EQ(unit.message,
              refusal("Custom JSON value constraint failed: Mailbox quota unit value is invalid.", 78, '}'));
    const Parsed empty_domain = parse(R"([{"domain": {}}])");
    EXPECT_EQ(empty_domain.message,
              refusal("Some required fields are missing from the JSON object. Check that input JSON document conforms "
                      "to schema.",
                      13, '}'));
    const Parsed cut = parse(R"([{"domain": {"name": "a.test"})");
    EXPECT_EQ(cut.message, "JSON value separator (',') or end of object is expected. Error occured at offset 30, "
                           "character '\\x00'. ");
}

TEST(PictureReader, TheAuditsMembersAreChecked) {
    const Parsed enabled = parse(R"([{"domain": {"name": "a.test", "enabled": 1}}])");
    EXPECT_EQ(enabled.message, refusal("Boolean value is expected.", 42, '1'));
    const Parsed mailbox = parse(R"([{"domain": {"name": "a.test", "mails": [{"name": "x", "mailbox": "yes"}]}}])");
    EXPECT_EQ(mailbox.message, refusal("Boolean value is expected.", 66, '"'));
    const Parsed kind = parse(R"([{"domain": {"name": "a.test", "action": {"kind": "drop"}}}])");
    EXPECT_EQ(kind.message, refusal("Custom JSON value constraint failed: Domain action kind is not valid.", 57, '}'));
    const Parsed no_kind = parse(R"([{"domain": {"name": "a.test", "action": {"phrase": "x"}}}])");
    EXPECT_EQ(no_kind.message,
              refusal("Some required fields are missing from the JSON object. Check that input JSON document conforms "
                      "to schema.",
                      56, '}'));
    const Parsed no_email = parse(R"([{"domain": {"name": "a.test", "action": {"kind": "catch-all"}}}])");
    EXPECT_EQ(no_email.message,
              refusal("Some required fields are missing from the JSON object. Check that input JSON document conforms "
                      "to schema.",
                      62, '}'));
    const Parsed email = parse(R"([{"domain": {"name": "a.test", "action": {"kind": "catch-all", "email": "info"}}}])");
    EXPECT_EQ(email.message,
              refusal("Custom JSON value constraint failed: Catch-all address is not valid.", 79, '}'));
    const Parsed action = parse(R"([{"domain": {"name": "a.test", "action": "reject"}}])");
    EXPECT_EQ(action.message, refusal("JSON object is expected.", 41, '"'));
}

TEST(PictureReader, ADomainWithoutNameOrGivenTwiceIsRefused) {
    const Parsed unnamed = parse(R"([{"domain": {"dom_aliases": []}}])");
    EXPECT_EQ(unnamed.message,
              refusal("Some required fields are missing from the JSON object. Check that input JSON document conforms "
                      "to schema.",
                      32, ']'));
    const Parsed mail = parse(R"([{"domain": {"name": "a.test", "mails": [{"aliases": []}]}}])");
    EXPECT_EQ(mail.message,
              refusal("Some required fields are missing from the JSON object. Check that input JSON document conforms "
                      "to schema.",
                      59, ']'));
    const Parsed twice = parse(R"([{"domain": {"name": "a.test"}}, {"domain": {"name": "A.test"}}])");
    EXPECT_EQ(twice.message, refusal("Custom JSON value constraint failed: Domain is given twice.", 63, ']'));
}

}  // namespace
}  // namespace crelm::audit
