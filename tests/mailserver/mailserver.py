"""A real mail server in the suite's namespaces: qmail, its log, deliverquota
or Dovecot's delivery agent, and the built sorvane.

Everything here runs inside the private mount, PID and network namespaces
that tests/mailserver/run enters: the system paths get overlays or fresh
tmpfs trees, so nothing on the machine changes, and the only network is an
unconfigured loopback, so remote deliveries fail here and never leave.
"""
import glob
import json
import os
import pwd
import grp
import re
import shutil
import sqlite3
import subprocess
import time

STATE = "/run/mailserver"
# Where the suite writes the panel's picture that sorvane-audit compares with.
AUDIT_PICTURE = STATE + "/audit-picture.json"
# sorvane's own directory under /run (a tmpfs here, as after a boot).
RUNTIME_DIR = "/run/sorvane"
QMAIL = "/var/qmail"
MAILNAMES = QMAIL + "/mailnames"
LOG = STATE + "/qmail.log"
HERE = os.path.dirname(os.path.abspath(__file__))

DELIVERQUOTA_LINE = "| /usr/bin/deliverquota ./Maildir\n"
DOVECOT_LINE = '| /usr/lib/dovecot/dovecot-lda -d "$DELIVERED_TO" -a "${ORIGINAL_RECIPIENT:-$DELIVERED_TO}"\n'
DOVECOT_LDA = "/usr/lib/dovecot/dovecot-lda"

# The trees a command may change, and the stores among them.
MUTABLE_TREES = ("/var/qmail/control", "/var/qmail/users", MAILNAMES, "/var/lib/crelm", "/etc/domainkeys")
STORES = ("/var/lib/crelm/mail/userdb/userdb.db", "/var/lib/crelm/mail/handlers/handlers.db",
          "/var/lib/crelm/mail/auth/passwd.db")
CONTROL_FILES = ("control/rcpthosts", "control/virtualdomains", "control/locals", "control/rejectnonexist",
                 "users/assign")

WAIT_SECONDS = 60

# Each command with valid options, to ask whether this build carries it out.
_D = "--domain-name=probe.test"
PROBES = [
    ("--add-domain", _D), ("--turn-on-domain", _D, "--set-bounce"), ("--turn-off-domain", _D),
    ("--add-mailname", _D, "--mailname=a"), ("--add-mailbox", _D, "--mailname=a"),
    ("--set-password", _D, "--mailname=a"), ("--get-mailbox-size", _D, "--mailname=a"),
    ("--set-mailbox-disk-quota", _D, "--mailname=a", "--disk-quota=100"),
    ("--set-domain-disk-quota", _D, "--disk-quota=100"),
    ("--add-alias", _D, "--mailname=a", "--alias=b"), ("--remove-alias", _D, "--mailname=a", "--alias=b"),
    ("--rename-mailname", _D, "--old-mailname=a", "--new-mailname=c"),
    ("--add-domain-alias", _D, "--domain-alias-name=probe.net", "--set-bounce"),
    ("--rename-domain-alias", _D, "--old-domain-alias-name=probe.net", "--new-domain-alias-name=probe.org",
     "--set-bounce"),
    ("--del-domain-alias", _D, "--domain-alias-name=probe.org"),
    ("--remove-mailbox", _D, "--mailname=c"), ("--remove-mailname", _D, "--mailname=c"),
    ("--rename-domain", "--old-domain-name=probe.test", "--new-domain-name=probe.org"),
    ("--remove-domain", "--domain-name=probe.org"),
]


class SuiteError(Exception):
    pass


class NotAvailable(Exception):
    """A command this build does not carry out yet."""


# Commands that take no picture of the domain.
WITHOUT_PICTURE = ("--rename-domain", "--get-mailbox-size")


def option(args, name):
    prefix = "--%s=" % name
    for arg in args:
        if arg.startswith(prefix):
            return arg[len(prefix):]
    return None


