"""Power loss: every file a command replaces is flushed (fsync) before it is
renamed into place and its directory after the rename; a file appended to
is flushed before the command goes on. Shown by an strace of each kind of
edit the commands make."""
import os
import re

import strace_log
from checks_deliveries import PASSWORD, NotAvailable
from mailserver import STATE, Domain, SuiteError

GROUP = "powerloss"

TEMPORARY = re.compile(r"(\.tmp$|\.[A-Za-z0-9]{6}$|-maildirsize$|/tmp/)")


def watched(path):
    """The files the commands keep: control files, assign, dot-qmail files,
    maildirsize, the stores' key file; not temporary names, and not the
    compiled table that qmail-newu itself writes."""
    if not path or TEMPORARY.search(path) or path.endswith("/users/cdb"):
        return False
    if path.startswith("/var/qmail/control/") or path == "/var/qmail/users/assign":
        return True
    if path.startswith("/var/qmail/mailnames/"):
        name = os.path.basename(path)
        return name.startswith(".qmail") or name == "maildirsize"
    return path.startswith("/etc/domainkeys/") or path.startswith("/var/lib/crelm/mail/auth/passwd_db_key")


# Each command of the panel's sequence, and the kinds of edit it makes.
SEQUENCE = [
    ("--add-domain", "--domain-name=example.com"),
    ("--turn-on-domain", "--domain-name=example.com", "--set-bounce"),
    ("--add-mailname", "--domain-name=example.com", "--mailname=info", "--disk-quota=1000000"),
    ("--add-mailbox", "--domain-name=example.com", "--mailname=info"),
    ("--add-alias", "--domain-name=example.com", "--mailname=info", "--alias=sales"),
    ("--add-domain-alias", "--domain-name=example.com", "--domain-alias-name=example.net", "--set-bounce"),
    ("--set-mailbox-disk-quota", "--domain-name=example.com", "--mailname=info", "--disk-quota=2000000"),
    ("--turn-on-domain", "--domain-name=example.com", "--set-catchall", "--email=forward@mail.sorvane.test"),
    ("--turn-on-domain", "--domain-name=example.com", "--set-reject"),
    ("--rename-mailname", "--domain-name=example.com", "--old-mailname=info", "--new-mailname=contact"),
    ("--rename-domain", "--old-domain-name=example.com", "--new-domain-name=example.org"),
    ("--remove-alias", "--domain-name=example.org", "--mailname=contact", "--alias=sales"),
    ("--del-domain-alias", "--domain-name=example.org", "--domain-alias-name=example.net"),
    ("--remove-mailbox", "--domain-name=example.org", "--mailname=contact"),
    ("--remove-mailname", "--domain-name=example.org", "--mailname=contact"),
    ("--turn-off-domain", "--domain-name=example.org"),
    ("--remove-domain", "--domain-name=example.org"),
]


def traced(server, domain, args, trace):
    prefix = ["strace", "-f", "-y", "-qq", "-o", trace, "-e", strace_log.TRACED]
    return server.panel(domain, *args, env={"QVT_PASSWORD": PASSWORD}, prefix=prefix)


def audit_sequence(server, results):
    server.reset(start=False)
    domain = Domain("example.com")
    kinds = {}
    faults = []
    ran = 0
    for number, args in enumerate(SEQUENCE):
        if not server.available(args[0]):
            results.skipped(GROUP, "flushes of %s" % args[0], "the command is not available in this build")
            continue
        trace = os.path.join(STATE, "powerloss-%d.trace" % number)
        traced(server, domain, args, trace)
        ran += 1
        audit = strace_log.Audit(trace, watched)
        for target, source, before, after in audit.replaced:
            kind = "replaced " + re.sub(r"example\.\w+|info|contact|sales", "*", target)
            kinds.setdefault(kind, []).append(args[0])
        for path, _ in audit.appended:
            kind = "written in place " + re.sub(r"example\.\w+|info|contact|sales", "*", path)
            kinds.setdefault(kind, []).append(args[0])
        faults += ["%s: %s" % (args[0], f) for f in audit.faults()]
    if ran == 0:
        raise NotAvailable("the domain and mail name commands")
    for kind in sorted(kinds):
        results.figure("power loss: %s (by %s)" % (kind, ", ".join(sorted(set(kinds[kind])))))
    if faults:
        raise SuiteError("files replaced or written without the flushes a power cut needs:\n  "
                         + "\n  ".join(faults))
    return "%d commands traced, %d kinds of edit, every one flushed in order" % (ran, len(kinds))


def run(server, results, options):
    need_any = [c for c in ("--add-domain", "--turn-on-domain") if server.available(c)]
    if not need_any:
        results.skipped(GROUP, "each kind of edit is flushed in order", "the domain commands")
        return
    results.check(GROUP, "each kind of edit is flushed before its rename, its directory after",
                  audit_sequence, server, results)
