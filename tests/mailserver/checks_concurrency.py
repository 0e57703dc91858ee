"""Concurrent panels: 8 sorvane processes at once, 200 commands a round. In
one shared domain they add, remove and rename mail names and aliases and
add and remove domain aliases; beside it each panel adds domains of its
own, gives them mail names and domain aliases, renames its mail names and
renames the domains themselves, so that whole-file rewrites of rcpthosts,
virtualdomains and assign run beside the other panels' line edits.
Afterwards every file, store and tree agrees with the sequential run of the
same commands (lines whose order depends on who came first compared as
sets), the compiled table that qmail-newu built answers every mail name,
no temporary file is left and the lock directory is sorvane's own. Each
panel also looks up, the moment a command returns, every mail name and alias
that command added or moved: the table must already send it home, whether
the command ran its own rebuild or shared another panel's. Each round
prints how many commands asked for a rebuild and how many qmail-newu runs
there were (counted by a script in qmail-newu's place). After the
concurrent run and after the sequential run, sorvane-audit reports exactly
the logins that the panels' partial pictures of the shared domain leave out
(nothing else, and nothing at all where there are none)."""
import os
import random
import stat
import threading

from checks_deliveries import PASSWORD, need
from mailserver import (MAILNAMES, QMAIL, RUNTIME_DIR, WITHOUT_PICTURE, Domain, NotAvailable, option, read, SuiteError,
                        assigned_home,
                        count_qmail_newu_runs, describe_difference, qmail_newu_runs, rebuilds_asked, server_state,
                        temporary_files)

GROUP = "concurrency"
WORKERS = 8
COMMANDS = 200
DOMAIN = "example.com"
# The most domains of its own that a panel keeps at one time.
OWN_DOMAINS = 2
# Where the commands take their per-file locks: sorvane makes it, for root
# alone, when it is missing (each fresh server starts without it).
LOCK_DIRECTORY = RUNTIME_DIR + "/locks"
# Files whose lines are added at the top or appended at the end: with
# several panels at once their order is the order the panels came in.
ORDERED_BY_ARRIVAL = ("/var/qmail/control/rcpthosts", "/var/qmail/control/virtualdomains",
                      "/var/qmail/users/assign", "/var/qmail/control/rejectnonexist", "/var/qmail/control/locals")
COMMANDS_USED = ("--add-domain", "--turn-on-domain", "--add-mailname", "--add-mailbox", "--remove-mailname",
                 "--rename-mailname", "--rename-domain",
                 "--add-alias", "--remove-alias", "--add-domain-alias", "--del-domain-alias")


