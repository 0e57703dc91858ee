// What a server lacks for sorvane to work, taken away one prerequisite at a
// time from the sandbox server (which has them all): each gives its finding
// and the repair plan's line with what a person runs. Other checks may
// report the consequences too (a missing qmail directory leaves its files
// unreadable); only the readiness findings are compared here.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "audit/audit_fixture.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

// The finding lines whose code is a readiness code.
std::vector<std::string> readiness_lines(const std::string& report) {
    std::vector<std::string> lines;
    for (const std::string& line : finding_lines(report))
        if (line.find(" server-") != std::string::npos)
            lines.push_back(line);
    return lines;
}

std::vector<std::string> readiness_person_lines(const std::string& report) {
    std::vector<std::string> lines;
    for (const std::string& line : person_lines(report))
        if (line.rfind("needs a person: server-", 0) == 0)
            lines.push_back(line);
    return lines;
}

// The account file at path (the sandbox's private copy) without the entry
// of name.
void remove_entry(const std::string& path, const std::string& name) {
    std::istringstream in(read_file(path));
    std::string kept, line;
    while (std::getline(in, line))
        if (line.rfind(name + ":", 0) != 0)
            kept += line + "\n";
    write_file(path, kept, 0644);
}

class ReadinessTest : public AuditTest {
protected:
    // Runs the audit with its repair plan and expects exactly these
    // readiness findings and person lines, and status 1.
    // err: what the audit writes on standard error (the lookup of a missing
    // mail owner says so).
    void expect_readiness(const std::vector<std::string>& findings, const std::vector<std::string>& persons,
                          const std::string& err = "") {
        const ProcessResult result = run_sorvane_audit({"--repair-plan"});
        EXPECT_EQ(result.err, err);
        EXPECT_EQ(readiness_lines(result.out), findings) << result.out;
        EXPECT_EQ(readiness_person_lines(result.out), persons) << result.out;
        EXPECT_EQ(result.status, 1) << result.out;
    }
};

