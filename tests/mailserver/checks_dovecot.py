"""Dovecot's delivery agent: with only dovecot-lda installed, sorvane writes
Dovecot's delivery line, qmail delivers through it into the Maildir, and
Dovecot reads the quota sorvane wrote into "maildirsize" and sees the
folders sorvane made."""
import os
import re
import shutil
import subprocess

from checks_deliveries import PASSWORD, expect, expect_local, landed, need
from mailserver import Domain, DOVECOT_LDA, DOVECOT_LINE, MAILNAMES, QMAIL, STATE, SuiteError, read, write
from mailserver import run as run_program

GROUP = "dovecot"
QUOTA_BYTES = 5000 * 1024

# A minimal Dovecot: no network service, a static user database that maps
# an address to its mail name's home as popuser, Maildir++ quota.
CONFIG = """\
protocols =
base_dir = /run/dovecot
state_dir = /run/dovecot-state
log_path = %(state)s/dovecot.log
ssl = no
first_valid_uid = 1
first_valid_gid = 1
mail_location = maildir:~/Maildir
mail_plugins = quota
postmaster_address = postmaster@localhost
namespace inbox {
  inbox = yes
  separator = .
}
passdb {
  driver = static
  args = nopassword=y
}
userdb {
  driver = static
  args = uid=popuser gid=popuser home=%(mailnames)s/%%d/%%n
}
plugin {
  quota = maildir:User quota
}
service auth {
  unix_listener auth-userdb {
    mode = 0666
  }
}
service stats {
  unix_listener stats-writer {
    mode = 0666
  }
}
"""

# Stock qmail does not tell the delivery agent the recipient in
# DELIVERED_TO, which the panel's qmail does; this wrapper around qmail-local
# sets it the same way: the mail name at its domain, the virtual-domain
# prefix taken off the local part.
QMAIL_LOCAL_WRAPPER = """\
#!/bin/sh
# arguments: -- user homedir local dash ext domain sender aliasempty
local=$4 host=$7
prefix=$(awk -F: -v h="$host" '$1 == h { print $2; exit }' /var/qmail/control/virtualdomains)
rest=${local#"$prefix"-}
if [ -n "$prefix" ] && [ "$rest" != "$local" ]; then
    DELIVERED_TO="$rest@$prefix"
else
    DELIVERED_TO="$local@$host"
fi
export DELIVERED_TO
exec /var/qmail/bin/qmail-local.real "$@"
"""


def start_dovecot():
    os.makedirs("/etc/dovecot", exist_ok=True)
    write("/etc/dovecot/dovecot.conf", CONFIG % {"state": STATE, "mailnames": MAILNAMES})
    for directory in ("/run/dovecot", "/run/dovecot-state"):
        os.makedirs(directory, exist_ok=True)
    # the delivery agent runs as popuser and logs there too
    write(STATE + "/dovecot.log", "", 0o666)
    run_program(["doveadm", "stop"], check=False)
    # the daemon keeps its descriptors: none of them may be the suite's pipes
    with open(STATE + "/dovecot.start", "w") as out:
        result = subprocess.run(["dovecot", "-c", "/etc/dovecot/dovecot.conf"], stdin=subprocess.DEVNULL,
                                stdout=out, stderr=subprocess.STDOUT)
    if result.returncode != 0:
        raise SuiteError("dovecot did not start: %s" % read(STATE + "/dovecot.start").decode(errors="replace"))


def wrap_qmail_local():
    real = QMAIL + "/bin/qmail-local.real"
    if not os.path.exists(real):
        shutil.copy2(QMAIL + "/bin/qmail-local", real)
    write(QMAIL + "/bin/qmail-local", QMAIL_LOCAL_WRAPPER, 0o755)


def doveadm(*args):
    result = run_program(["doveadm"] + list(args), check=False)
    if result.returncode != 0:
        log = read(STATE + "/dovecot.log").decode(errors="replace")[-2000:] if os.path.exists(
            STATE + "/dovecot.log") else ""
        raise SuiteError("doveadm %s failed: %s%s\n%s" % (" ".join(args), result.stdout, result.stderr, log))
    return result.stdout


def dovecot_delivers(server):
    need(server, "--add-domain", "--turn-on-domain", "--add-mailname", "--add-mailbox")
    if not os.access(DOVECOT_LDA, os.X_OK) or shutil.which("doveadm") is None:
        raise SuiteError("dovecot-core is not installed (scripts/install-deps installs it)")
    server.reset(lda="dovecot", start=False)
    expect(not os.path.lexists("/usr/bin/deliverquota"), "deliverquota is still there")
    wrap_qmail_local()
    start_dovecot()
    server.start_qmail()
    domain = Domain("example.com")

    def s(*args, **kwargs):
        return server.panel(domain, *args, **kwargs)
    s("--add-domain", "--domain-name=example.com")
    s("--turn-on-domain", "--domain-name=example.com", "--set-bounce")
    s("--add-mailname", "--domain-name=example.com", "--mailname=info", "--disk-quota=%d" % QUOTA_BYTES)
    s("--add-mailbox", "--domain-name=example.com", "--mailname=info", env={"QVT_PASSWORD": PASSWORD})
    dot_qmail = read("%s/example.com/info/.qmail" % MAILNAMES).decode()
    expect(DOVECOT_LINE in dot_qmail and "deliverquota" not in dot_qmail,
           "the mail name's .qmail does not hold Dovecot's delivery line:\n%s" % dot_qmail)
    delivery = server.deliver("info@example.com")
    expect_local(delivery, "success", "info@example.com through dovecot-lda")
    landed(server, "example.com", "info", delivery.sender)

    quota = doveadm("quota", "get", "-u", "info@example.com")
    storage = [line for line in quota.splitlines() if re.search(r"\bSTORAGE\b", line)]
    expect(storage, "doveadm quota get shows no storage quota:\n%s" % quota)
    fields = storage[0].split()
    expect(str(QUOTA_BYTES // 1024) in fields,
           "Dovecot's storage limit is not sorvane's %d KB:\n%s" % (QUOTA_BYTES // 1024, quota))

    folders = doveadm("mailbox", "list", "-u", "info@example.com").split()
    missing = [f for f in ("INBOX", "Spam", "Sent", "Drafts", "Trash") if f not in folders]
    expect(not missing, "Dovecot does not see the folders %s (it lists %s)" % (missing, folders))
    return "delivered through dovecot-lda; quota %d KB; folders %s" % (QUOTA_BYTES // 1024, " ".join(folders))


def run(server, results, options):
    try:
        results.check(GROUP, "only dovecot-lda: its line, mail lands, doveadm reads the quota and folders",
                      dovecot_delivers, server)
    finally:
        run_program(["doveadm", "stop"], check=False)
        real = QMAIL + "/bin/qmail-local.real"
        if os.path.exists(real):
            os.replace(real, QMAIL + "/bin/qmail-local")
        server.set_lda("deliverquota")