class Worker:
    """One panel's commands, valid in its own order: each worker keeps to
    names of its own, so the workers' commands commute."""

    def __init__(self, number, rng):
        self.number = number
        self.rng = rng
        self.names = {}  # mail name -> its aliases
        self.mailboxes = set()
        self.domain_aliases = set()
        self.counter = 0
        # (arguments, the panel's picture on standard input or None, the
        # addresses the table must send home once the command returns)
        self.commands = []
        self.picture = Domain(DOMAIN)
        self.own = {}  # the panel's own domains: name -> its picture

    def add_next(self):
        args, picture = self.next_command()
        document = None if args[0] in WITHOUT_PICTURE else picture.document_for(args)
        picture.apply(args)
        if args[0] == "--rename-domain":
            self.own[picture.name] = self.own.pop(option(args, "old-domain-name"))
        if document is not None:
            args = args + ["--wait-stdin"]
        self.commands.append((tuple(args), document, added_or_moved(args, picture)))

    def fresh(self, kind):
        self.counter += 1
        if kind == "alias-domain":
            return "w%d-%d.example.net" % (self.number, self.counter)
        if kind == "own-domain":
            return "w%d-%d.example.org" % (self.number, self.counter)
        return "w%d%s%d" % (self.number, kind, self.counter)

    def next_command(self):
        """The next command and the picture of the domain it works on."""
        choices = ["shared"] * 4 + ["own"]
        if self.own:
            choices += ["own"]
        if self.rng.choice(choices) == "own":
            return self.own_domain_command()
        return self.shared_domain_command(), self.picture

    def own_domain_command(self):
        """Adds a domain of the panel's own, or renames one, or adds or
        renames a mail name or adds a domain alias in one."""
        choices = []
        if len(self.own) < OWN_DOMAINS:
            choices += ["add-domain"]
        if self.own:
            choices += ["rename-domain", "add-mailname", "add-domain-alias"]
        if any(picture.mails for picture in self.own.values()):
            choices += ["rename-mailname"]
        kind = self.rng.choice(choices)
        if kind == "add-domain":
            name = self.fresh("own-domain")
            self.own[name] = Domain(name)
            return ["--add-domain", "--domain-name=" + name], self.own[name]
        if kind == "rename-mailname":
            picture = self.own[self.rng.choice(sorted(n for n, p in self.own.items() if p.mails))]
            old = self.rng.choice(sorted(picture.mails))
            return ["--rename-mailname", "--domain-name=" + picture.name, "--old-mailname=" + old,
                    "--new-mailname=" + self.fresh("r")], picture
        picture = self.own[self.rng.choice(sorted(self.own))]
        if kind == "rename-domain":
            return ["--rename-domain", "--old-domain-name=" + picture.name,
                    "--new-domain-name=" + self.fresh("own-domain")], picture
        if kind == "add-mailname":
            return ["--add-mailname", "--domain-name=" + picture.name, "--mailname=" + self.fresh("n")], picture
        return ["--add-domain-alias", "--domain-name=" + picture.name,
                "--domain-alias-name=" + self.fresh("alias-domain"), "--set-bounce"], picture

    def shared_domain_command(self):
        # an alias shares its mail name's mailbox password: only mail names
        # with a mailbox get aliases
        choices = ["add-mailname", "add-domain-alias"]
        if self.names:
            choices += ["remove-mailname", "rename-mailname"]
        if set(self.names) - self.mailboxes:
            choices += ["add-mailbox", "add-mailbox"]
        if self.mailboxes:
            choices += ["add-alias", "add-alias"]
        if any(self.names.values()):
            choices += ["remove-alias"]
        if self.domain_aliases:
            choices += ["del-domain-alias"]
        kind = self.rng.choice(choices)
        d = "--domain-name=" + DOMAIN
        if kind == "add-mailname":
            name = self.fresh("n")
            self.names[name] = []
            return ["--add-mailname", d, "--mailname=" + name]
        if kind == "remove-mailname":
            name = self.rng.choice(sorted(self.names))
            del self.names[name]
            self.mailboxes.discard(name)
            return ["--remove-mailname", d, "--mailname=" + name]
        if kind == "add-mailbox":
            name = self.rng.choice(sorted(set(self.names) - self.mailboxes))
            self.mailboxes.add(name)
            return ["--add-mailbox", d, "--mailname=" + name]
        if kind == "rename-mailname":
            old = self.rng.choice(sorted(self.names))
            new = self.fresh("r")
            self.names[new] = self.names.pop(old)
            if old in self.mailboxes:
                self.mailboxes.discard(old)
                self.mailboxes.add(new)
            return ["--rename-mailname", d, "--old-mailname=" + old, "--new-mailname=" + new]
        if kind == "add-alias":
            name = self.rng.choice(sorted(self.mailboxes))
            alias = self.fresh("a")
            self.names[name].append(alias)
            return ["--add-alias", d, "--mailname=" + name, "--alias=" + alias]
        if kind == "remove-alias":
            name = self.rng.choice(sorted(n for n, a in self.names.items() if a))
            alias = self.rng.choice(self.names[name])
            self.names[name].remove(alias)
            return ["--remove-alias", d, "--mailname=" + name, "--alias=" + alias]
        if kind == "add-domain-alias":
            alias = self.fresh("alias-domain")
            self.domain_aliases.add(alias)
            return ["--add-domain-alias", d, "--domain-alias-name=" + alias, "--set-bounce"]
        alias = self.rng.choice(sorted(self.domain_aliases))
        self.domain_aliases.remove(alias)
        return ["--del-domain-alias", d, "--domain-alias-name=" + alias]


def added_or_moved(args, picture):
    """The addresses (local part and domain) that args, once done, has added
    or moved, each with the home the compiled table must give it: the new
    mail name or alias, a renamed mail name with its aliases, every mail
    name and alias of a renamed domain. picture is the domain after args."""
    command = args[0]
    if command == "--add-mailname":
        names = [option(args, "mailname")]
    elif command == "--add-alias":
        home = "%s/%s/%s" % (MAILNAMES, picture.name, option(args, "mailname"))
        return [(option(args, "alias"), picture.name, home)]
    elif command == "--rename-mailname":
        names = [option(args, "new-mailname")]
    elif command == "--rename-domain":
        names = sorted(picture.mails)
    else:
        return []
    return [(local, picture.name, "%s/%s/%s" % (MAILNAMES, picture.name, name))
            for name in names for local in [name] + picture.mails[name]]


def unresolved(command, addresses):
    """The addresses among those command added or moved that the compiled
    table does not (yet) send to their home."""
    wrong = []
    for local, domain, home in addresses:
        found = assigned_home("%s-%s" % (domain, local))
        if found != home:
            wrong.append("%s@%s -> %r after %s" % (local, domain, found, " ".join(command)))
    return wrong


