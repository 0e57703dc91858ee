"""People read their mail: Dovecot's own imap and pop3, configured with the
example configuration that the package ships (passdb checkpassword running
the built sorvane-auth, userdb prefetch, Maildir++ quota), listen on the
private network's loopback. Python's imaplib and poplib log in with the
password the panel set and fetch what qmail delivered; the logins that must
be refused are; and after each command that changes addresses, passwords or
domains, exactly the addresses that should log in do, each into its own
mailbox with its current password."""
import imaplib
import os
import poplib
import re
import shutil
import socket
import sqlite3
import subprocess

from checks_deliveries import PASSWORD, expect, expect_local, landed, need
from mailserver import Domain, STATE, STORES, SuiteError, mount, read, wait_until, write
from mailserver import run as run_program

GROUP = "logins"
QUOTA_BYTES = 3000 * 1024
SBIN = "/usr/sbin"
INSTALLED_AUTH = SBIN + "/sorvane-auth"
PROGRAMS = ("/usr/lib/dovecot/imap", "/usr/lib/dovecot/pop3", "/usr/lib/dovecot/imap-login",
            "/usr/lib/dovecot/pop3-login", "/usr/lib/dovecot/checkpassword-reply")

# What the operator's Dovecot has beside the shipped file: the services on
# the loopback, plain text logins without TLS (nothing leaves the private
# network), popuser's uid as the only one with mail access (as the example
# asks), no delay after a failed login and no growing penalty for the
# address that failed (the suite makes many refused logins from the
# loopback, each of which would make the next login wait up to 15 seconds),
# and the shipped file included as it is.
CONFIG = """\
protocols = imap pop3
listen = 127.0.0.1
base_dir = /run/dovecot
state_dir = /run/dovecot-state
log_path = %(state)s/dovecot.log
ssl = no
disable_plaintext_auth = no
auth_failure_delay = 0
first_valid_uid = %(uid)d
last_valid_uid = %(uid)d
first_valid_gid = 1
postmaster_address = postmaster@localhost
namespace inbox {
  inbox = yes
  separator = .
}
service anvil {
  unix_listener anvil-auth-penalty {
    mode = 0
  }
}
service stats {
  unix_listener stats-writer {
    mode = 0666
  }
}
%(sanitized)s!include %(example)s
"""

# A sanitizer build of sorvane-auth reserves terabytes of address space for
# its shadow memory: Dovecot's default limit on a process's size would kill it.
SANITIZED = "default_vsz_limit = 0\n"


def example_path(server):
    return os.path.join(server.root, "debian", "examples", "dovecot-sorvane-auth.conf")


def install_sorvane_auth(server):
    """The built sorvane-auth at the path the example names (a private
    overlay on /usr/sbin, as the namespace has on the other program
    directories)."""
    built = os.path.join(server.build, "src", "sorvane-auth")
    if not os.path.exists(built):
        raise SuiteError("sorvane-auth is not built at %s" % built)
    if not os.path.ismount(SBIN):
        upper = os.path.join(STATE, "overlay", "usr_sbin")
        os.makedirs(upper + "/upper", exist_ok=True)
        os.makedirs(upper + "/work", exist_ok=True)
        mount("overlay", SBIN, "lowerdir=%s,upperdir=%s/upper,workdir=%s/work" % (SBIN, upper, upper),
              source="overlay")
    shutil.copy(built, INSTALLED_AUTH)
    os.chmod(INSTALLED_AUTH, 0o755)


def sanitized(program):
    linked = run_program(["ldd", program], check=False).stdout
    return "libasan" in linked


def listening(port):
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=1):
            return True
    except OSError:
        return False


def start_dovecot(server):
    missing = [p for p in PROGRAMS if not os.access(p, os.X_OK)]
    if missing or shutil.which("dovecot") is None:
        raise SuiteError("Dovecot's imap and pop3 are not installed (scripts/install-deps installs "
                         "dovecot-imapd and dovecot-pop3d): missing %s" % " ".join(missing))
    install_sorvane_auth(server)
    os.makedirs("/etc/dovecot", exist_ok=True)
    write("/etc/dovecot/dovecot.conf", CONFIG % {"state": STATE, "uid": server.popuser.pw_uid,
                                                 "example": example_path(server),
                                                 "sanitized": SANITIZED if sanitized(INSTALLED_AUTH) else ""})
    for directory in ("/run/dovecot", "/run/dovecot-state"):
        os.makedirs(directory, exist_ok=True)
    write(STATE + "/dovecot.log", "", 0o666)
    run_program(["doveadm", "stop"], check=False)
    with open(STATE + "/dovecot.start", "w") as out:
        result = subprocess.run(["dovecot", "-c", "/etc/dovecot/dovecot.conf"], stdin=subprocess.DEVNULL,
                                stdout=out, stderr=subprocess.STDOUT)
    if result.returncode != 0:
        raise SuiteError("dovecot did not start: %s" % read(STATE + "/dovecot.start").decode(errors="replace"))
    wait_until("Dovecot to listen on 143 and 110", lambda: listening(143) and listening(110))