class Domain:
    """The panel's picture of one mail domain (its domain aliases, its mail
    names with their aliases), handed to each command on standard input the
    way the panel does, and kept up to date as the commands change it."""

    def __init__(self, name):
        self.name = name
        self.aliases = []
        self.mails = {}
        self.mailboxes = set()
        # each mail name's own quota in bytes, as the panel set it
        self.quotas = {}
        # whether mail for the domain is taken (None until a command says)
        self.enabled = None
        # what happens to mail for names that do not exist ({"kind": ...}),
        # None until a command says
        self.action = None
        self.exists = True

    def copy(self):
        other = Domain(self.name)
        other.aliases = list(self.aliases)
        other.mails = {k: list(v) for k, v in self.mails.items()}
        other.mailboxes = set(self.mailboxes)
        other.quotas = dict(self.quotas)
        other.enabled = self.enabled
        other.action = dict(self.action) if self.action else None
        other.exists = self.exists
        return other

    def document(self):
        # The picture's mail names are those with a mailbox: the addresses
        # the authentication store knows, which the commands copy to and
        # remove from the domain's aliases; each with the quota the panel
        # set for it (a mailbox made without it is given no limit).
        mails = []
        for name, aliases in self.mails.items():
            if name in self.mailboxes:
                mail = {"name": name, "aliases": list(aliases)}
                if name in self.quotas:
                    mail["mbox_quota"] = self.quotas[name]
                mails.append(mail)
        return json.dumps({"domain": {"name": self.name, "dom_aliases": list(self.aliases), "mails": mails}})

    def expected(self, quotas):
        """What the panel holds of the domain, as sorvane-audit --expect
        reads it: the standard-input document's domain with every mail name
        (each saying whether it has a mailbox), "enabled" and "action"
        where known, and each mail name's quota as quotas ({name: bytes})
        gives it. None once the domain is removed."""
        if not self.exists:
            return None
        mails = []
        for name, aliases in self.mails.items():
            mail = {"name": name, "aliases": list(aliases), "mailbox": name in self.mailboxes}
            if name in quotas:
                mail["mbox_quota"] = quotas[name]
            mails.append(mail)
        domain = {"name": self.name, "dom_aliases": list(self.aliases), "mails": mails}
        if self.enabled is not None:
            domain["enabled"] = self.enabled
        if self.action is not None:
            domain["action"] = dict(self.action)
        return {"domain": domain}

    def document_for(self, args):
        """The document the panel hands a command: its picture, in which a
        mail name that is being given a mailbox already has it (with its
        quota, which the command writes to the quota store)."""
        if args[0] != "--add-mailbox":
            return self.document()
        picture = self.copy()
        picture.mailboxes.add(option(args, "mailname"))
        return picture.document()

    def apply(self, args):
        """Takes in what a successful command changed."""
        command = args[0]
        mailname, alias = option(args, "mailname"), option(args, "alias")
        quota = option(args, "disk-quota")
        quota = int(quota) if quota is not None and re.match(r"^-?\d+$", quota) else None
        if command == "--add-mailname":
            self.mails.setdefault(mailname, [])
            if quota is not None and quota >= 0:
                self.quotas[mailname] = quota
        elif command == "--set-mailbox-disk-quota":
            if quota is not None and quota >= 0:
                self.quotas[mailname] = quota
            else:
                self.quotas.pop(mailname, None)
        elif command == "--set-domain-disk-quota":
            # for the mail names without a quota of their own
            for name in self.mails:
                if quota is not None and quota >= 0:
                    self.quotas.setdefault(name, quota)
        elif command == "--remove-mailname":
            self.mails.pop(mailname, None)
            self.mailboxes.discard(mailname)
            self.quotas.pop(mailname, None)
        elif command == "--add-mailbox":
            self.mailboxes.add(mailname)
        elif command == "--remove-mailbox":
            self.mailboxes.discard(mailname)
        elif command == "--rename-mailname":
            old, new = option(args, "old-mailname"), option(args, "new-mailname")
            self.mails[new] = self.mails.pop(old, [])
            if old in self.quotas:
                self.quotas[new] = self.quotas.pop(old)
            if old in self.mailboxes:
                self.mailboxes.discard(old)
                self.mailboxes.add(new)
        elif command == "--add-alias":
            self.mails.setdefault(mailname, []).append(alias)
        elif command == "--remove-alias":
            if alias in self.mails.get(mailname, []):
                self.mails[mailname].remove(alias)
        elif command == "--add-domain-alias":
            self.aliases.append(option(args, "domain-alias-name"))
        elif command == "--del-domain-alias":
            if option(args, "domain-alias-name") in self.aliases:
                self.aliases.remove(option(args, "domain-alias-name"))
        elif command == "--rename-domain-alias":
            old, new = option(args, "old-domain-alias-name"), option(args, "new-domain-alias-name")
            self.aliases = [new if a == old else a for a in self.aliases]
        elif command == "--rename-domain":
            self.name = option(args, "new-domain-name")
        elif command == "--remove-domain":
            self.aliases, self.mails, self.mailboxes, self.quotas = [], {}, set(), {}
            self.exists = False
        elif command == "--add-domain":
            # a new domain takes mail at once, and bounces mail for unknown
            # names with the default phrase
            self.exists, self.enabled, self.action = True, True, {"kind": "bounce"}
        elif command == "--turn-on-domain":
            self.enabled = True
            self.action = action_of(args)
        elif command == "--turn-off-domain":
            self.enabled = False


