"""What the commands do to real deliveries: the panel's command sequence for
one domain, with messages injected between the steps and followed through
qmail's log to their end."""
import glob
import os

from mailserver import MAILNAMES, QMAIL, Domain, NotAvailable, read, wait_until

GROUP = "deliveries"
PASSWORD = "Secret-1234"
DEFAULT_BOUNCE = "This address no longer accepts mail."
# Every kind of shell syntax and a brace list, on one line (a phrase with a
# control character is refused before anything changes): the bounce must say
# it verbatim and run none of it.
HOSTILE = ("Gone; touch /tmp/pwned-semicolon && touch /tmp/pwned-and | tee /tmp/pwned-pipe "
           "$(touch /tmp/pwned-dollar) `touch /tmp/pwned-backquote` ${HOME} $HOME {a,b} "
           "> /tmp/pwned-redirect < /etc/passwd 'single' \"double\" \\backslash * ? ~ # & !x "
           "second line (sub) [class] %s ^caret")
HOSTILE_ONE_LINE = HOSTILE.replace("\n", " ")


def need(server, *commands):
    missing = [c for c in commands if not server.available(c)]
    if missing:
        raise NotAvailable(", ".join(missing))


def expect(condition, message):
    if not condition:
        raise AssertionError(message)


def expect_local(delivery, result, address):
    expect(delivery.where == "local", "%s: delivered %s, expected local: %r" % (address, delivery.where, delivery))
    expect(delivery.result == result, "%s: %s, expected %s: %r" % (address, delivery.result, result, delivery))


def expect_not_local(server, address):
    delivery = server.deliver(address)
    expect(delivery.where == "remote", "%s is still local: %r" % (address, delivery))
    return delivery


def landed(server, domain, name, sender):
    """The one message from sender in the mail name's Maildir/new."""
    subject = ("Subject: %s\n" % sender.split("@")[0].split("-", 1)[1]).encode()
    found = [p for p in server.maildir_messages(domain, name) if subject in read(p)]
    expect(len(found) == 1, "message from %s in %s@%s's Maildir/new: %d found (%s)"
           % (sender, name, domain, len(found), server.maildir_messages(domain, name)))
    return found[0]


def maildir_bytes(domain, name):
    total = 0
    for path in glob.glob("%s/%s/%s/Maildir/**" % (MAILNAMES, domain, name), recursive=True):
        base = os.path.basename(path)
        if os.path.isfile(path) and "/tmp/" not in path and base != "maildirsize" and not base.startswith("."):
            total += os.path.getsize(path)
    return total


def tree_bytes(top):
    total = os.lstat(top).st_size
    for directory, dirs, files in os.walk(top):
        for name in dirs + files:
            total += os.lstat(os.path.join(directory, name)).st_size
    return total


def pwned_files():
    found = glob.glob("/tmp/pwned*") + glob.glob("/var/qmail/mailnames/**/pwned*", recursive=True)
    found += [p for p in glob.glob("/var/qmail/mailnames/*/*") if os.path.basename(p) in ("a", "b", "x")]
    return found