def plan(round_number, commands=COMMANDS):
    rng = random.Random(1000 + round_number)
    workers = [Worker(w, random.Random(rng.random())) for w in range(WORKERS)]
    for i in range(commands):
        worker = workers[i % WORKERS]
        worker.add_next()
    return workers


def prepare(server):
    server.reset(start=False)
    picture = Domain(DOMAIN)
    server.panel(picture, "--add-domain", "--domain-name=" + DOMAIN)
    server.panel(picture, "--turn-on-domain", "--domain-name=" + DOMAIN, "--set-bounce")
    count_qmail_newu_runs()
    return rebuilds_asked()


def run_worker(server, commands, statuses, late):
    """Runs a panel's commands one after another; after each one that
    succeeded, notes in late what the compiled table does not answer yet."""
    for command, document, addresses in commands:
        result = server.sorvane(*command, expect=None, stdin=document, env={"QVT_PASSWORD": PASSWORD})
        statuses.append((command, result.returncode, result.stderr))
        if result.returncode == 0:
            late += unresolved(command, addresses)


def rebuilds(asked_before):
    """(commands that asked for a rebuild, qmail-newu runs) since prepare;
    the first is None when the commands keep no count."""
    asked = rebuilds_asked()
    if asked is not None and asked_before is not None:
        asked -= asked_before
    return asked, qmail_newu_runs()


def normalised(state):
    """The state with the lines of the files ordered by arrival sorted (the
    final "." of assign must stay last) and the compiled table left out (its
    bytes follow assign's order; its answers are checked by lookups)."""
    result = dict(state)
    result.pop("/var/qmail/users/cdb", None)
    for path in ORDERED_BY_ARRIVAL:
        if path in result and len(result[path]) == 4:
            mode, uid, gid, content = result[path]
            lines = content.decode().split("\n")
            end = [lines.pop()] if lines and lines[-1] == "" else []
            dot = [lines.pop()] if path.endswith("assign") and lines and lines[-1] == "." else []
            result[path] = (mode, uid, gid, "\n".join(sorted(lines) + dot + end))
    return result


def unanswered(workers, run):
    """Mail names and aliases that the compiled table does not send to
    their mail name's home."""
    wrong = []
    assign = read(QMAIL + "/users/assign").decode()
    for worker in workers:
        domains = [(DOMAIN, worker.names)] + [(name, picture.mails) for name, picture in sorted(worker.own.items())]
        for domain, names in domains:
            for name, aliases in names.items():
                for local in [name] + aliases:
                    home = assigned_home("%s-%s" % (domain, local))
                    if home != "%s/%s/%s" % (MAILNAMES, domain, name):
                        listed = "=%s-%s:" % (domain, local) in assign
                        wrong.append("%s run: %s@%s -> %r (%s in assign)" % (run, local, domain, home,
                                                                            "listed" if listed else "not listed"))
    return wrong


def lock_directory_problems():
    """What is wrong with the lock directory that the panels' first commands
    made on a fresh server: it must be a directory of root's, for root
    alone, and the old shared lock directory must not have come back."""
    problems = []
    try:
        info = os.lstat(LOCK_DIRECTORY)
    except FileNotFoundError:
        return ["%s was not made" % LOCK_DIRECTORY]
    if not stat.S_ISDIR(info.st_mode) or info.st_uid != 0 or stat.S_IMODE(info.st_mode) != 0o700:
        problems.append("%s is %s, owner %d, not a directory of root's with mode 0700"
                        % (LOCK_DIRECTORY, oct(info.st_mode), info.st_uid))
    if os.path.lexists("/run/lock/files"):
        problems.append("/run/lock/files was made")
    return problems


def logins_left_out(workers):
    """The audit's findings for the logins that no command made: each panel
    hands its commands a picture of the shared domain with only its own
    mail names and domain aliases, so a mailbox of one panel gets no
    authentication row at the domain aliases of another (whichever came
    first), and the audit must say so for each such address."""
    lines = []
    for owner in workers:
        for name in sorted(owner.mailboxes):
            for local in [name] + owner.names[name]:
                for other in workers:
                    if other is owner:
                        continue
                    for alias in sorted(other.domain_aliases):
                        lines.append("error auth-row-missing %s@%s: the mailbox %s@%s has no authentication row for "
                                     "this address: logging in with it fails" % (local, alias, name, DOMAIN))
    return sorted(lines)