def action_of(args):
    """The action for mail to unknown names that a command's options set."""
    if "--set-reject" in args:
        return {"kind": "reject"}
    if "--set-catchall" in args:
        return {"kind": "catch-all", "email": option(args, "email")}
    phrase = option(args, "phrase")
    return {"kind": "bounce", "phrase": phrase} if phrase is not None else {"kind": "bounce"}


def run(argv, check=True, **kwargs):
    kwargs.setdefault("stdout", subprocess.PIPE)
    kwargs.setdefault("stderr", subprocess.PIPE)
    kwargs.setdefault("text", True)
    result = subprocess.run(argv, **kwargs)
    if check and result.returncode != 0:
        raise SuiteError("%s failed (%d): %s%s" % (" ".join(argv), result.returncode, result.stdout, result.stderr))
    return result


def mount(kind, target, options=None, source=None):
    argv = ["mount", "-t", kind]
    if options:
        argv += ["-o", options]
    run(argv + [source or "mailserver", target])


def bind(source, target):
    run(["mount", "--bind", source, target])


def write(path, text, mode=0o644, owner=None):
    with open(path, "w") as f:
        f.write(text)
    os.chmod(path, mode)
    if owner:
        shutil.chown(path, *owner)


def read(path):
    with open(path, "rb") as f:
        return f.read()


def wait_until(what, predicate, seconds=WAIT_SECONDS):
    """Polls predicate until it gives a true value (returned) or the time is
    up (SuiteError naming what was awaited)."""
    deadline = time.monotonic() + seconds
    delay = 0.01
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() > deadline:
            raise SuiteError("timed out after %ds waiting for %s" % (seconds, what))
        time.sleep(delay)
        delay = min(delay * 2, 0.2)


class Delivery:
    def __init__(self, number, target, where):
        self.number = number
        self.target = target  # the address qmail delivers to (after virtualdomains)
        self.where = where  # "local" or "remote"
        self.result = None  # "success", "failure" or "deferral"
        self.text = None

    def __repr__(self):
        return "<%s %s %s: %s %s>" % (self.number, self.where, self.target, self.result, self.text)


class QmailLog:
    """Follows qmail-send's log: which message (known by its unique envelope
    sender) went where, and how each delivery ended."""

    def __init__(self):
        self.offset = 0
        self.pending = ""
        self.sender_of_msg = {}  # message id (its inode) -> envelope sender, while queued
        self.msg_of_delivery = {}
        self.deliveries = {}  # envelope sender -> [Delivery]
        self.finished = set()  # senders whose message left the queue
        self.lines = []

    def poll(self):
        if not os.path.exists(LOG):
            return
        with open(LOG, "r", errors="replace") as f:
            f.seek(self.offset)
            data = f.read()
            self.offset = f.tell()
        data = self.pending + data
        *complete, self.pending = data.split("\n")
        for line in complete:
            self.lines.append(line)
            self._take(line)

    def _take(self, line):
        m = re.match(r"info msg (\d+): bytes \d+ from <(.*)> qp", line)
        if m:
            self.sender_of_msg[m.group(1)] = m.group(2)
            self.deliveries.setdefault(m.group(2), [])
            return
        m = re.match(r"starting delivery (\d+): msg (\d+) to (local|remote) (.*)$", line)
        if m and m.group(2) in self.sender_of_msg:
            delivery = Delivery(m.group(1), m.group(4), m.group(3))
            self.msg_of_delivery[m.group(1)] = m.group(2)
            self.deliveries[self.sender_of_msg[m.group(2)]].append(delivery)
            return
        m = re.match(r"delivery (\d+): (success|failure|deferral): ?(.*)$", line)
        if m and m.group(1) in self.msg_of_delivery:
            msg = self.msg_of_delivery.pop(m.group(1))
            for delivery in self.deliveries[self.sender_of_msg[msg]]:
                if delivery.number == m.group(1) and delivery.result is None:
                    delivery.result, delivery.text = m.group(2), m.group(3)
            return
        m = re.match(r"end msg (\d+)$", line)
        if m and m.group(1) in self.sender_of_msg:
            self.finished.add(self.sender_of_msg.pop(m.group(1)))

    def outcome(self, sender, recipients):
        """The first ended delivery attempt of each of the message's
        recipients, once every one has one; else None."""
        self.poll()
        ended = [d for d in self.deliveries.get(sender, []) if d.result]
        if len(ended) < recipients:
            return None
        return ended[:recipients]

    def tail(self, count=40):
        self.poll()
        return "\n".join(self.lines[-count:])


