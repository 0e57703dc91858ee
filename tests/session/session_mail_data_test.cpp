// The process-wide session: reading once, normalising, releasing, dumping.
#include "session/session_mail_data.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "session/acquire_session.h"
#include "session/mail_data_normalize.h"
#include "session_test_support.h"

namespace sorvane::test {
namespace {

using crelm::mail::SessionMailData;
using Strings = std::vector<std::string>;

Strings strings(const std::vector<char*>& texts) { return Strings(texts.begin(), texts.end()); }

const char* const kDocument = R"({"domain": {
    "name": "Example.TEST", "dom_aliases": ["Alias.Test"], "maillists": ["List-One"],
    "mails": [
        {"name": "John", "mbox_quota": 2, "mbox_quota_unit": "KB", "aliases": ["J.Doe", "jd"]},
        {"name": "mary", "mbox_quota": -1, "mbox_quota_unit": "MB"},
        {"name": "zero", "mbox_quota": 0, "mbox_quota_unit": "GB"},
        {"name": "big", "mbox_quota": 3, "mbox_quota_unit": "TB"},
        {"name": "plain", "mbox_quota": 0x10}
    ]},
    "certificates": [{"name": "Mail.Cert", "certfile": "/Etc/Cert.PEM"}]})";

using SessionReadTest = SessionTest;

TEST_F(SessionReadTest, DocumentFillsTheSessionWithLowerCaseNamesAndQuotasInBytes) {
    ASSERT_EQ(read_session_text(kDocument), 0);
    const SessionMailData* data = existing_session_mail_data();
    ASSERT_NE(data, nullptr);
    EXPECT_STREQ(data->domain_name, "example.test");
    EXPECT_EQ(strings(data->domain_aliases), (Strings{"alias.test"}));
    EXPECT_EQ(strings(data->maillists), (Strings{"List-One"}));  // mailing lists keep their case
    ASSERT_EQ(data->mails.size(), 5u);
    EXPECT_STREQ(data->mails[0].name, "john");
    EXPECT_EQ(strings(data->mails[0].aliases), (Strings{"j.doe", "jd"}));
    EXPECT_EQ(data->mails[0].mbox_quota, 2048);
    EXPECT_EQ(data->mails[1].mbox_quota, -1);
    EXPECT_EQ(data->mails[2].mbox_quota, 0);
    EXPECT_EQ(data->mails[3].mbox_quota, 3 * 1099511627776);
    EXPECT_EQ(data->mails[4].mbox_quota, 16);
    EXPECT_STREQ(data->certificates[0].name, "mail.cert");
    EXPECT_STREQ(data->certificates[0].certfile, "/Etc/Cert.PEM");
    EXPECT_TRUE(logged().empty());
}

TEST_F(SessionReadTest, QuotaThatOverflowsInBytesIsRefusedAndDropsTheObject) {
    EXPECT_EQ(read_session_text(R"({"domain": {"mails": [{"name": "a", "mbox_quota": 8388608, "mbox_quota_unit": "TB"}]}})"),
              23);
    EXPECT_EQ(existing_session_mail_data(), nullptr);
    EXPECT_EQ(logged(), (Strings{"Mailbox quota of 'a' is too large: 8388608 TB is more bytes than a quota can hold"}));
}

// 16777217 TB is 2^64 + 2^40 bytes: a wrapping product would read as 1 TB.
TEST_F(SessionReadTest, QuotaThatWrapsToAPositiveNumberIsRefused) {
    EXPECT_EQ(read_session_text(R"({"domain": {"mails": [{"name": "ok", "mbox_quota": 1, "mbox_quota_unit": "TB"},)"
                                R"({"name": "b", "mbox_quota": 16777217, "mbox_quota_unit": "TB"}]}})"),
              23);
    EXPECT_EQ(existing_session_mail_data(), nullptr);
    EXPECT_EQ(logged(), (Strings{"Mailbox quota of 'b' is too large: 16777217 TB is more bytes than a quota can hold"}));
}

