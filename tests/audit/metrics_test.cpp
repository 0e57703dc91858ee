// --metrics: the counts as Prometheus text exposition that promtool accepts,
// equal to the JSON report's, written so that a concurrent reader never sees
// a part of the file; the report and the exit status are those of a run
// without it.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <regex>
#include <thread>

#include "audit/audit_fixture.h"

namespace sorvane::test {
namespace {

const std::string kRcptHosts = "/var/qmail/control/rcpthosts";

// The value of the sample "name" (with its labels, exactly as written) in
// an exposition; -1 when missing.
double sample(const std::string& text, const std::string& name) {
    const std::string prefix = "\n" + name + " ";
    const std::string framed = "\n" + text;
    const auto at = framed.find(prefix);
    if (at == std::string::npos)
        return -1;
    return std::stod(framed.substr(at + prefix.size()));
}

// A number of the JSON report's summary.
double summary_value(const std::string& json, const std::string& key) {
    std::smatch match;
    const std::regex pattern("\"" + key + "\":([0-9]+)");
    const auto summary = json.find("\"summary\"");
    const std::string tail = json.substr(summary);
    if (summary == std::string::npos || !std::regex_search(tail, match, pattern))
        return -1;
    return std::stod(match[1]);
}

// The JSON report's findings counted by "code severity".
std::map<std::string, int> json_codes(const std::string& json) {
    std::map<std::string, int> counts;
    const std::regex finding("\\{\"code\":\"([a-z-]+)\",\"severity\":\"([a-z]+)\"");
    for (auto it = std::sregex_iterator(json.begin(), json.end(), finding); it != std::sregex_iterator(); ++it)
        ++counts[(*it)[1].str() + " " + (*it)[2].str()];
    return counts;
}

// The exposition's findings by code, as "code severity".
std::map<std::string, int> metric_codes(const std::string& text) {
    std::map<std::string, int> counts;
    const std::regex line("\nsorvane_audit_findings_by_code\\{code=\"([a-z-]+)\",severity=\"([a-z]+)\"\\} ([0-9]+)");
    const std::string framed = "\n" + text;
    for (auto it = std::sregex_iterator(framed.begin(), framed.end(), line); it != std::sregex_iterator(); ++it)
        counts[(*it)[1].str() + " " + (*it)[2].str()] = std::stoi((*it)[3].str());
    return counts;
}

std::vector<std::string> directory_entries(const std::string& path) {
    std::vector<std::string> names;
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr)
        return names;
    while (const dirent* entry = readdir(dir))
        if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..")
            names.push_back(entry->d_name);
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

// Two findings of two codes: a domain out of rcpthosts and a duplicated line.
void break_server() {
    std::string kept;
    std::string text = read_file(kRcptHosts);
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        const std::string line = text.substr(start, end - start);
        if (line != kDomain)
            kept += line + "\n";
        start = end + 1;
    }
    write_file(kRcptHosts, kept + kNeighbour + "\n", 0644);
}

class MetricsTest : public AuditTest {
protected:
    void SetUp() override {
        AuditTest::SetUp();
        directory = scratch_dir() + "/textfile";
        ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
        metrics = directory + "/sorvane-audit.prom";
    }
    std::string directory;
    std::string metrics;
};

TEST_F(MetricsTest, PromtoolAcceptsTheFileAndItsCountsAreTheJsonReports) {
    break_server();
    const ProcessResult json = run_sorvane_audit({"--json"});
    const ProcessResult with = run_sorvane_audit({"--json", "--metrics=" + metrics});
    EXPECT_EQ(with.status, 1);
    EXPECT_EQ(with.out, json.out) << "the report is the same with --metrics";
    EXPECT_EQ(with.err, "");
    const std::string text = read_file(metrics);

    const ProcessResult promtool = run_process({"/usr/bin/promtool", "check", "metrics"},
                                               RunOptions{RunOptions::Stdin::Pipe, text, {}, {}, {}});
    EXPECT_EQ(promtool.status, 0) << promtool.out << promtool.err << text;
    EXPECT_EQ(promtool.out + promtool.err, "") << text;

    EXPECT_EQ(sample(text, "sorvane_audit_up"), 1);
    EXPECT_EQ(sample(text, "sorvane_audit_findings{severity=\"error\"}"), summary_value(json.out, "error"));
    EXPECT_EQ(sample(text, "sorvane_audit_findings{severity=\"warning\"}"), summary_value(json.out, "warning"));
    EXPECT_EQ(sample(text, "sorvane_audit_findings{severity=\"notice\"}"), summary_value(json.out, "notice"));
    EXPECT_EQ(sample(text, "sorvane_audit_domains"), summary_value(json.out, "domains"));
    EXPECT_EQ(sample(text, "sorvane_audit_mail_names"), summary_value(json.out, "mail_names"));
    EXPECT_EQ(sample(text, "sorvane_audit_store_rows"), summary_value(json.out, "rows"));
    EXPECT_GE(summary_value(json.out, "findings"), 2);
    EXPECT_EQ(metric_codes(text), json_codes(json.out)) << text;
    EXPECT_GE(metric_codes(text).size(), 2U) << text;

    EXPECT_GE(sample(text, "sorvane_audit_duration_seconds"), 0);
    EXPECT_LT(sample(text, "sorvane_audit_duration_seconds"), 60);
    const double now = static_cast<double>(time(nullptr));
    EXPECT_LE(sample(text, "sorvane_audit_last_run_timestamp_seconds"), now + 1);
    EXPECT_GE(sample(text, "sorvane_audit_last_run_timestamp_seconds"), now - 60);

    EXPECT_EQ(file_info(metrics).mode, 0644U);
    EXPECT_EQ(directory_entries(directory), std::vector<std::string>{"sorvane-audit.prom"});
}

TEST_F(MetricsTest, ACleanServerKeepsStatusZero) {
    const ProcessResult plain = run_sorvane_audit({});
    const ProcessResult with = run_sorvane_audit({"--metrics=" + metrics});
    EXPECT_EQ(with.status, 0) << with.out;
    EXPECT_EQ(with.out, plain.out);
    const std::string text = read_file(metrics);
    EXPECT_EQ(sample(text, "sorvane_audit_up"), 1);
    EXPECT_EQ(sample(text, "sorvane_audit_findings{severity=\"error\"}"), 0);
    EXPECT_EQ(metric_codes(text), (std::map<std::string, int>{}));
}

// An audit that cannot run keeps its status 2 and says so in the file, with
// no counts (nothing was read).
TEST_F(MetricsTest, AnAuditThatCannotRunIsDown) {
    const ProcessResult with = run_sorvane_audit({"--expect=/nonexistent/picture.json", "--metrics=" + metrics});
    EXPECT_EQ(with.status, 2) << with.err;
    const std::string text = read_file(metrics);
    EXPECT_EQ(sample(text, "sorvane_audit_up"), 0);
    EXPECT_EQ(sample(text, "sorvane_audit_domains"), -1) << text;
    const ProcessResult promtool = run_process({"/usr/bin/promtool", "check", "metrics"},
                                               RunOptions{RunOptions::Stdin::Pipe, text, {}, {}, {}});
    EXPECT_EQ(promtool.status, 0) << promtool.out << promtool.err;
}

TEST_F(MetricsTest, AFileThatCannotBeWrittenEndsWithStatusTwo) {
    const std::string missing = directory + "/no-such-directory/sorvane-audit.prom";
    const ProcessResult with = run_sorvane_audit({"--metrics=" + missing});
    EXPECT_EQ(with.status, 2);
    EXPECT_EQ(with.err, "sorvane-audit: cannot write the metrics: cannot create " + missing +
                            ".tmp.XXXXXX: No such file or directory\n");
    EXPECT_EQ(directory_entries(directory), std::vector<std::string>{});
}

// A reader that reads the file over and over while audits replace it sees
// a whole exposition each time: the old one or a new one, never a part.
TEST_F(MetricsTest, AConcurrentReaderNeverSeesAPartialFile) {
    break_server();
    ASSERT_EQ(run_sorvane_audit({"--metrics=" + metrics}).status, 1);
    std::atomic<bool> writing{true};
    std::atomic<int> reads{0};
    std::vector<std::string> partial;
    std::thread reader([&] {
        while (writing) {
            const int fd = open(metrics.c_str(), O_RDONLY | O_CLOEXEC);
            if (fd < 0) {
                partial.push_back("(missing)");
                continue;
            }
            std::string text;
            char buffer[4096];
            ssize_t n;
            while ((n = read(fd, buffer, sizeof buffer)) > 0)
                text.append(buffer, static_cast<std::size_t>(n));
            close(fd);
            ++reads;
            const bool whole = text.rfind("# HELP sorvane_audit_up ", 0) == 0 &&
                               text.size() > 30 &&
                               text.compare(text.size() - 1, 1, "\n") == 0 &&
                               text.find("\nsorvane_audit_store_rows ") != std::string::npos;
            if (!whole)
                partial.push_back(text);
        }
    });
    for (int run = 0; run < 20; ++run)
        EXPECT_EQ(run_sorvane_audit({"--metrics=" + metrics}).status, 1);
    writing = false;
    reader.join();
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(partial, std::vector<std::string>{});
    EXPECT_EQ(directory_entries(directory), std::vector<std::string>{"sorvane-audit.prom"});
}

}  // namespace
}  // namespace sorvane::test