class MailServer:
    def __init__(self, build, cache, root):
        self.build = build
        self.cache = cache
        self.root = root
        self.sorvane_path = os.path.join(build, "src", "sorvane")
        self.audit_path = os.path.join(build, "src", "sorvane-audit")
        self.tags = 0
        self.log = QmailLog()
        self.lda = "deliverquota"
        self.availability = None
        self.logs = 0

    # ---- the namespace, once -------------------------------------------------

    def enter(self):
        """Makes the system paths private: overlays on /etc, /var, /opt and the
        program directories, a tmpfs at /run; the qmail users and popuser in
        the private user database; loopback up."""
        mount("tmpfs", "/run", "mode=0755")
        os.makedirs(STATE)
        mount("tmpfs", STATE, "mode=0755")
        for top in ("etc", "var", "opt", "usr/bin", "usr/lib"):
            upper = os.path.join(STATE, "overlay", top.replace("/", "_"))
            os.makedirs(upper + "/upper")
            os.makedirs(upper + "/work")
            mount("overlay", "/" + top, "lowerdir=/%s,upperdir=%s/upper,workdir=%s/work" % (top, upper, upper),
                  source="overlay")
        # /tmp private too: the build tree may live there, so keep it visible
        if not self.build.startswith("/tmp/") and not self.cache.startswith("/tmp/"):
            mount("tmpfs", "/tmp", "mode=1777")
        self._users()
        run(["ip", "link", "set", "lo", "up"], check=False)
        with open("/etc/resolv.conf", "w") as f:
            # nothing answers here: remote deliveries fail at once
            f.write("nameserver 127.0.0.1\n")
        if not os.path.exists("/usr/bin/deliverquota"):
            os.symlink("/usr/sbin/deliverquota", "/usr/bin/deliverquota")
        os.makedirs(QMAIL, exist_ok=True)
        for tree in ("/var/lib/crelm", "/etc/domainkeys", "/etc/qvt", "/opt/qvt"):
            os.makedirs(tree, exist_ok=True)

    def _users(self):
        with open(os.path.join(self.cache, "passwd")) as f:
            qmail_users = f.read()
        with open(os.path.join(self.cache, "group")) as f:
            qmail_groups = f.read()
        names = {line.split(":")[0] for line in (qmail_users + qmail_groups).splitlines()}
        names |= {"popuser"}
        for path, extra in (("/etc/passwd", qmail_users), ("/etc/group", qmail_groups)):
            with open(path) as f:
                kept = [line for line in f if line.split(":")[0] not in names]
            with open(path, "w") as f:
                f.write("".join(kept) + extra)
        for path in ("/etc/shadow", "/etc/gshadow"):
            if os.path.exists(path):
                with open(path) as f:
                    kept = [line for line in f if line.split(":")[0] not in names]
                with open(path, "w") as f:
                    f.write("".join(kept))
        run(["groupadd", "-r", "popuser"])
        run(["useradd", "-r", "-g", "popuser", "-d", "/var/qmail/popuser", "-s", "/bin/false", "-M", "popuser"])
        self.popuser = pwd.getpwnam("popuser")
        self.alias = pwd.getpwnam("alias")

    # ---- a fresh server ------------------------------------------------------

    def reset(self, lda="deliverquota", start=True):
        """Stops qmail, gives every mail-server path a fresh tree (qmail's
        pristine installation, empty stores and key directories), and starts
        qmail-send again when start is set."""
        self.stop_qmail()
        for tree in (QMAIL, "/var/lib/crelm", "/etc/domainkeys", "/etc/qvt", "/opt/qvt"):
            while os.path.ismount(tree):
                run(["umount", "-l", tree])
            os.makedirs(tree, exist_ok=True)
            mount("tmpfs", tree, "mode=0755")
        run(["cp", "-a", os.path.join(self.cache, "tree") + "/.", QMAIL + "/"])
        # sorvane makes its run-time directory (with the lock directory in
        # it) itself when it is missing, as it is after a boot: each fresh
        # server starts without it.
        shutil.rmtree(RUNTIME_DIR, ignore_errors=True)
        # what the panel's installer leaves: the stores' directories and the
        # runtime configuration naming the mail names directory
        for store in ("userdb", "handlers", "auth"):
            os.makedirs("/var/lib/crelm/mail/" + store)
        write("/etc/qvt/qvt.conf", "CRELM_MAILNAMES_D %s\n" % MAILNAMES)
        run([os.path.join(self.build, "tests", "mail_stores_setup")])
        control = QMAIL + "/control"
        write(control + "/me", "mail.sorvane.test\n")
        write(control + "/locals", "localhost\nmail.sorvane.test\n")
        write(control + "/rcpthosts", "localhost\nmail.sorvane.test\n")
        write(control + "/virtualdomains", "")
        # delivery attempts that would wait long are cut short
        write(control + "/timeoutremote", "5\n")
        write(QMAIL + "/users/assign", ".\n")
        run([QMAIL + "/bin/qmail-newu"])
        # The envelope senders of the suite's messages are sender-<tag>@mail.sorvane.test:
        # their bounces land in the alias user's "bounces" Maildir.
        for box in ("bounces", "postmaster", "forwarded"):
            self._maildir(QMAIL + "/alias/" + box, self.alias.pw_uid, self.alias.pw_gid)
        for name, box in (("sender-default", "bounces"), ("postmaster", "postmaster"),
                          ("mailer-daemon", "postmaster"), ("root", "postmaster"), ("forward-default", "forwarded")):
            write(QMAIL + "/alias/.qmail-" + name, "./%s/\n" % box, 0o644)
        os.makedirs(MAILNAMES)
        os.chown(MAILNAMES, self.popuser.pw_uid, self.popuser.pw_gid)
        os.chmod(MAILNAMES, 0o751)
        self.set_lda(lda)
        sbin = "/opt/qvt/admin/sbin"
        os.makedirs(sbin)
        shutil.copy(os.path.join(HERE, "crelmrc"), sbin + "/crelmrc")
        os.chmod(sbin + "/crelmrc", 0o755)
        for stale in ("crelmrc.calls", "running"):
            if os.path.exists(os.path.join(STATE, stale)):
                os.unlink(os.path.join(STATE, stale))
        if start:
            self.start_qmail()

    def set_lda(self, lda):
        """deliverquota alone, or Dovecot's delivery agent alone."""
        self.lda = lda
        if lda == "deliverquota":
            line = DELIVERQUOTA_LINE
            if not os.path.lexists("/usr/bin/deliverquota"):
                os.symlink("/usr/sbin/deliverquota", "/usr/bin/deliverquota")
        else:
            line = DOVECOT_LINE
            if os.path.lexists("/usr/bin/deliverquota"):
                os.unlink("/usr/bin/deliverquota")
        write(MAILNAMES + "/.default_delivery", line)

    def use_shell(self, shell):
        """Makes /bin/sh (the shell qmail-local runs dot-qmail commands with)
        dash or bash."""
        os.unlink("/usr/bin/sh")
        os.symlink(shell, "/usr/bin/sh")
        expect_shell = os.path.realpath("/bin/sh")
        if os.path.basename(expect_shell) != shell:
            raise SuiteError("/bin/sh is %s, not %s" % (expect_shell, shell))

    def _maildir(self, path, uid, gid):
        for sub in ("", "/tmp", "/new", "/cur"):
            os.makedirs(path + sub, exist_ok=True)
            os.chown(path + sub, uid, gid)
            os.chmod(path + sub, 0o700)

    # ---- qmail-send ----------------------------------------------------------

    def start_qmail(self):
        # each start gets a fresh log, so that its first status line is its own
        if os.path.exists(LOG):
            self.logs += 1
            os.rename(LOG, "%s.%d" % (LOG, self.logs))
        self.log = QmailLog()
        open(STATE + "/running", "w").close()
        run(["/opt/qvt/admin/sbin/crelmrc", "qmail", "start"])
        wait_until("qmail-send to start", lambda: "status: local 0/" in self.log.tail(200))

    def stop_qmail(self):
        if os.path.exists(STATE + "/running"):
            os.unlink(STATE + "/running")
        if os.path.exists("/opt/qvt/admin/sbin/crelmrc"):
            run(["/opt/qvt/admin/sbin/crelmrc", "qmail", "stop"])

    def qmail_running(self):
        return os.path.exists(STATE + "/running")

    # ---- sorvane -------------------------------------------------------------

    def panel(self, domain, *args, expect=0, env=None, prefix=()):
        """Runs a command the way the panel does: with the picture of the
        domain on standard input (where the command takes one); a command
        that ends with status 0 updates the picture."""
        stdin = None
        if args[0] not in WITHOUT_PICTURE:
            args = tuple(args) + ("--wait-stdin",)
            stdin = domain.document_for(args)
        result = self.sorvane(*args, expect=expect, stdin=stdin, env=env, prefix=prefix)
        if result.returncode == 0:
            domain.apply(args)
        return result

    def sorvane(self, *args, expect=0, stdin=None, env=None, prefix=()):
        environment = dict(os.environ)
        environment.pop("QVT_PASSWORD", None)
        environment.pop("QVT_CRYPTED_PASSWORD", None)
        environment.update(env or {})
        if prefix:
            # the leak checker of a sanitizer build cannot work under ptrace
            options = environment.get("ASAN_OPTIONS", "")
            environment["ASAN_OPTIONS"] = (options + ":" if options else "") + "detect_leaks=0"
        result = subprocess.run(list(prefix) + [self.sorvane_path] + list(args), input=stdin or "",
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment)
        if "is not available in this build" in result.stdout + result.stderr:
            raise NotAvailable(args[0])
        if expect is not None and result.returncode != expect:
            raise SuiteError("sorvane %s: status %d, expected %d\nstdout: %s\nstderr: %s"
                             % (" ".join(args), result.returncode, expect, result.stdout, result.stderr))
        return result

    def audit(self, pictures=None, quotas=None):
        """Runs sorvane-audit on the whole server (its JSON report), with the
        panel's picture of the given domains (Domain objects; quotas gives
        {(domain, mail name): bytes}) when pictures is not None: (status,
        the findings as "<severity> <code> <object>: <detail>" lines, the
        output in full)."""
        if not os.path.exists(self.audit_path):
            raise NotAvailable("sorvane-audit in the build tree")
        argv = [self.audit_path, "--json"]
        if pictures is not None:
            documents = []
            for picture in pictures:
                mine = {name: q for (domain, name), q in (quotas or {}).items() if domain == picture.name}
                document = picture.expected(mine)
                if document is not None:
                    documents.append(document)
            write(AUDIT_PICTURE, json.dumps(documents, indent=1) + "\n", 0o600)
            argv.append("--expect=" + AUDIT_PICTURE)
        result = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        output = "status %d\nstdout: %s\nstderr: %s" % (result.returncode, result.stdout, result.stderr)
        if result.returncode not in (0, 1):
            return result.returncode, [], output
        try:
            report = json.loads(result.stdout)
            findings = ["%s %s %s: %s" % (f["severity"], f["code"], f["object"], f["detail"])
                        for f in report["findings"]]
        except (ValueError, KeyError, TypeError) as error:
            raise SuiteError("sorvane-audit printed no report it can be read by (%s):\n%s" % (error, output))
        return result.returncode, findings, output

    def available(self, command):
        """Whether this build carries out command (instead of answering that
        it is not available): asked once per command, with valid options, on
        a throw-away fresh server."""
        if self.availability is None:
            self.availability = {}
            self.reset(start=False)
            picture = Domain("probe.test")
            for probe in PROBES:
                try:
                    self.panel(picture, *probe, expect=None, env={"QVT_PASSWORD": "Probe-1234"})
                    self.availability[probe[0]] = True
                except NotAvailable:
                    self.availability[probe[0]] = False
            self.reset(start=False)
        return self.availability.get(command, False)

    # ---- messages ------------------------------------------------------------

    def inject(self, *recipients, body="a test message\n"):
        """Queues a message to recipients with a unique envelope sender
        (sender-<tag>@mail.sorvane.test); returns that sender."""
        self.tags += 1
        tag = "t%d" % self.tags
        sender = "sender-%s@mail.sorvane.test" % tag
        message = "From: %s\nSubject: %s\n\n%s" % (sender, tag, body)
        run([QMAIL + "/bin/qmail-inject", "-f" + sender] + list(recipients), input=message)
        return sender

    def outcome(self, sender, recipients=1):
        """Waits (bounded) until every recipient of the message has a first
        ended delivery attempt: the list of Delivery records."""
        try:
            return wait_until("delivery of the message from %s" % sender,
                              lambda: self.log.outcome(sender, recipients))
        except SuiteError as error:
            raise SuiteError("%s\nqmail log:\n%s" % (error, self.log.tail()))

    def deliver(self, recipient, body="a test message\n"):
        """Injects one message to recipient and returns its first ended
        delivery attempt."""
        sender = self.inject(recipient, body=body)
        delivery = self.outcome(sender)[0]
        delivery.sender = sender
        return delivery

    def bounce_of(self, sender):
        """The bounce message qmail sent back to sender (bounded wait)."""
        box = QMAIL + "/alias/bounces/new"

        def find():
            for path in glob.glob(box + "/*"):
                data = read(path)
                if ("\nTo: %s\n" % sender).encode() in data:
                    return data.decode(errors="replace")
            return None
        return wait_until("the bounce to %s" % sender, find)

    def maildir_messages(self, domain, name, folder="new"):
        path = "%s/%s/%s/Maildir/%s" % (MAILNAMES, domain, name, folder)
        return sorted(glob.glob(path + "/*"))

    def forwarded_messages(self):
        return sorted(glob.glob(QMAIL + "/alias/forwarded/new/*"))