class Sequence:
    """The panel's command sequence for example.com, step by step."""

    def __init__(self, server):
        self.server = server
        self.domain = Domain("example.com")

    def s(self, *args, **kwargs):
        return self.server.panel(self.domain, *args, **kwargs)

    def fresh(self):
        self.server.reset()
        self.domain = Domain("example.com")

    def new_domain_bounces_with_default_text(self):
        need(self.server, "--add-domain", "--turn-on-domain")
        self.fresh()
        self.s("--add-domain", "--domain-name=example.com")
        self.s("--turn-on-domain", "--domain-name=example.com", "--set-bounce")
        delivery = self.server.deliver("nobody@example.com")
        expect_local(delivery, "failure", "nobody@example.com")
        bounce = self.server.bounce_of(delivery.sender)
        expect("<nobody@example.com>:\n%s\n" % DEFAULT_BOUNCE in bounce, "bounce text:\n" + bounce)
        return "bounced: %s" % DEFAULT_BOUNCE

    def hostile_phrase_bounces_verbatim(self, shell):
        need(self.server, "--add-domain", "--turn-on-domain")
        self.server.use_shell(shell)
        try:
            self.fresh()
            self.s("--add-domain", "--domain-name=example.com")
            self.s("--turn-on-domain", "--domain-name=example.com", "--set-bounce", "--phrase=" + HOSTILE)
            delivery = self.server.deliver("nobody@example.com")
            expect_local(delivery, "failure", "nobody@example.com")
            bounce = self.server.bounce_of(delivery.sender)
            expect("<nobody@example.com>:\n%s\n" % HOSTILE_ONE_LINE in bounce,
                   "bounce does not say the phrase verbatim:\n%s\nexpected:\n%s" % (bounce, HOSTILE_ONE_LINE))
            expect(not pwned_files(), "the phrase ran commands: %s" % pwned_files())
        finally:
            self.server.use_shell("dash")
        return "with %s as /bin/sh" % shell

    def catchall_forwards(self):
        self.s("--turn-on-domain", "--domain-name=example.com", "--set-catchall", "--email=forward-all@mail.sorvane.test")
        delivery = self.server.deliver("unknown@example.com")
        expect_local(delivery, "success", "unknown@example.com")
        subject = ("Subject: %s\n" % delivery.sender.split("@")[0].split("-", 1)[1]).encode()
        # the forwarded copy is a new message of its own: wait for it
        wait_until("the forwarded copy", lambda: [p for p in self.server.forwarded_messages() if subject in read(p)])
        forwarded = [p for p in self.server.forwarded_messages() if subject in read(p)]
        expect(len(forwarded) == 1, "forwarded copies: %s" % forwarded)

    def reject_refuses(self):
        # Reject lists the domain for the SMTP front end and keeps the
        # domain's default dot-qmail as it was: from a bounce, mail to
        # unknown names is refused at delivery too. (This qmail's SMTP
        # front end reads no reject list; the panel's does.)
        self.s("--turn-on-domain", "--domain-name=example.com", "--set-bounce")
        self.s("--turn-on-domain", "--domain-name=example.com", "--set-reject")
        rejected = read(QMAIL + "/control/rejectnonexist").decode()
        expect(rejected == "example.com\n", "rejectnonexist: %r" % rejected)
        before = self.server.forwarded_messages()
        delivery = self.server.deliver("unknown@example.com")
        expect_local(delivery, "failure", "unknown@example.com under reject")
        expect(self.server.forwarded_messages() == before, "mail to an unknown name was forwarded")
        # back to the default bounce for the rest of the sequence
        self.s("--turn-on-domain", "--domain-name=example.com", "--set-bounce")
        expect(read(QMAIL + "/control/rejectnonexist") == b"", "reject left on")

    def mailname_without_mailbox_discards(self):
        need(self.server, "--add-mailname")
        self.s("--add-mailname", "--domain-name=example.com", "--mailname=discard")
        delivery = self.server.deliver("discard@example.com")
        expect_local(delivery, "success", "discard@example.com")
        for folder in ("new", "cur", "tmp"):
            found = self.server.maildir_messages("example.com", "discard", folder)
            expect(found == [], "a discarded message was kept in Maildir/%s: %s" % (folder, found))

    def mailbox_receives(self):
        need(self.server, "--add-mailname", "--add-mailbox")
        self.s("--add-mailname", "--domain-name=example.com", "--mailname=info")
        self.s("--add-mailbox", "--domain-name=example.com", "--mailname=info", env={"QVT_PASSWORD": PASSWORD})
        delivery = self.server.deliver("info@example.com")
        expect_local(delivery, "success", "info@example.com")
        landed(self.server, "example.com", "info", delivery.sender)

    def alias_delivers_to_its_mailname(self):
        need(self.server, "--add-alias")
        self.s("--add-alias", "--domain-name=example.com", "--mailname=info", "--alias=sales")
        delivery = self.server.deliver("sales@example.com")
        expect_local(delivery, "success", "sales@example.com")
        landed(self.server, "example.com", "info", delivery.sender)

    def domain_alias_delivers_as_domain(self):
        need(self.server, "--add-domain-alias")
        self.s("--add-domain-alias", "--domain-name=example.com", "--domain-alias-name=example.net",
               "--set-bounce")
        for address in ("info@example.net", "sales@example.net"):
            delivery = self.server.deliver(address)
            expect_local(delivery, "success", address)
            landed(self.server, "example.com", "info", delivery.sender)
        delivery = self.server.deliver("nobody@example.net")
        expect_local(delivery, "failure", "nobody@example.net")

    def quota_below_usage_refuses(self):
        need(self.server, "--set-mailbox-disk-quota")
        self.s("--set-mailbox-disk-quota", "--domain-name=example.com", "--mailname=info", "--disk-quota=1")
        header = read("%s/example.com/info/Maildir/maildirsize" % MAILNAMES).split(b"\n")[0]
        expect(header == b"1S,0C", "maildirsize quota line: %r" % header)
        before = self.server.maildir_messages("example.com", "info")
        delivery = self.server.deliver("info@example.com", body="x" * 2000 + "\n")
        expect_local(delivery, "failure", "info@example.com over quota")
        self.server.bounce_of(delivery.sender)
        expect(self.server.maildir_messages("example.com", "info") == before, "a message over the quota landed")
        self.s("--set-mailbox-disk-quota", "--domain-name=example.com", "--mailname=info", "--disk-quota=-1")
        delivery = self.server.deliver("info@example.com", body="x" * 2000 + "\n")
        expect_local(delivery, "success", "info@example.com unlimited")
        landed(self.server, "example.com", "info", delivery.sender)
        return "deliverquota refused at 1 byte, took the message unlimited"

    def quota_counts_as_the_agent_counts(self):
        """A quota set beside mail the delivery agent does not count (the
        Trash folder, a message flagged trashed) leaves room for a message
        that fits by the agent's count, and refuses one that does not."""
        need(self.server, "--set-mailbox-disk-quota")
        maildir = "%s/example.com/info/Maildir" % MAILNAMES
        uncounted = [maildir + "/.Trash/cur/1700000000.trash.mail,S=20000:2,S",
                     maildir + "/cur/1700000001.trashed.mail,S=20000:2,ST"]
        for path in uncounted:
            with open(path, "wb") as f:
                f.write(b"x" * 20000)
            os.chown(path, self.server.popuser.pw_uid, self.server.popuser.pw_gid)
        counted = sum(os.path.getsize(p) for folder in ("new", "cur")
                      for p in self.server.maildir_messages("example.com", "info", folder) if p not in uncounted)
        try:
            self.s("--set-mailbox-disk-quota", "--domain-name=example.com", "--mailname=info",
                   "--disk-quota=%d" % (counted + 3000))
            fits = self.server.deliver("info@example.com", body="y" * 1000 + "\n")
            expect_local(fits, "success", "info@example.com with room by the agent's count")
            landed(self.server, "example.com", "info", fits.sender)
            too_big = self.server.deliver("info@example.com", body="z" * 4000 + "\n")
            expect_local(too_big, "failure", "info@example.com over quota by the agent's count")
            self.server.bounce_of(too_big.sender)
        finally:
            for path in uncounted:
                os.unlink(path)
            self.s("--set-mailbox-disk-quota", "--domain-name=example.com", "--mailname=info", "--disk-quota=-1")
        return "quota %d bytes: 1 KB accepted, 4 KB refused, Trash and a trashed message not counted" % (counted + 3000)

    def mailbox_size_agrees(self):
        need(self.server, "--get-mailbox-size")
        result = self.s("--get-mailbox-size", "--domain-name=example.com", "--mailname=info")
        # the delivered messages, plus the "@attachments" tree (the directory
        # itself included), which the size counts beside the Maildir
        delivered = maildir_bytes("example.com", "info") + tree_bytes(
            "%s/example.com/info/@attachments" % MAILNAMES)
        files = ["%s %d" % (p, os.path.getsize(p)) for p in glob.glob(
            "%s/example.com/info/Maildir/**" % MAILNAMES, recursive=True) if os.path.isfile(p)]
        expect(result.stdout.strip() == str(delivered),
               "--get-mailbox-size says %r, the Maildir holds %d bytes\nmaildirsize:\n%s\nfiles:\n%s"
               % (result.stdout, delivered, read("%s/example.com/info/Maildir/maildirsize" % MAILNAMES).decode(),
                  "\n".join(files)))
        return "%d bytes" % delivered

    def renamed_names_receive(self):
        need(self.server, "--rename-mailname", "--rename-domain")
        self.s("--rename-mailname", "--domain-name=example.com", "--old-mailname=info", "--new-mailname=contact",
               env={"QVT_PASSWORD": PASSWORD})
        for address in ("contact@example.com", "sales@example.com", "contact@example.net"):
            delivery = self.server.deliver(address)
            expect_local(delivery, "success", address)
            landed(self.server, "example.com", "contact", delivery.sender)
        delivery = self.server.deliver("info@example.com")
        expect_local(delivery, "failure", "info@example.com after the rename")
        self.s("--rename-domain", "--old-domain-name=example.com", "--new-domain-name=example.org")
        for address in ("contact@example.org", "sales@example.org", "contact@example.net", "sales@example.net"):
            delivery = self.server.deliver(address)
            expect_local(delivery, "success", address)
            landed(self.server, "example.org", "contact", delivery.sender)
        expect_not_local(self.server, "contact@example.com")

    def turned_off_is_not_local(self):
        need(self.server, "--turn-off-domain")
        self.s("--turn-off-domain", "--domain-name=example.org")
        for address in ("contact@example.org", "nobody@example.org", "contact@example.net"):
            expect_not_local(self.server, address)

    def removed_is_not_local(self):
        need(self.server, "--remove-domain")
        self.s("--turn-on-domain", "--domain-name=example.org", "--set-bounce")
        # the panel takes everything of the domain away, then the domain
        self.s("--remove-alias", "--domain-name=example.org", "--mailname=contact", "--alias=sales")
        self.s("--remove-mailbox", "--domain-name=example.org", "--mailname=contact")
        for name in ("contact", "discard"):
            self.s("--remove-mailname", "--domain-name=example.org", "--mailname=" + name)
        self.s("--del-domain-alias", "--domain-name=example.org", "--domain-alias-name=example.net")
        self.s("--remove-domain", "--domain-name=example.org")
        for address in ("contact@example.org", "sales@example.org", "nobody@example.org", "contact@example.net"):
            expect_not_local(self.server, address)
        for path in ("control/rcpthosts", "control/virtualdomains", "users/assign"):
            text = read(QMAIL + "/" + path).decode()
            expect("example." not in text.replace("mail.sorvane.test", ""), "%s still names the domain:\n%s"
                   % (path, text))
        expect(not os.path.exists(MAILNAMES + "/example.org"), "the domain's mail directory is left")


