// The standard-input document read with an extension: members the session
// does not keep are offered to it; what it declines is skipped as before.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "session/stdin_document.h"

namespace crelm::mail {
namespace {

// Takes the domain's "tag" and each mail's "flag"; fails on "bad".
class Recorder : public DocumentExtension {
public:
    Read read_domain_member(JsonReader& reader, std::string_view name) override {
        offered.push_back("domain " + std::string(name));
        if (name == "bad")
            return json_fail(reader, JsonError::ConstraintFailed, "Bad member") ? Read::Taken : Read::Failed;
        if (name != "tag")
            return Read::Skipped;
        const char* text = json_string(reader);
        if (text == nullptr)
            return Read::Failed;
        tag = text;
        return Read::Taken;
    }
    Read read_mail_member(JsonReader& reader, std::size_t mail, std::string_view name) override {
        offered.push_back("mail " + std::to_string(mail) + " " + std::string(name));
        if (name != "flag")
            return Read::Skipped;
        bool value = false;
        if (!json_boolean(reader, value))
            return Read::Failed;
        flags.push_back(std::to_string(mail) + (value ? " true" : " false"));
        return Read::Taken;
    }

    std::vector<std::string> offered;
    std::vector<std::string> flags;
    std::string tag;
};

struct Read {
    JsonError result = JsonError::Ok;
    std::string error;
};

// The texts in data point into text, which the caller keeps.
Read read(std::string& text, SessionMailData& data, DocumentExtension* extension) {
    JsonReaderPtr reader(json_reader_create(text.data()));
    errno = 0;
    Read outcome;
    outcome.result = read_stdin_document(*reader, data, NameCase::Lower, extension);
    outcome.error = json_error_text(*reader);
    return outcome;
}

const std::string kDocument = R"({"domain": {"name": "A.test", "tag": "t1", "mbox_quota": 5, "other": {"x": [1]},
    "mails": [{"name": "Info", "flag": true, "aliases": ["Sales"]}, {"name": "john", "mailbox": 1, "flag": false}]}})";

TEST(StdinDocumentExtension, OffersOnlyTheMembersTheSessionDoesNotKeep) {
    std::string text = kDocument;
    SessionMailData data;
    Recorder recorder;
    const Read outcome = read(text, data, &recorder);
    ASSERT_EQ(outcome.result, JsonError::Ok) << outcome.error;
    EXPECT_EQ(recorder.offered, (std::vector<std::string>{"domain tag", "domain mbox_quota", "domain other",
                                                          "mail 0 flag", "mail 1 mailbox", "mail 1 flag"}));
    EXPECT_EQ(recorder.flags, (std::vector<std::string>{"0 true", "1 false"}));
    EXPECT_EQ(recorder.tag, "t1");
    EXPECT_STREQ(data.domain_name, "a.test");
    ASSERT_EQ(data.mails.size(), 2u);
    EXPECT_STREQ(data.mails[0].name, "info");
    EXPECT_STREQ(data.mails[0].aliases.at(0), "sales");
}

TEST(StdinDocumentExtension, WithoutAnExtensionTheSameMembersAreSkipped) {
    std::string text = kDocument;
    SessionMailData data;
    const Read outcome = read(text, data, nullptr);
    ASSERT_EQ(outcome.result, JsonError::Ok) << outcome.error;
    EXPECT_STREQ(data.domain_name, "a.test");
    EXPECT_EQ(data.mails.size(), 2u);
}

TEST(StdinDocumentExtension, AFailureOfTheExtensionEndsTheDocumentWithItsText) {
    SessionMailData data;
    Recorder recorder;
    std::string text = R"({"domain": {"name": "a.test", "bad": 1}})";
    const Read outcome = read(text, data, &recorder);
    EXPECT_EQ(outcome.result, JsonError::ConstraintFailed);
    EXPECT_EQ(outcome.error, "Custom JSON value constraint failed: Bad member. Error occured at offset 36, character "
                             "' '. ");
}

}  // namespace
}  // namespace crelm::mail