TEST_F(ReadinessTest, TheSandboxServerHasEverything) {
    const ProcessResult result = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(readiness_lines(result.out), std::vector<std::string>{}) << result.out;
    EXPECT_EQ(person_lines(result.out), std::vector<std::string>{}) << result.out;
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST_F(ReadinessTest, TheMailOwnersGroup) {
    remove_entry("/etc/group", "popuser");
    expect_readiness({"error server-mail-group-missing popuser: the mail owner's group popuser does not exist: mail "
                      "names' files cannot get their group"},
                     {"needs a person: server-mail-group-missing popuser: groupadd -r popuser"});
}

TEST_F(ReadinessTest, TheMailOwner) {
    remove_entry("/etc/passwd", "popuser");
    expect_readiness({"error server-mail-user-missing popuser: the mail owner popuser does not exist: no mail name "
                      "can be added"},
                     {"needs a person: server-mail-user-missing popuser: useradd -r -g popuser -d /var/qmail/popuser "
                      "-M -s /usr/sbin/nologin popuser"},
                     "Unable to getpwnam for user popuser\n");
}

TEST_F(ReadinessTest, TheMailOwnerAndItsGroupTogether) {
    remove_entry("/etc/passwd", "popuser");
    remove_entry("/etc/group", "popuser");
    const ProcessResult result = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(readiness_person_lines(result.out),
              (std::vector<std::string>{"needs a person: server-mail-group-missing popuser: groupadd -r popuser",
                                        "needs a person: server-mail-user-missing popuser: groupadd -r popuser && "
                                        "useradd -r -g popuser -d /var/qmail/popuser -M -s /usr/sbin/nologin popuser"}))
        << result.out;
    EXPECT_EQ(result.status, 1);
}

TEST_F(ReadinessTest, TheStoresGroup) {
    remove_entry("/etc/group", "nofiles");
    expect_readiness({"error server-store-group-missing nofiles: the group nofiles does not exist: the "
                      "authentication store cannot be made readable to the mail server only"},
                     {"needs a person: server-store-group-missing nofiles: groupadd -r nofiles"});
}

const std::string kQmailNewuFinding =
    "error server-qmail-program-missing /var/qmail/bin/qmail-newu: qmail's table compiler is missing or not "
    "executable: no change of assign goes live";
const std::string kQmailNewuPerson =
    "needs a person: server-qmail-program-missing /var/qmail/bin/qmail-newu: install qmail under /var/qmail (its "
    "installer puts qmail-newu in /var/qmail/bin)";

TEST_F(ReadinessTest, QmailsTableCompiler) {
    ASSERT_EQ(unlink("/var/qmail/bin/qmail-newu"), 0);
    expect_readiness({kQmailNewuFinding}, {kQmailNewuPerson});
}

TEST_F(ReadinessTest, QmailsTableCompilerNotExecutable) {
    ASSERT_EQ(chmod("/var/qmail/bin/qmail-newu", 0644), 0);
    expect_readiness({kQmailNewuFinding}, {kQmailNewuPerson});
}

TEST_F(ReadinessTest, TheReloadsKillall) {
    ASSERT_EQ(chmod("/usr/bin/killall", 0644), 0);
    expect_readiness({"error server-reload-program-missing /usr/bin/killall: killall is missing or not executable: "
                      "qmail-send is not told to reload its control files"},
                     {"needs a person: server-reload-program-missing /usr/bin/killall: apt-get install psmisc"});
}

TEST_F(ReadinessTest, ThePanelsServiceHelper) {
    ASSERT_EQ(unlink("/opt/qvt/admin/sbin/crelmrc"), 0);
    expect_readiness({"error server-service-helper-missing /opt/qvt/admin/sbin/crelmrc: the panel's service helper "
                      "is missing or not executable: qmail is not restarted after a domain rename or a failed reload"},
                     {"needs a person: server-service-helper-missing /opt/qvt/admin/sbin/crelmrc: install the panel's "
                      "service helper at /opt/qvt/admin/sbin/crelmrc (sorvane runs it as \"crelmrc qmail "
                      "restart\")"});
}

std::string directory_finding(const std::string& directory) {
    return "error server-qmail-directory-missing " + directory +
           ": the directory is missing (or not a directory): the commands cannot keep its files";
}

std::string directory_person(const std::string& directory) {
    return "needs a person: server-qmail-directory-missing " + directory + ": install -d -m 0755 " + directory;
}

TEST_F(ReadinessTest, QmailsControlDirectory) {
    fs::remove_all("/var/qmail/control");
    expect_readiness({directory_finding("/var/qmail/control")}, {directory_person("/var/qmail/control")});
}

TEST_F(ReadinessTest, QmailsUsersDirectory) {
    fs::remove_all("/var/qmail/users");
    expect_readiness({directory_finding("/var/qmail/users")}, {directory_person("/var/qmail/users")});
}

TEST_F(ReadinessTest, TheConfiguredMailNamesDirectory) {
    write_file("/etc/qvt/qvt.conf", "CRELM_MAILNAMES_D /var/qmail/elsewhere\n", 0644);
    expect_readiness({directory_finding("/var/qmail/elsewhere")}, {directory_person("/var/qmail/elsewhere")});
}

TEST_F(ReadinessTest, TheStoresDirectory) {
    fs::remove_all("/var/lib/crelm/mail");
    expect_readiness({"error server-store-directory-missing /var/lib/crelm/mail: the stores' directory is missing "
                      "(or not a directory): the three stores cannot be kept"},
                     {"needs a person: server-store-directory-missing /var/lib/crelm/mail: install -d -m 0755 "
                      "/var/lib/crelm/mail"});
}

TEST_F(ReadinessTest, AConfigurationThatIsNoFile) {
    fs::remove("/etc/qvt/qvt.conf");
    ASSERT_EQ(mkdir("/etc/qvt/qvt.conf", 0755), 0);
    const ProcessResult result = run_sorvane_audit({"--repair-plan"});
    const std::vector<std::string> lines = readiness_lines(result.out);
    ASSERT_EQ(lines.size(), 1U) << result.out;
    EXPECT_EQ(lines[0].rfind("error server-config-unreadable /etc/qvt/qvt.conf: the runtime configuration cannot be "
                             "read (",
                             0),
              0U)
        << lines[0];
    EXPECT_EQ(readiness_person_lines(result.out),
              std::vector<std::string>{"needs a person: server-config-unreadable /etc/qvt/qvt.conf: make "
                                       "/etc/qvt/qvt.conf a regular file of NAME value lines readable by root, or "
                                       "remove it to use the defaults"});
    EXPECT_EQ(result.status, 1);
}

const std::vector<std::string> kConfigWritable{
    "error server-config-writable /etc/qvt/qvt.conf: someone other than root can change the runtime "
    "configuration, and with it where sorvane writes as root"};
const std::vector<std::string> kConfigWritablePerson{
    "needs a person: server-config-writable /etc/qvt/qvt.conf: chown root:root /etc/qvt/qvt.conf && chmod go-w "
    "/etc/qvt/qvt.conf"};

TEST_F(ReadinessTest, AConfigurationOthersCanWrite) {
    write_file("/etc/qvt/qvt.conf", "", 0644);
    ASSERT_EQ(chmod("/etc/qvt/qvt.conf", 0666), 0);
    expect_readiness(kConfigWritable, kConfigWritablePerson);
}

TEST_F(ReadinessTest, AConfigurationOfAnotherUser) {
    write_file("/etc/qvt/qvt.conf", "", 0644);
    ASSERT_EQ(chown("/etc/qvt/qvt.conf", 65534, 65534), 0);
    expect_readiness(kConfigWritable, kConfigWritablePerson);
}

TEST_F(ReadinessTest, ARootOwnedConfigurationIsFine) {
    write_file("/etc/qvt/qvt.conf", "CRELM_MAILNAMES_D /var/qmail/mailnames\n", 0644);
    const ProcessResult result = run_sorvane_audit({});
    EXPECT_EQ(readiness_lines(result.out), std::vector<std::string>{}) << result.out;
    EXPECT_EQ(result.status, 0) << result.out;
}

// The JSON plan carries the same person line.
TEST_F(ReadinessTest, TheJsonPlanCarriesWhatToRun) {
    remove_entry("/etc/group", "nofiles");
    const ProcessResult result = run_sorvane_audit({"--json", "--repair-plan"});
    EXPECT_NE(result.out.find("\"server-store-group-missing nofiles: groupadd -r nofiles\""),
              std::string::npos)
        << result.out;
    EXPECT_EQ(result.status, 1);
}

}  // namespace
}  // namespace sorvane::test
