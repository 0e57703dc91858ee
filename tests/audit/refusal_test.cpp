// sorvane-audit refuses to run where it cannot do its work: as any user but
// root (it could not read the stores and the mail trees), and with options
// it does not know or that lack their value. Each time status 2, the reason
// on standard error and nothing on standard output.
#include <gtest/gtest.h>

#include "audit/audit_fixture.h"

namespace sorvane::test {
namespace {

const std::string kUsage =
    "Usage: sorvane-audit [--domain=<domain>]... [--expect=<file>|--expect=-] [--json] [--repair-plan [--batch]]"
    " [--metrics=<file>]\n";

// sorvane-audit with args, as the unprivileged user 65534 without groups.
ProcessResult as_local_user(const std::vector<std::string>& args) {
    std::vector<std::string> argv{"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                  sorvane_audit_path()};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_process(argv);
}

void expect_refused(const ProcessResult& result, const std::string& err) {
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, err);
}

using RefusalTest = AuditTest;

TEST_F(RefusalTest, AnyOtherUserThanRootIsRefused) {
    const std::string refusal = "sorvane-audit: must be run as root: it reads the stores and the mail trees\n";
    expect_refused(as_local_user({}), refusal);
    expect_refused(as_local_user({"--json", "--repair-plan"}), refusal);
    expect_refused(as_local_user({"--domain=" + kDomain}), refusal);
}

TEST_F(RefusalTest, AnOtherUserStillGetsTheHelp) {
    const ProcessResult result = as_local_user({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.rfind(kUsage, 0), 0U) << result.out;
}

TEST_F(RefusalTest, AnUnknownOptionIsRefused) {
    expect_refused(run_sorvane_audit({"--bogus"}), "sorvane-audit: unrecognised option '--bogus'\n" + kUsage);
    expect_refused(run_sorvane_audit({"--domain=" + kDomain, "--dom=x"}),
                   "sorvane-audit: unrecognised option '--dom=x'\n" + kUsage);
}

TEST_F(RefusalTest, AnOptionWithoutItsValueIsRefused) {
    expect_refused(run_sorvane_audit({"--expect"}),
                   "sorvane-audit: the required argument for option '--expect' is missing\n" + kUsage);
    expect_refused(run_sorvane_audit({"--domain"}),
                   "sorvane-audit: the required argument for option '--domain' is missing\n" + kUsage);
    expect_refused(run_sorvane_audit({"--metrics"}),
                   "sorvane-audit: the required argument for option '--metrics' is missing\n" + kUsage);
}

TEST_F(RefusalTest, ASwitchWithAValueIsRefused) {
    expect_refused(run_sorvane_audit({"--json=yes"}),
                   "sorvane-audit: option '--json' does not take any arguments\n" + kUsage);
}

TEST_F(RefusalTest, AStrayWordIsRefused) {
    expect_refused(run_sorvane_audit({"example.test"}),
                   "sorvane-audit: too many positional options have been specified on the command line\n" + kUsage);
}

}  // namespace
}  // namespace sorvane::test