def dovecot_log():
    if not os.path.exists(STATE + "/dovecot.log"):
        return ""
    return read(STATE + "/dovecot.log").decode(errors="replace")[-3000:]


class Refused(Exception):
    pass


def imap_session(address, password):
    """An IMAP session logged in as address, or Refused."""
    imap = imaplib.IMAP4("127.0.0.1", 143, timeout=30)
    try:
        imap.login(address, password)
    except imaplib.IMAP4.error as error:
        imap.logout()
        raise Refused(str(error))
    return imap


def imap_subjects(address, password):
    """The subjects of the INBOX that address logs into with password."""
    imap = imap_session(address, password)
    try:
        status, data = imap.select("INBOX", readonly=True)
        expect(status == "OK", "%s: SELECT INBOX: %s %s" % (address, status, data))
        status, data = imap.fetch("1:*", "(BODY.PEEK[HEADER.FIELDS (SUBJECT)])") if int(data[0]) else ("OK", [])
        expect(status == "OK", "%s: FETCH: %s %s" % (address, status, data))
        subjects = []
        for item in data:
            if isinstance(item, tuple):
                match = re.search(rb"Subject: (\S+)", item[1])
                if match:
                    subjects.append(match.group(1).decode())
        return subjects
    finally:
        imap.logout()


def pop3_subjects(address, password):
    pop = poplib.POP3("127.0.0.1", 110, timeout=30)
    try:
        pop.user(address)
        try:
            pop.pass_(password)
        except poplib.error_proto as error:
            raise Refused(str(error))
        count = len(pop.list()[1])
        subjects = []
        for number in range(1, count + 1):
            lines = pop.retr(number)[1]
            subjects += [line[9:].decode() for line in lines if line.startswith(b"Subject: ")]
        return subjects
    finally:
        pop.quit()


def expect_login(address, password, subject, protocols=("imap",)):
    """address logs in with password, into the mailbox that holds the
    message with subject."""
    for protocol in protocols:
        reader = imap_subjects if protocol == "imap" else pop3_subjects
        try:
            subjects = reader(address, password)
        except Refused as refusal:
            raise AssertionError("%s %s with its password was refused: %s\nDovecot's log:\n%s"
                                 % (protocol, address, refusal, dovecot_log()))
        expect(subject in subjects, "%s %s logged into a mailbox without %s: %s" % (protocol, address, subject,
                                                                                  subjects))


def expect_refused(address, password, protocols=("imap",)):
    for protocol in protocols:
        reader = imap_subjects if protocol == "imap" else pop3_subjects
        try:
            subjects = reader(address, password)
        except Refused:
            continue
        raise AssertionError("%s %s logged in (mailbox %s), it must be refused" % (protocol, address, subjects))


def subject_of(sender):
    return sender.split("@")[0].split("-", 1)[1]


def delivered(server, address, domain, name):
    """Delivers a message to address and returns its subject, once it is in
    the mail name's Maildir."""
    delivery = server.deliver(address)
    expect_local(delivery, "success", address)
    landed(server, domain, name, delivery.sender)
    return subject_of(delivery.sender)