# ---- snapshots of the state a command changes ---------------------------------

def store_dump(path):
    """The rows of a store, table by table, in a stable order. Row ids (which
    depend on the order of insertion) are left out and a domain id is given
    as the domain's name; encrypted passwords (a fresh random vector each
    time) only as being there or not."""
    connection = sqlite3.connect("file:%s?mode=rw" % path, uri=True)
    try:
        rows = []
        tables = [r[0] for r in connection.execute("SELECT name FROM sqlite_master WHERE type='table' ORDER BY name")
                  if r[0] != "sqlite_sequence"]
        domain_names = {}
        if "domains" in tables:
            domain_names = dict(connection.execute("SELECT id, name FROM domains"))
        for table in tables:
            columns = [r[1] for r in connection.execute("PRAGMA table_info(%s)" % table)]
            for row in connection.execute("SELECT * FROM %s" % table):
                kept = []
                for column, value in zip(columns, row):
                    if column == "id":
                        continue
                    if column == "dom_id":
                        value = domain_names.get(value, "missing domain %r" % value)
                    if column in ("userPassword", "cmusaslsecretPLAIN"):
                        value = bool(value)
                    kept.append((column, value))
                rows.append((table,) + tuple(kept))
        return sorted(rows, key=repr)
    finally:
        connection.close()