class AuditRuns:
    """What sorvane-audit said after each round's runs."""

    def __init__(self, server):
        self.missing = None if os.path.exists(server.audit_path) else "sorvane-audit in the build tree"
        self.runs = 0
        self.reported = 0
        self.problems = []

    def judge(self, server, where, workers):
        if self.missing:
            return
        self.runs += 1
        expected = logins_left_out(workers)
        status, findings, output = server.audit()
        self.reported += len(findings)
        if status != (1 if expected else 0) or sorted(findings) != expected:
            unexpected = sorted(set(findings) - set(expected))
            left_out = sorted(set(expected) - set(findings))
            self.problems.append("%s: status %d; findings not expected: %s; expected but not reported: %s\n  %s"
                                 % (where, status, unexpected[:10], left_out[:10], output[:3000]))


def one_round(server, round_number, audits):
    workers = plan(round_number)
    asked_before = prepare(server)
    statuses = [[] for _ in workers]
    late = []
    threads = [threading.Thread(target=run_worker, args=(server, w.commands, statuses[i], late))
               for i, w in enumerate(workers)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    concurrent_rebuilds = rebuilds(asked_before)
    concurrent = server_state()
    left = temporary_files()
    locks = lock_directory_problems()
    lookups = unanswered(workers, "concurrent")
    audits.judge(server, "round %d, after the concurrent run" % (round_number + 1), workers)
    asked_before = prepare(server)
    sequential_statuses = []
    sequential_late = []
    for worker in workers:
        run_worker(server, worker.commands, sequential_statuses, sequential_late)
    sequential_rebuilds = rebuilds(asked_before)
    sequential = server_state()
    lookups += unanswered(workers, "sequential")
    audits.judge(server, "round %d, after the sequential run" % (round_number + 1), workers)
    problems = []
    if late:
        problems.append("users/cdb did not answer when the command returned (concurrent run): %s" % late[:10])
    if sequential_late:
        problems.append("users/cdb did not answer when the command returned (sequential run): %s"
                        % sequential_late[:10])
    if sequential_rebuilds[0] is not None and sequential_rebuilds[0] != sequential_rebuilds[1]:
        problems.append("one at a time, %d commands asked for a rebuild but qmail-newu ran %d times"
                        % sequential_rebuilds)
    concurrent_statuses = [s for worker_statuses in statuses for s in worker_statuses]
    if sorted((c, s) for c, s, _ in concurrent_statuses) != sorted((c, s) for c, s, _ in sequential_statuses):
        failed = [(c, s, e) for c, s, e in concurrent_statuses if s != 0]
        problems.append("statuses differ from the sequential run; failed at once: %s" % failed[:5])
    if normalised(concurrent) != normalised(sequential):
        problems.append("state differs from the sequential run:\n" +
                        describe_difference(normalised(sequential), normalised(concurrent)))
    if left:
        problems.append("temporary files left: %s" % left)
    problems += locks
    if lookups:
        problems.append("users/cdb does not answer: %s" % lookups[:10])
    failed_sequential = [(c, s, e) for c, s, e in sequential_statuses if s != 0]
    if failed_sequential:
        problems.append("commands failed even one at a time: %s" % failed_sequential[:5])
    checked = sum(len(addresses) for w in workers for _, _, addresses in w.commands)
    return problems, concurrent_rebuilds, checked


def concurrent_panels(server, results, rounds, audits):
    need(server, *COMMANDS_USED)
    differences = 0
    for round_number in range(rounds):
        problems, (asked, runs), checked = one_round(server, round_number, audits)
        results.figure("concurrency round %d: %s commands asked for a rebuild, qmail-newu ran %d times; "
                       "%d addresses looked up as their commands returned"
                       % (round_number + 1, "?" if asked is None else asked, runs, checked))
        if problems:
            differences += 1
            raise SuiteError("round %d of %d:\n%s" % (round_number + 1, rounds, "\n".join(problems)))
    results.figure("concurrency: %d rounds x %d commands (%d processes at once) = %d commands, %d differences"
                   % (rounds, COMMANDS, WORKERS, rounds * COMMANDS, differences))
    return "%d rounds of %d commands, state equal to the sequential run" % (rounds, COMMANDS)


def audit_verdict(audits):
    if audits.problems:
        raise SuiteError("\n".join(audits.problems[:4]))
    if audits.missing:
        raise NotAvailable(audits.missing)
    if not audits.runs:
        raise NotAvailable("the rounds to have run")
    return "%d audits, each clean but for the %d logins the partial pictures leave out" % (audits.runs,
                                                                                          audits.reported)


def run(server, results, options):
    rounds = 20 if options.full else (2 if options.light else 4)
    audits = AuditRuns(server)
    results.check(GROUP, "8 panels at once agree with the sequential run", concurrent_panels, server, results,
                  rounds, audits)
    results.check(GROUP, "sorvane-audit after each round's runs: only the logins the partial pictures leave out",
                  audit_verdict, audits)
