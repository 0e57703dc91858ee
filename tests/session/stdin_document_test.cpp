// The standard-input document: what is read, what is skipped, what is refused.
#include "session/stdin_document.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "session/stdin_schema_help.h"

namespace crelm::mail {
namespace {

using Strings = std::vector<std::string>;

// Reads a document into its own session data.
class Document {
public:
    explicit Document(std::string text) : buffer_(std::move(text)), reader_(json_reader_create(buffer_.data())) {
        errno = 0;
        result_ = read_stdin_document(*reader_, data_);
    }
    int code() const { return static_cast<int>(result_); }
    std::size_t offset() const { return static_cast<std::size_t>(reader_->position - reader_->start); }
    std::string error_text() const { return json_error_text(*reader_); }
    const SessionMailData& data() const { return data_; }

private:
    std::string buffer_;
    JsonReaderPtr reader_;
    SessionMailData data_;
    JsonError result_ = JsonError::Ok;
};

Strings strings(const std::vector<char*>& texts) { return Strings(texts.begin(), texts.end()); }

std::string constraint_text(const std::string& failure, std::size_t offset, char character) {
    return "Custom JSON value constraint failed: " + failure + ". Error occured at offset " + std::to_string(offset) +
           ", character '" + character + "'. ";
}

TEST(StdinDocument, ReadsEveryKnownMember) {
    Document document(R"({
        "domain": {
            "name": "Example.TEST",
            "dom_aliases": ["alias.test", "Other.test"],
            "maillists": ["List1"],
            "mails": [
                {"name": "John", "mbox_quota": 2, "mbox_quota_unit": "KB", "aliases": ["j", "jd"]},
                {"name": "mary"}
            ]
        },
        "certificates": [ {"name": "Cert", "certfile": "/etc/cert.pem"} ]
    })");
    ASSERT_EQ(document.code(), 0) << document.error_text();
    const SessionMailData& data = document.data();
    EXPECT_STREQ(data.domain_name, "Example.TEST");  // lower-cased later, by the session
    EXPECT_EQ(strings(data.domain_aliases), (Strings{"alias.test", "Other.test"}));
    EXPECT_EQ(strings(data.maillists), (Strings{"List1"}));
    ASSERT_EQ(data.mails.size(), 2u);
    EXPECT_STREQ(data.mails[0].name, "John");
    EXPECT_EQ(data.mails[0].mbox_quota, 2);  // units are applied later, by the session
    EXPECT_STREQ(data.mails[0].mbox_quota_unit, "KB");
    EXPECT_EQ(strings(data.mails[0].aliases), (Strings{"j", "jd"}));
    EXPECT_STREQ(data.mails[1].name, "mary");
    EXPECT_EQ(data.mails[1].mbox_quota, -1);
    EXPECT_STREQ(data.mails[1].mbox_quota_unit, "B");
    EXPECT_TRUE(data.mails[1].aliases.empty());
    ASSERT_EQ(data.certificates.size(), 1u);
    EXPECT_STREQ(data.certificates[0].name, "Cert");
    EXPECT_STREQ(data.certificates[0].certfile, "/etc/cert.pem");
}

TEST(StdinDocument, TheHelpSketchItselfIsRefused) {
    // Its first refusal is the placeholder text where a mail's quota number
    // belongs.
    const std::string sketch(stdin_schema_sketch());
    Document document(sketch);
    EXPECT_EQ(document.code(), 4);
    EXPECT_EQ(document.offset(), sketch.find("\"int64", sketch.find("\"mails\"")));
}

TEST(StdinDocument, TheSketchsCertificateObjectIsRefusedAtItsTrailingComma) {
    const std::string sketch(stdin_schema_sketch());
    const std::string certificates = "{" + sketch.substr(sketch.find("\"certificates\""));
    Document document(certificates);
    EXPECT_EQ(document.code(), 7);
    const std::size_t brace = certificates.find('}', certificates.find("\"certfile\""));
    EXPECT_EQ(document.error_text(),
              "String is expected. Error occured at offset " + std::to_string(brace) + ", character '}'. ");
}

TEST(StdinDocument, EmptyTopLevelDomainOrMailObjectsAreRefused) {
    const std::string missing =
        "Some required fields are missing from the JSON object. Check that input JSON document conforms to schema.";
    Document top(" { } ");
    EXPECT_EQ(top.code(), 14);
    EXPECT_EQ(top.error_text(), missing + " Error occured at offset 3, character '}'. ");
    Document domain(R"({"domain": {}})");
    EXPECT_EQ(domain.code(), 14);
    EXPECT_EQ(domain.offset(), 12u);
    Document mail(R"({"domain": {"mails": [{"name": "a"}, {}]}})");
    EXPECT_EQ(mail.code(), 14);
}

TEST(StdinDocument, EmptyCertificateObjectAndEmptyArraysAreAccepted) {
    Document document(R"({"domain": {"dom_aliases": [], "mails": []}, "certificates": [{}]})");
    ASSERT_EQ(document.code(), 0) << document.error_text();
    EXPECT_EQ(document.data().domain_name, nullptr);
    ASSERT_EQ(document.data().certificates.size(), 1u);
    EXPECT_EQ(document.data().certificates[0].name, nullptr);
}

TEST(StdinDocument, TopLevelMustBeAnObjectAndListsArrays) {
    EXPECT_EQ(Document("[]").code(), 11);
    EXPECT_EQ(Document("").code(), 11);
    EXPECT_EQ(Document(R"({"domain": []})").code(), 11);
    EXPECT_EQ(Document(R"({"domain": {"dom_aliases": "a.test"}})").code(), 15);
    EXPECT_EQ(Document(R"({"domain": {"mails": {}}})").code(), 15);
    EXPECT_EQ(Document(R"({"certificates": {}})").code(), 15);
    EXPECT_EQ(Document(R"({"domain": {"mails": ["a"]}})").code(), 11);
    EXPECT_EQ(Document(R"({"domain": {"name": 5}})").code(), 7);
}

TEST(StdinDocument, UnknownMembersOfEveryTypeAreSkippedAtEveryLevel) {
    const std::string unknown =
        R"("u1": "text", "u2": -0x10, "u3": true, "u4": null, "u5": {"x": [1, {"y": []}]}, "u6": [[], "z", false])";
    Document document("{" + unknown + R"(, "domain": {)" + unknown + R"(, "name": "a.test", "mails": [{)" + unknown +
                      R"(, "name": "m"}]}, "certificates": [{)" + unknown + R"(, "name": "c"}], )" + unknown + "}");
    ASSERT_EQ(document.code(), 0) << document.error_text();
    EXPECT_STREQ(document.data().domain_name, "a.test");
    ASSERT_EQ(document.data().mails.size(), 1u);
    EXPECT_STREQ(document.data().mails[0].name, "m");
    EXPECT_STREQ(document.data().certificates[0].name, "c");
}

TEST(StdinDocument, DomainLevelQuotaIsReadPastAndDropped) {
    Document document(R"({"domain": {"name": "a.test", "mbox_quota": 5, "mbox_quota_unit": "MB", "mails": [{"name": "m"}]}})");
    ASSERT_EQ(document.code(), 0) << document.error_text();
    EXPECT_EQ(document.data().mails[0].mbox_quota, -1);
}

TEST(StdinDocument, QuotaBelowMinusOneIsOutOfBounds) {
    const std::string text = R"({"domain": {"mails": [{"name": "m", "mbox_quota": -2, "aliases": []}]}})";
    Document document(text);
    EXPECT_EQ(document.code(), 23);
    EXPECT_EQ(document.error_text(),
              constraint_text("Mailbox quota value is out of bounds", text.find("-2") + 2, ','));
}

TEST(StdinDocument, QuotasMinusOneAndZeroAreKept) {
    Document document(R"({"domain": {"mails": [{"name": "a", "mbox_quota": -1}, {"name": "b", "mbox_quota": 0}]}})");
    ASSERT_EQ(document.code(), 0) << document.error_text();
    EXPECT_EQ(document.data().mails[0].mbox_quota, -1);
    EXPECT_EQ(document.data().mails[1].mbox_quota, 0);
}

TEST(StdinDocument, FloatingPointQuotaIsANumberFormatError) {
    const std::string text = R"({"domain": {"mails": [{"name": "a", "mbox_quota": 1.5}]}})";
    Document document(text);
    EXPECT_EQ(document.code(), 6);
    EXPECT_EQ(document.offset(), text.find("1.5") + 1);
}

TEST(StdinDocument, UnitsAreCaseSensitive) {
    const std::string text = R"({"domain": {"mails": [{"name": "a", "mbox_quota": 2, "mbox_quota_unit": "kb"}]}})";
    Document document(text);
    EXPECT_EQ(document.code(), 23);
    EXPECT_EQ(document.error_text(),
              constraint_text("Mailbox quota unit value is invalid", text.find("\"kb\"") + 4, '}'));
    for (const char* unit : {"B", "KB", "MB", "GB", "TB"}) {
        Document accepted(std::string(R"({"domain": {"mails": [{"name": "a", "mbox_quota_unit": ")") + unit +
                          "\"}]}}");
        EXPECT_EQ(accepted.code(), 0) << unit;
        EXPECT_STREQ(accepted.data().mails[0].mbox_quota_unit, unit);
    }
}

TEST(StdinDocument, BadDomainAliasIsReportedAfterTheValue) {
    const std::string text = R"({"domain": {"name": "a.test", "dom_aliases": ["-x", "b.test"]}})";
    Document document(text);
    EXPECT_EQ(document.code(), 23);
    EXPECT_EQ(document.error_text(), constraint_text("Domain alias is not valid", text.find("\"-x\"") + 4, ','));
}

TEST(StdinDocument, EveryNameCheckHasItsMessage) {
    struct Case {
        std::string text;
        std::string failure;
    };
    const Case cases[] = {
        {R"({"domain": {"name": "a..test"}})", "Domain name is not valid"},
        {R"({"domain": {"name": "caf\u0000e"}, "x": 1})", ""},  // ends at the escaped zero: "caf" is valid
        {R"({"domain": {"maillists": ["ok", ".bad"]}})", "Maillist is not valid"},
        {R"({"domain": {"mails": [{"name": "a b"}]}})", "Mailname is not valid"},
        {R"({"domain": {"mails": [{"name": "a", "aliases": ["x", "y..z"]}]}})", "Mail alias is not valid"},
        {R"({"domain": {"name": ""}})", "Domain name is not valid"},
        {R"({"domain": {"mails": [{"name": ""}]}})", "Mailname is not valid"},
    };
    for (const Case& each : cases) {
        Document document(each.text);
        if (each.failure.empty()) {
            EXPECT_EQ(document.code(), 0) << each.text;
            continue;
        }
        EXPECT_EQ(document.code(), 23) << each.text;
        EXPECT_NE(document.error_text().find("constraint failed: " + each.failure + ". "), std::string::npos)
            << document.error_text();
    }
}

TEST(StdinDocument, CertificateTextsAreNotChecked) {
    Document document(R"({"certificates": [{"name": "Any Name!", "certfile": "..//x y"}]})");
    ASSERT_EQ(document.code(), 0) << document.error_text();
    EXPECT_STREQ(document.data().certificates[0].certfile, "..//x y");
}

TEST(StdinDocument, RepeatedMembersTakeTheLaterValue) {
    Document document(R"({"domain": {"name": "a.test", "name": "b.test", "dom_aliases": ["x.test"],
                          "dom_aliases": ["y.test"], "mails": [{"name": "a", "name": "b"}]}})");
    ASSERT_EQ(document.code(), 0) << document.error_text();
    EXPECT_STREQ(document.data().domain_name, "b.test");
    EXPECT_EQ(strings(document.data().domain_aliases), (Strings{"y.test"}));
    EXPECT_STREQ(document.data().mails[0].name, "b");
}

TEST(StdinDocument, TextAfterTheDocumentIsIgnored) {
    EXPECT_EQ(Document(R"({"domain": {"name": "a.test"}} trailing {[)").code(), 0);
}

TEST(StdinDocument, SeparatorErrorsInsideTheDocument) {
    EXPECT_EQ(Document(R"({"domain": {"name": "a.test" "x": 1}})").code(), 13);
    EXPECT_EQ(Document(R"({"domain": {"dom_aliases": ["a.test" "b.test"]}})").code(), 16);
    EXPECT_EQ(Document(R"({"domain" {}})").code(), 12);
    EXPECT_EQ(Document(R"({"domain": {"name": "a.test")").code(), 13);
}

}  // namespace
}  // namespace crelm::mail