QUOTA_UNITS = {"": 1, "B": 1, "KB": 1 << 10, "MB": 1 << 20, "GB": 1 << 30, "TB": 1 << 40}


def quota_bytes(text):
    """A quota as the quota store writes it ("<digits><unit>"), in bytes."""
    match = re.match(r"^(\d+)([A-Z]*)$", text)
    if not match or match.group(2) not in QUOTA_UNITS:
        raise SuiteError("a quota the store should not hold: %r" % text)
    return int(match.group(1)) * QUOTA_UNITS[match.group(2)]


def quota_rows():
    """The quota store's rows: {(domain, mail name): quota in bytes}."""
    store = STORES[0]
    if not os.path.exists(store):
        return {}
    connection = sqlite3.connect("file:%s?mode=ro" % store, uri=True)
    try:
        return {(d, m): quota_bytes(q) for d, m, q in
                connection.execute("SELECT domain_name, mailbox_name, quota FROM mailbox_quota")}
    finally:
        connection.close()


def integrity(path):
    """PRAGMA integrity_check's verdict, after SQLite has rolled back what a
    killed writer left in its journal (as the next user of the store does)."""
    connection = sqlite3.connect("file:%s?mode=rw" % path, uri=True)
    try:
        return connection.execute("PRAGMA integrity_check").fetchone()[0]
    finally:
        connection.close()