TEST_F(SessionReadTest, LargestQuotaThatFitsIsKept) {
    ASSERT_EQ(read_session_text(R"({"domain": {"mails": [{"name": "a", "mbox_quota": 8388607, "mbox_quota_unit": "TB"},)"
                                R"({"name": "b", "mbox_quota": 9223372036854775807}]}})"),
              0);
    EXPECT_EQ(existing_session_mail_data()->mails[0].mbox_quota, 8388607 * 1099511627776);
    EXPECT_EQ(existing_session_mail_data()->mails[1].mbox_quota, INT64_MAX);
    EXPECT_TRUE(logged().empty());
}

TEST(QuotaInBytes, RefusesEveryProductBeyondSigned64Bits) {
    std::int64_t bytes = 7;
    EXPECT_TRUE(crelm::mail::quota_in_bytes(3, "KB", bytes));
    EXPECT_EQ(bytes, 3072);
    EXPECT_TRUE(crelm::mail::quota_in_bytes(INT64_MAX / 1024, "KB", bytes));
    EXPECT_EQ(bytes, INT64_MAX / 1024 * 1024);
    bytes = 7;
    EXPECT_FALSE(crelm::mail::quota_in_bytes(INT64_MAX / 1024 + 1, "KB", bytes));
    EXPECT_FALSE(crelm::mail::quota_in_bytes(8796093022208, "MB", bytes));
    EXPECT_FALSE(crelm::mail::quota_in_bytes(8589934592, "GB", bytes));
    EXPECT_FALSE(crelm::mail::quota_in_bytes(INT64_MAX, "TB", bytes));
    EXPECT_EQ(bytes, 7);
}

TEST(QuotaUnits, AreCaseSensitivePowersOf1024) {
    EXPECT_EQ(crelm::mail::quota_unit_multiplier("B"), 1);
    EXPECT_EQ(crelm::mail::quota_unit_multiplier("KB"), 1024);
    EXPECT_EQ(crelm::mail::quota_unit_multiplier("MB"), 1048576);
    EXPECT_EQ(crelm::mail::quota_unit_multiplier("GB"), 1073741824);
    EXPECT_EQ(crelm::mail::quota_unit_multiplier("TB"), 1099511627776);
    EXPECT_EQ(crelm::mail::quota_unit_multiplier("kb"), 0);
    EXPECT_EQ(crelm::mail::quota_unit_multiplier(""), 0);
}

TEST(QuotaUnits, UnknownUnitTurnsAPositiveQuotaIntoZero) {
    SessionMailData data;
    data.mails.emplace_back().mbox_quota = 2;
    data.mails[0].mbox_quota_unit = "kb";
    data.mails.emplace_back().mbox_quota = -1;
    data.mails[1].mbox_quota_unit = "kb";
    EXPECT_TRUE(crelm::mail::convert_quotas_to_bytes(data));
    EXPECT_EQ(data.mails[0].mbox_quota, 0);
    EXPECT_EQ(data.mails[1].mbox_quota, -1);
}

TEST_F(SessionReadTest, SecondFillIsRefusedAndTheFirstDataStays) {
    ASSERT_EQ(read_session_text(R"({"domain": {"name": "first.test"}})"), 0);
    EXPECT_EQ(read_session_text(R"({"domain": {"name": "second.test"}})"), -2);
    EXPECT_STREQ(existing_session_mail_data()->domain_name, "first.test");
    EXPECT_EQ(logged(), (Strings{"Session mail DB info have already been initialized. Probably a programming error."}));
}

TEST_F(SessionReadTest, FillAfterTheObjectWasCreatedIsRefused) {
    ASSERT_NE(session_mail_data(), nullptr);
    EXPECT_EQ(read_session_text(R"({"domain": {"name": "a.test"}})"), -2);
}

TEST_F(SessionReadTest, RejectedDocumentGivesTheReaderCodeLogsAndDropsTheObject) {
    EXPECT_EQ(read_session_text("{}"), 14);
    EXPECT_EQ(existing_session_mail_data(), nullptr);
    EXPECT_EQ(logged(), (Strings{"Session mail DB info parsing error: Some required fields are missing from the JSON "
                                 "object. Check that input JSON document conforms to schema. Error occured at offset "
                                 "1, character '}'. "}));
}