def run(server, results, options):
    sequence = Sequence(server)
    check = results.check
    check(GROUP, "a new domain bounces unknown names with the default text",
          sequence.new_domain_bounces_with_default_text)
    for shell in ("dash", "bash"):
        check(GROUP, "a hostile bounce phrase bounces verbatim and runs nothing (%s)" % shell,
              sequence.hostile_phrase_bounces_verbatim, shell)
    # one sequence from here on: each step builds on the one before
    if not check(GROUP, "(sequence start) a fresh domain", sequence.new_domain_bounces_with_default_text):
        return
    steps = [
        ("catch-all forwards", sequence.catchall_forwards),
        ("reject refuses", sequence.reject_refuses),
        ("a mail name without a mailbox accepts and discards", sequence.mailname_without_mailbox_discards),
        ("with a mailbox the message lands in Maildir/new", sequence.mailbox_receives),
        ("an alias delivers to its mail name", sequence.alias_delivers_to_its_mailname),
        ("a domain alias delivers as its domain", sequence.domain_alias_delivers_as_domain),
        ("a quota below the usage bounces, unlimited delivers", sequence.quota_below_usage_refuses),
        ("--get-mailbox-size agrees with the delivered bytes", sequence.mailbox_size_agrees),
        ("a quota leaves out what the delivery agent does not count", sequence.quota_counts_as_the_agent_counts),
        ("after renames mail to the new names lands", sequence.renamed_names_receive),
        ("after turning the domain off it is not local", sequence.turned_off_is_not_local),
        ("after removing everything nothing is local", sequence.removed_is_not_local),
    ]
    for name, step in steps:
        if not check(GROUP, name, step):
            # later steps need this one: say so instead of failing them too
            for later, _ in steps[steps.index((name, step)) + 1:]:
                results.skipped(GROUP, later, "an earlier step failed")
            break