def tree_state(root, contents=True):
    """Every entry below root: type, owner, group, mode and (for files) the
    content; the "maildirsize" files' content is compared by its quota line
    and totals, which do not depend on the moment of writing."""
    state = {}
    if not os.path.exists(root):
        return state
    for directory, dirs, files in os.walk(root):
        dirs.sort()
        for name in sorted(dirs) + sorted(files):
            path = os.path.join(directory, name)
            info = os.lstat(path)
            entry = [oct(info.st_mode), info.st_uid, info.st_gid]
            if contents and os.path.isfile(path) and not os.path.islink(path):
                if path.endswith(".db") or path.endswith("-journal") or path.endswith(".db-wal"):
                    entry.append("store")
                elif name == "passwd_db_key":
                    entry.append(len(read(path)))
                else:
                    entry.append(read(path))
            if os.path.islink(path):
                entry.append(os.readlink(path))
            state[os.path.relpath(path, root)] = tuple(entry)
    return state


def server_state():
    """What the commands keep in step: the control files, assign, the mail
    name trees, the stores' rows and the key directories."""
    state = {}
    for root in MUTABLE_TREES:
        for path, entry in tree_state(root).items():
            state[os.path.join(root, path)] = entry
    for store in STORES:
        if os.path.exists(store):
            state[store + " rows"] = tuple(store_dump(store))
    return state