class Logins:
    """One server: example.com with info (a mailbox, quota, a message) and
    bob (a mail name without a mailbox), Dovecot reading it."""

    def __init__(self, server):
        self.server = server
        self.domain = Domain("example.com")
        self.subject = None

    def s(self, *args, **kwargs):
        return self.server.panel(self.domain, *args, **kwargs)

    def set_up(self):
        need(self.server, "--add-domain", "--turn-on-domain", "--add-mailname", "--add-mailbox")
        self.server.reset()
        start_dovecot(self.server)
        self.s("--add-domain", "--domain-name=example.com")
        self.s("--turn-on-domain", "--domain-name=example.com", "--set-bounce")
        self.s("--add-mailname", "--domain-name=example.com", "--mailname=info", "--disk-quota=%d" % QUOTA_BYTES)
        self.s("--add-mailbox", "--domain-name=example.com", "--mailname=info", env={"QVT_PASSWORD": PASSWORD})
        self.s("--add-mailname", "--domain-name=example.com", "--mailname=bob")
        self.subject = delivered(self.server, "info@example.com", "example.com", "info")

    def imap_and_pop3_read_the_message(self):
        expect_login("info@example.com", PASSWORD, self.subject, protocols=("imap", "pop3"))
        expect_login("INFO@Example.COM", PASSWORD, self.subject)
        return "imap and pop3 fetched %s with the panel's password" % self.subject

    def refusals(self):
        expect_refused("info@example.com", PASSWORD + "x", protocols=("imap", "pop3"))
        expect_refused("info@example.com", "", protocols=("imap",))
        expect_refused("nobody@example.com", PASSWORD, protocols=("imap", "pop3"))
        expect_refused("info@unknown.example", PASSWORD)
        # a mail name without a mailbox has no login
        expect_refused("bob@example.com", PASSWORD, protocols=("imap", "pop3"))
        log = dovecot_log()
        expect(PASSWORD not in log, "the password is in Dovecot's log:\n%s" % log)
        return "wrong password, unknown address, mailbox without a login refused"

    def quota_root(self):
        imap = imap_session("info@example.com", PASSWORD)
        try:
            status, data = imap.getquotaroot("INBOX")
        finally:
            imap.logout()
        expect(status == "OK", "GETQUOTAROOT: %s %s" % (status, data))
        text = " ".join(str(part) for part in data)
        match = re.search(r"STORAGE (\d+) (\d+)", text)
        expect(match and int(match.group(2)) == QUOTA_BYTES // 1024,
               "GETQUOTAROOT shows %s, not sorvane's %d KB" % (text, QUOTA_BYTES // 1024))
        return "STORAGE %s of %s KB" % (match.group(1), match.group(2))

    def international_domain(self):
        idn = Domain("xn--bcher-kva.example")
        self.server.panel(idn, "--add-domain", "--domain-name=b\u00fccher.example")
        self.server.panel(idn, "--add-mailname", "--domain-name=b\u00fccher.example", "--mailname=leser")
        self.server.panel(idn, "--add-mailbox", "--domain-name=b\u00fccher.example", "--mailname=leser",
                          env={"QVT_PASSWORD": "Buch-1234"})
        subject = delivered(self.server, "leser@xn--bcher-kva.example", "xn--bcher-kva.example", "leser")
        expect_login("leser@xn--bcher-kva.example", "Buch-1234", subject, protocols=("imap", "pop3"))
        return "leser@xn--bcher-kva.example read %s" % subject

    def disabled_domain(self):
        need(self.server, "--turn-off-domain")
        self.s("--turn-off-domain", "--domain-name=example.com")
        expect_refused("info@example.com", PASSWORD, protocols=("imap", "pop3"))
        self.s("--turn-on-domain", "--domain-name=example.com", "--set-bounce")
        expect_login("info@example.com", PASSWORD, self.subject)
        return "refused while off, back after --turn-on-domain"


def core_logins(server):
    logins = Logins(server)
    logins.set_up()
    details = [logins.imap_and_pop3_read_the_message(), logins.refusals(), logins.quota_root(),
               logins.disabled_domain(), logins.international_domain()]
    return "; ".join(details)


def store_addresses():
    """Every address the authentication store holds, with its statuses."""
    connection = sqlite3.connect("file:%s?mode=ro" % STORES[2], uri=True)
    try:
        return ["%s@%s(%d/%d)" % row for row in connection.execute(
            "SELECT u.name, d.name, u.status, d.status FROM users AS u, domains AS d WHERE u.dom_id = d.id "
            "ORDER BY d.name, u.name")]
    finally:
        connection.close()


def openssl_crypt(password):
    result = run_program(["openssl", "passwd", "-6", "-salt", "Sorvane1", password])
    return result.stdout.strip()


def every_command(server):
    """Each command that changes who logs in, then the logins that must work
    (with the current password, into the right mailbox) and those that must
    not."""
    need(server, "--add-domain", "--turn-on-domain", "--add-mailname", "--add-mailbox", "--set-password",
         "--add-alias", "--remove-alias", "--rename-mailname", "--add-domain-alias", "--rename-domain-alias",
         "--del-domain-alias", "--turn-off-domain", "--remove-mailbox", "--remove-mailname", "--rename-domain",
         "--remove-domain")
    logins = Logins(server)
    logins.set_up()
    s = logins.s
    steps = []

    def step(name):
        steps.append(name)

    first = logins.subject
    # crypted: the panel hands over the hash
    s("--add-mailname", "--domain-name=example.com", "--mailname=crypt")
    s("--add-mailbox", "--domain-name=example.com", "--mailname=crypt",
      env={"QVT_CRYPTED_PASSWORD": openssl_crypt("Crypt-5678")})
    crypt_subject = delivered(server, "crypt@example.com", "example.com", "crypt")
    expect_login("crypt@example.com", "Crypt-5678", crypt_subject, protocols=("imap", "pop3"))
    expect_refused("crypt@example.com", openssl_crypt("Crypt-5678"))
    expect_refused("crypt@example.com", "Crypt-5679")
    step("--add-mailbox (crypted)")

    s("--set-password", "--domain-name=example.com", "--mailname=info", env={"QVT_PASSWORD": "Changed-4321"})
    expect_login("info@example.com", "Changed-4321", first)
    expect_refused("info@example.com", PASSWORD)
    step("--set-password")

    s("--add-alias", "--domain-name=example.com", "--mailname=info", "--alias=sales")
    expect_login("sales@example.com", "Changed-4321", first)
    expect_refused("sales@example.com", "Crypt-5678")
    step("--add-alias")

    s("--add-domain-alias", "--domain-name=example.com", "--domain-alias-name=example.net", "--set-bounce")
    for address in ("info@example.net", "sales@example.net"):
        expect_login(address, "Changed-4321", first)
    expect_login("crypt@example.net", "Crypt-5678", crypt_subject)
    expect_refused("bob@example.net", "Changed-4321")
    step("--add-domain-alias")

    s("--rename-domain-alias", "--domain-name=example.com", "--old-domain-alias-name=example.net",
      "--new-domain-alias-name=example.org", "--set-bounce")
    expect_login("sales@example.org", "Changed-4321", first)
    expect_login("crypt@example.org", "Crypt-5678", crypt_subject)
    expect_refused("info@example.net", "Changed-4321")
    expect_refused("sales@example.net", "Changed-4321")
    step("--rename-domain-alias")

    s("--remove-alias", "--domain-name=example.com", "--mailname=info", "--alias=sales")
    expect_refused("sales@example.com", "Changed-4321")
    expect_refused("sales@example.org", "Changed-4321")
    expect_login("info@example.org", "Changed-4321", first)
    step("--remove-alias")

    s("--rename-mailname", "--domain-name=example.com", "--old-mailname=info", "--new-mailname=contact",
      env={"QVT_PASSWORD": "Changed-4321"})
    expect_login("contact@example.com", "Changed-4321", first)
    expect_login("contact@example.org", "Changed-4321", first)
    expect_refused("info@example.com", "Changed-4321")
    expect_refused("info@example.org", "Changed-4321")
    step("--rename-mailname")

    s("--turn-off-domain", "--domain-name=example.com")
    for address, password in (("contact@example.com", "Changed-4321"), ("crypt@example.com", "Crypt-5678"),
                              ("contact@example.org", "Changed-4321"), ("crypt@example.org", "Crypt-5678")):
        expect_refused(address, password)
    s("--turn-on-domain", "--domain-name=example.com", "--set-bounce")
    expect_login("contact@example.com", "Changed-4321", first)
    expect_login("crypt@example.org", "Crypt-5678", crypt_subject)
    step("--turn-off-domain/--turn-on-domain")

    s("--remove-mailbox", "--domain-name=example.com", "--mailname=crypt")
    expect_refused("crypt@example.com", "Crypt-5678")
    expect_refused("crypt@example.org", "Crypt-5678")
    expect_login("contact@example.org", "Changed-4321", first)
    step("--remove-mailbox")

    s("--remove-mailname", "--domain-name=example.com", "--mailname=crypt")
    expect_refused("crypt@example.com", "Crypt-5678")
    expect_refused("crypt@example.org", "Crypt-5678")
    step("--remove-mailname")

    s("--rename-domain", "--old-domain-name=example.com", "--new-domain-name=example.info")
    expect_login("contact@example.info", "Changed-4321", first)
    expect_login("contact@example.org", "Changed-4321", first)
    expect_refused("contact@example.com", "Changed-4321")
    step("--rename-domain")

    s("--del-domain-alias", "--domain-name=example.info", "--domain-alias-name=example.org")
    expect_refused("contact@example.org", "Changed-4321")
    expect_login("contact@example.info", "Changed-4321", first)
    step("--del-domain-alias")

    s("--add-domain-alias", "--domain-name=example.info", "--domain-alias-name=example.net", "--set-bounce")
    expect_login("contact@example.net", "Changed-4321", first)
    s("--remove-domain", "--domain-name=example.info")
    for address in ("contact@example.info", "contact@example.net", "contact@example.com"):
        expect_refused(address, "Changed-4321")
    step("--remove-domain")
    # what the store keeps that only the missing mailbox keeps from logging in
    left = store_addresses()
    return "logins right after %s; store rows left: %s" % (", ".join(steps), ", ".join(left) or "none")


def run(server, results, options):
    try:
        results.check(GROUP, "imap and pop3 log in with the panel's password, refusals, quota, IDN",
                      core_logins, server)
        results.check(GROUP, "each command, then exactly the logins that must work", every_command, server)
    finally:
        run_program(["doveadm", "stop"], check=False)