TEST_F(SessionReadTest, EmptyInputIsCode11AtOffsetZero) {
    EXPECT_EQ(read_session_text(""), 11);
    EXPECT_EQ(logged(), (Strings{"Session mail DB info parsing error: JSON object is expected. Error occured at offset 0, "
                                 "character '\\x00'. "}));
}

TEST_F(SessionReadTest, ReadFailureIsMinus3WithTheSystemError) {
    std::FILE* directory = std::fopen(scratch_dir().c_str(), "r");
    ASSERT_NE(directory, nullptr);
    EXPECT_EQ(read_session_mail_data(directory, StdinPoll::Skip), -3);
    const std::string fd = std::to_string(fileno(directory));
    std::fclose(directory);
    EXPECT_EQ(existing_session_mail_data(), nullptr);
    EXPECT_EQ(logged(), (Strings{"Failed to read session mail DB info from input stream (fd=" + fd +
                                 "): Is a directory [21]"}));
}

TEST_F(SessionReadTest, LargeDocumentFromAPipeIsReadWhole) {
    std::string document = R"({"domain": {"name": "a.test", "mails": [)";
    for (int i = 0; i < 20000; ++i) {
        document += (i ? "," : "") + std::string(R"({"name": "m)") + std::to_string(i) + "\"}";
    }
    document += "]}}";
    const std::string path = scratch_dir() + "/document.json";
    write_file(path, document);
    std::FILE* pipe = popen(("cat " + path).c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    EXPECT_EQ(read_session_mail_data(pipe, StdinPoll::Skip), 0);
    pclose(pipe);
    ASSERT_EQ(existing_session_mail_data()->mails.size(), 20000u);
    EXPECT_STREQ(existing_session_mail_data()->mails[19999].name, "m19999");
}

// Standard input replaced by a pipe for the poll tests.
class StdinPipe {
public:
    StdinPipe() {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        saved_ = dup(0);
        dup2(ends[0], 0);
        close(ends[0]);
        writer_ = ends[1];
        clearerr(stdin);
    }
    ~StdinPipe() {
        if (writer_ >= 0) {
            close(writer_);
        }
        dup2(saved_, 0);
        close(saved_);
    }
    void send_and_close(const std::string& text) {
        EXPECT_EQ(write(writer_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(writer_);
        writer_ = -1;
    }

private:
    int saved_ = -1;
    int writer_ = -1;
};

TEST_F(SessionReadTest, PollFindsNoDataThenDataThatHasArrived) {
    StdinPipe input;
    EXPECT_EQ(read_session_mail_data(stdin, StdinPoll::First), -1);
    EXPECT_EQ(existing_session_mail_data(), nullptr);
    input.send_and_close(R"({"domain": {"name": "a.test"}})");
    EXPECT_EQ(read_session_mail_data(stdin, StdinPoll::First), 0);
    EXPECT_STREQ(existing_session_mail_data()->domain_name, "a.test");
    EXPECT_TRUE(logged().empty());
}

TEST_F(SessionReadTest, PollWatchesOnlyDescriptorZero) {
    const std::string path = scratch_dir() + "/document.json";
    write_file(path, R"({"domain": {"name": "a.test"}})");
    std::FILE* file = std::fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    ASSERT_GT(fileno(file), 0);
    EXPECT_EQ(read_session_mail_data(file, StdinPoll::First), -1);  // a file is always readable, but not watched
    std::fclose(file);
}

TEST_F(SessionReadTest, SessionObjectIsCreatedOnDemandAndReleased) {
    EXPECT_EQ(existing_session_mail_data(), nullptr);
    SessionMailData* data = session_mail_data();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(session_mail_data(), data);
    EXPECT_EQ(data->domain_name, nullptr);
    EXPECT_TRUE(data->mails.empty());
    release_session_mail_data();
    EXPECT_EQ(existing_session_mail_data(), nullptr);
    EXPECT_EQ(read_session_text(R"({"domain": {"name": "a.test"}})"), 0);  // a fresh fill after release
}

TEST_F(SessionReadTest, GuardReleasesTheSession) {
    {
        crelm::mail::SessionMailDataGuard guard;
        ASSERT_EQ(read_session_text(R"({"domain": {"name": "a.test"}})"), 0);
    }
    EXPECT_EQ(existing_session_mail_data(), nullptr);
    EXPECT_EQ(read_session_text(R"({"domain": {"name": "b.test"}})"), 0);
}

TEST(SessionDump, NoObject) {
    EXPECT_EQ(written_by([](std::FILE* out) { dump_session_mail_data(out, nullptr); }), "mail_db_data_t = (null)\n");
}

TEST_F(SessionReadTest, DumpFormatByteForByte) {
    ASSERT_EQ(read_session_text(R"({"domain": {"name": "a.test", "dom_aliases": ["b.test", "c.test"],
        "mails": [{"name": "john", "mbox_quota": 1, "mbox_quota_unit": "KB", "aliases": ["j", "jd"]}, {"name": "mary"}]},
        "certificates": [{"name": "one", "certfile": "/c/1"}, {"name": "two", "certfile": "/c/2"}]})"),
              0);
    const std::string dump = written_by([](std::FILE* out) { dump_session_mail_data(out, existing_session_mail_data()); });
    EXPECT_EQ(dump,
              "mail_db_data_t = {\n"
              "  \"domain\": {\n"
              "    \"name\": \"a.test\",\n"
              "    \"dom_aliases\": [ \"b.test\", \"c.test\" ],\n"
              "    \"mails\": [\n"
              "      {\n"
              "        \"name\": \"john\",\n"
              "        \"mbox_quota\": 1024,\n"
              "        \"aliases\": [ \"j\", \"jd\" ]\n"
              "  },\n"
              "      {\n"
              "        \"name\": \"mary\",\n"
              "        \"mbox_quota\": -1,\n"
              "        \"aliases\": [  ]\n"
              "  }\n"
              "    ]\n"
              "  },\n"
              "  \"certificates\": [\n"
              "  {\n"
              "    \"name\": \"one\",\n"
              "    \"certfile\": \"/c/1\",\n"
              "  },\n"
              "  {\n"
              "    \"name\": \"two\",\n"
              "    \"certfile\": \"/c/2\",\n"
              "  }\n"
              "  ]\n"
              "}\n");
}

TEST(SessionDump, EmptyObjectAndMissingTexts) {
    SessionMailData data;
    data.certificates.emplace_back();
    EXPECT_EQ(written_by([&](std::FILE* out) { dump_session_mail_data(out, &data); }),
              "mail_db_data_t = {\n  \"domain\": {\n    \"name\": \"(null)\",\n    \"dom_aliases\": [  ],\n"
              "    \"mails\": [\n    ]\n  },\n  \"certificates\": [\n  {\n    \"name\": \"(null)\",\n"
              "    \"certfile\": \"(null)\",\n  }\n  ]\n}\n");
}

TEST_F(SessionReadTest, CommandLineFillLowerCasesAndLeavesQuotasUnlimited) {
    const crelm::mail::MailDbDomainAliasesList aliases("Alias.Test");
    const crelm::mail::MailDbMailAddressesList mails("John,J.Doe;mary");
    ASSERT_TRUE(crelm::mail::fill_session_from_command_line("Example.Test", &aliases, &mails));
    const SessionMailData* data = existing_session_mail_data();
    EXPECT_STREQ(data->domain_name, "example.test");
    EXPECT_EQ(strings(data->domain_aliases), (Strings{"alias.test"}));
    ASSERT_EQ(data->mails.size(), 2u);
    EXPECT_STREQ(data->mails[0].name, "john");
    EXPECT_EQ(strings(data->mails[0].aliases), (Strings{"j.doe"}));
    EXPECT_EQ(data->mails[1].mbox_quota, -1);
    EXPECT_STREQ(data->mails[1].mbox_quota_unit, "B");
}

}  // namespace
}  // namespace sorvane::test