def describe_difference(expected, found, limit=12):
    lines = []
    for key in sorted(set(expected) | set(found)):
        if expected.get(key) != found.get(key):
            if key.endswith("/users/cdb"):
                lines.append("  %s: differs (compiled from a different assign)" % key)
                continue
            lines.append("  %s:\n    expected %r\n    found    %r" % (key, expected.get(key), found.get(key)))
    more = "" if len(lines) <= limit else "\n  ... and %d more" % (len(lines) - limit)
    return "\n".join(lines[:limit]) + more


def beside_control_file(directory, name):
    """Whether name, in directory, is a file made from the name of one of
    the control files or assign there (the file itself aside): what a
    rewrite of it names its temporary file, whatever the form."""
    for control in CONTROL_FILES:
        home, base = os.path.split(os.path.join(QMAIL, control))
        if directory == home and name != base and base in name:
            return True
    return False


def temporary_files():
    """Files a replacement leaves behind when it stops half-way."""
    found = []
    for root in MUTABLE_TREES + ("/var/qmail/alias",):
        for directory, dirs, files in os.walk(root):
            for name in files:
                if (name.endswith(".tmp") or re.search(r"\.tmp\.[A-Za-z0-9]{6}$", name)
                        or re.search(r"\.[A-Za-z0-9]{6}$", name) and ".mail." in name
                        or re.search(r"\.(assign|rcpthosts|virtualdomains|locals|rejectnonexist|qmail)\.[A-Za-z0-9]{6}$",
                                     name)
                        or beside_control_file(directory, name)
                        or name.endswith("-maildirsize")):
                    found.append(os.path.join(directory, name))
    return found


# ---- the compiled assignment table ---------------------------------------------

def cdb_hash(key):
    h = 5381
    for byte in key:
        h = ((h << 5) + h) & 0xFFFFFFFF
        h ^= byte
    return h


def cdb_get(path, key):
    """The first value stored under key in the constant database at path
    (the format qmail-newu writes users/cdb in), or None."""
    return cdb_lookup(read(path), key)


def cdb_lookup(data, key):
    """cdb_get on the database's bytes, read once for many lookups."""
    import struct
    h = cdb_hash(key)
    table, slots = struct.unpack_from("<II", data, (h & 255) * 8)
    if slots == 0:
        return None
    slot = (h >> 8) % slots
    for _ in range(slots):
        stored_hash, position = struct.unpack_from("<II", data, table + slot * 8)
        if position == 0:
            return None
        if stored_hash == h:
            key_length, value_length = struct.unpack_from("<II", data, position)
            if data[position + 8:position + 8 + key_length] == key:
                start = position + 8 + key_length
                return data[start:start + value_length]
        slot = (slot + 1) % slots
    return None


# ---- counting qmail-newu's runs ------------------------------------------------

NEWU = QMAIL + "/bin/qmail-newu"
# One line per run of qmail-newu since the wrapper was put in its place.
NEWU_RUNS = STATE + "/qmail-newu.runs"
# What the commands keep about their shared rebuilds: "<taken> <built> <result>".
NEWU_GENERATIONS = RUNTIME_DIR + "/locks/qmail-newu.generations"

NEWU_WRAPPER = """#!/bin/sh
# Notes this run of qmail-newu, then becomes the real one.
echo "$$" >> %s
exec %s.real "$@"
""" % (NEWU_RUNS, NEWU)


def count_qmail_newu_runs():
    """Puts a script in qmail-newu's place that notes each run before it
    execs the real program (moved beside it), so that the runs can be
    counted without any change to the commands; the count starts at 0.
    The next reset brings back the pristine program."""
    if not os.path.exists(NEWU + ".real"):
        info = os.stat(NEWU)
        os.rename(NEWU, NEWU + ".real")
        write(NEWU, NEWU_WRAPPER, info.st_mode & 0o7777, (info.st_uid, info.st_gid))
    write(NEWU_RUNS, "")


def qmail_newu_runs():
    """How many times qmail-newu ran since count_qmail_newu_runs."""
    with open(NEWU_RUNS) as f:
        return len(f.read().splitlines())


def rebuilds_asked():
    """How many times the commands asked for a rebuild of the compiled table
    on this server (each takes a generation), or None when the commands keep
    no count."""
    try:
        with open(NEWU_GENERATIONS) as f:
            fields = f.read().split()
    except FileNotFoundError:
        return None
    return int(fields[0]) if fields else 0


def assigned_home(local):
    """The home directory that users/cdb gives the local user local (an
    exact "=" record), or None."""
    value = cdb_get(QMAIL + "/users/cdb", b"!" + local.lower().encode() + b"\0")
    if value is None:
        return None
    return value.split(b"\0")[3].decode()
