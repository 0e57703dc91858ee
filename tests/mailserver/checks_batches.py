"""Batches: one `sorvane --batch` document of ten commands (a new domain
turned on, mail names given mailboxes with their passwords in "password",
an alias, a domain alias, a quota change, a removal in another domain) on
the real mail server.

- Kills: SIGKILL at sampled system calls of the batch process and of the
  processes it runs for its commands and its shared rebuild. Afterwards no
  control file or assign is torn, every store passes its integrity check,
  running the same batch again ends in exactly the state of an
  uninterrupted run (users/cdb included, byte for byte), and sorvane-audit
  with the panel's picture flags every killed state that differs from it.
- Faults: ENOSPC and EIO at sampled writes, renames and fsyncs that the
  batch's processes make on the files they keep, and at those of its shared
  qmail-newu on the compiled table (counted among the calls on that file
  alone, with strace's path filter): each command that failed says why in
  its output object (for the shared qmail-newu exactly what the first
  command alone says when its own qmail-newu meets the fault), no file is
  torn, and running the batch again converges.
- Concurrent panels: one or two batches beside single commands of other
  panels; nothing is lost against the sequential run, each batch's objects
  say what each command did, and the compiled table answers every name a
  batch made the moment the batch returns.
- Deliveries: after the batch (so after its one shared qmail-newu and
  reload), real messages to every mailbox and alias it made land in the
  mailbox's Maildir, and mail to the mail name it removed bounces.

strace's fault injection counts calls per traced process, each process
from zero: "inject=write:signal=KILL:when=5" kills every process of the
batch at its own fifth write. A point of the sweep is such a (call,
number) pair; where it first cuts the run is the earliest call of that
number among all the processes of an uninterrupted run, and a later process
that makes as many calls of that name is cut too. The sweep picks its
points so that their first cuts spread over the whole run, and always
takes two forks of the batch process: the first after its last command
(killed there, a batch leaves the control files and assign as they were
before it, since it edits them in memory and writes each once after its
last command) and that of its shared rebuild (killed there, it leaves
assign as after its last command and users/cdb as before it)."""
import glob
import json
import os
import re
import signal
import threading
import time

import strace_log
from checks_concurrency import AuditRuns, normalised, plan, unanswered
from checks_concurrency import prepare as prepare_round
from checks_crashes import (SETUP_MAILBOX, AuditTally, audit_repaired_state, children_gone, control_contents,
                            judge_killed_state, leftovers_read_past, malformed, prepare, restore, snapshot)
from checks_deliveries import PASSWORD, expect, expect_local, landed, need
from checks_faults import files_of, judge, only_empty_auth_domains_added
from checks_powerloss import watched
from mailserver import (CONTROL_FILES, MAILNAMES, QMAIL, STATE, STORES, WITHOUT_PICTURE, Domain, NotAvailable as NotBuilt, SuiteError,
                        describe_difference, integrity, option, quota_rows, server_state, temporary_files,
                        wait_until)

GROUP = "batches"
# Kill points in the default run and in the sanitizer build's lighter run;
# --full tries every one.
SAMPLED_POINTS = 24
LIGHT_POINTS = 6
# Fault points (each with ENOSPC and with EIO), likewise.
SAMPLED_FAULTS = 4
LIGHT_FAULTS = 1
ERRORS = ("ENOSPC", "EIO")
ROUNDS = 2
LIGHT_ROUNDS = 1
# Commands of a round (over its 8 panels), and in the lighter run.
ROUND_COMMANDS = 120
LIGHT_ROUND_COMMANDS = 40

OLD = "example.com"
NEW = "example.org"
DOMAIN_ALIAS = "example.net"
O = "--domain-name=" + OLD
N = "--domain-name=" + NEW
# (arguments, the password the command takes, or None)
BATCH = [
    (("--add-domain", N), None),
    (("--turn-on-domain", N, "--set-bounce"), None),
    (("--add-mailname", N, "--mailname=sales", "--disk-quota=100000"), None),
    (("--add-mailbox", N, "--mailname=sales"), "Sales-Secret-1"),
    (("--add-mailname", N, "--mailname=support"), None),
    (("--add-mailbox", N, "--mailname=support"), "Support-Secret-2"),
    (("--add-alias", N, "--mailname=sales", "--alias=orders"), None),
    (("--add-domain-alias", N, "--domain-alias-name=" + DOMAIN_ALIAS, "--set-bounce"), None),
    (("--set-mailbox-disk-quota", N, "--mailname=support", "--disk-quota=5000"), None),
    (("--remove-mailname", O, "--mailname=info"), None),
]
# What the batch starts from: example.com with the mailbox info.
SETUP = SETUP_MAILBOX
# The addresses the batch makes, each with the mail name that receives it.
MADE = [("sales@" + NEW, "sales"), ("support@" + NEW, "support"), ("orders@" + NEW, "sales"),
        ("sales@" + DOMAIN_ALIAS, "sales"), ("orders@" + DOMAIN_ALIAS, "sales")]
COMMANDS_USED = sorted({args[0] for args, _ in BATCH} | {args[0] for args in SETUP})
# The calls that end a process: a kill there changes nothing.
ENDINGS = ("exit_group", "exit")
FORKS = ("clone", "clone3", "fork", "vfork")


# ---- the batch document ----------------------------------------------------------

def entry(args, document, password):
    """One line of a batch document: the command as the panel runs it."""
    line = {"args": list(args)}
    if document is not None:
        line["stdin"] = document
    if password is not None:
        line["password"] = password
    return json.dumps(line)


def batch_document(pictures, commands):
    """The document of commands, each handed the panel's picture of its
    domain as it stands before it (pictures: {domain: Domain}, brought to
    the state after the batch)."""
    lines = []
    for args, password in commands:
        picture = pictures[option(args, "domain-name")]
        document = None
        if args[0] not in WITHOUT_PICTURE:
            args = tuple(args) + ("--wait-stdin",)
            document = picture.document_for(args)
        picture.apply(args)
        lines.append(entry(args, document, password))
    return "\n".join(lines) + "\n"


def objects(result):
    """The output objects of a batch run, in order (a line that is not one
    is a failure)."""
    found = []
    for line in result.stdout.splitlines():
        try:
            found.append(json.loads(line))
        except ValueError:
            raise SuiteError("the batch printed a line that is not an object: %r\nstderr: %s"
                             % (line, result.stderr[-600:]))
    return found


def run_batch(server, document, prefix=(), env=None):
    return server.sorvane("--batch", expect=None, stdin=document, prefix=prefix, env=env)


def prepared(server):
    """A fresh server in the state the batch starts from; the batch
    document and the panel's pictures after it."""
    pictures = {OLD: prepare(server, SETUP), NEW: Domain(NEW)}
    document = batch_document(pictures, BATCH)
    return document, [pictures[OLD], pictures[NEW]]


def uninterrupted(server, document):
    """Runs the batch undisturbed, which must succeed in every command."""
    result = run_batch(server, document)
    said = objects(result)
    failed = [o for o in said if o.get("status") != 0]
    if result.returncode != 0 or failed or len(said) != len(BATCH):
        raise SuiteError("the batch does not run cleanly: status %d, %d objects, failed: %s\nstderr: %s"
                         % (result.returncode, len(said), failed[:3], result.stderr[-600:]))
    return said


# ---- traces of every process of a batch ------------------------------------------

TIMED = re.compile(r"^(\d+\.\d+) (.*)$")


class Call:
    """One system call of one process: when, which process, its name, its
    number among that process's calls of that name, and the call as strace
    wrote it (for its arguments)."""

    def __init__(self, moment, pid, event, occurrence):
        self.moment, self.pid, self.event, self.occurrence = moment, pid, event, occurrence
        self.name = event.call


def traced_run(server, document, prefix_path, options=()):
    """Runs the batch under strace -ff (one file per process, so that no
    call is split across lines); the run's result and every file's pid."""
    for stale in glob.glob(prefix_path + ".*"):
        os.unlink(stale)
    result = run_batch(server, document, prefix=["strace", "-f", "-ff", "-q", "-ttt", "-o", prefix_path] +
                       list(options))
    pids = sorted(int(path.rsplit(".", 1)[1]) for path in glob.glob(prefix_path + ".*"))
    return result, pids


def calls_of(prefix_path, pid):
    """The calls of one process in order, each numbered among its calls of
    the same name (as strace's injection counts them)."""
    counts = {}
    found = []
    with open("%s.%d" % (prefix_path, pid), errors="replace") as f:
        for line in f:
            timed = TIMED.match(line.rstrip("\n"))
            if not timed:
                continue
            parsed = strace_log.LINE.match(timed.group(2))
            if not parsed:
                continue
            event = strace_log.Event(len(found), pid, parsed.group(2), strace_log.split_args(parsed.group(3)),
                                     parsed.group(4))
            counts[event.call] = counts.get(event.call, 0) + 1
            found.append(Call(float(timed.group(1)), pid, event, counts[event.call]))
    return found


def killed_pids(prefix_path, pids):
    found = []
    for pid in pids:
        with open("%s.%d" % (prefix_path, pid), errors="replace") as f:
            if "+++ killed by SIGKILL" in f.read():
                found.append(pid)
    return found


def forked(calls):
    """The pids a process's successful forks made, in order."""
    return [int(c.event.result) for c in calls if c.name in FORKS and c.event.result.isdigit()]


class Tree:
    """The processes of one traced batch run: the batch process (strace's
    own child, the one that execs sorvane with --batch), each command's
    process (the batch process's forks, in the order of the output objects)
    with its descendants, the batch's writes of the files it edited in
    memory (its next forks, which run no program) and the processes of the
    shared rebuild (the forks after them, which run qmail-newu or the
    reload)."""

    def __init__(self, prefix_path, pids, commands_run):
        self.calls = {pid: calls_of(prefix_path, pid) for pid in pids}
        # the one process that strace started with "--batch" (pids can wrap
        # over a long sweep; its execve is traced in every run a tree is
        # made of)
        started = [pid for pid in pids if any(c.name == "execve" and '"--batch"' in "".join(c.event.args[1:2])
                                              for c in self.calls[pid])]
        self.batch = started[0] if started else pids[0]
        children = forked(self.calls[self.batch])
        self.line_of = {}
        self.writes = set()
        self.write_forks = 0
        for number, child in enumerate(children):
            line = number + 1 if number < commands_run else None
            family = self.descendants(child)
            if line is None and not any(c.name == "execve" for pid in family for c in self.calls.get(pid, [])):
                self.writes.update(family)
                self.write_forks += 1
                continue
            for pid in family:
                self.line_of[pid] = line

    def descendants(self, pid):
        found = [pid]
        for child in forked(self.calls.get(pid, [])):
            found += self.descendants(child)
        return found

    def role(self, pid):
        if pid == self.batch:
            return "the batch process"
        if pid in self.writes:
            return "the batch's writes"
        line = self.line_of.get(pid)
        return "the shared rebuild" if line is None else "command %d" % line

    def everything(self):
        return sorted((c for calls in self.calls.values() for c in calls), key=lambda c: c.moment)


def first_cuts(calls):
    """Each (call, number) pair with the earliest call that it cuts at."""
    first = {}
    for call in calls:
        key = (call.name, call.occurrence)
        if key not in first:
            first[key] = call
    return first


def spread(cuts, total, count):
    """count of the cuts whose first calls spread evenly over a run of total
    calls (cuts: (position in the run, point)); each point once."""
    if count is None or len(cuts) <= count:
        return [point for _, point in cuts]
    chosen = []
    for i in range(count):
        target = (i + 0.5) * total / count
        candidates = [c for c in cuts if c[1] not in chosen]
        chosen.append(min(candidates, key=lambda c: abs(c[0] - target))[1])
    return chosen


# ---- kills -------------------------------------------------------------------------

def torn_files(before, after):
    """Control files and assign that are neither as before nor as after the
    batch and are not whole lines of their form; and the number of those
    that are between steps, whole."""
    torn, between = [], 0
    for name, content in control_contents().items():
        if content in (before[name], after[name]):
            continue
        broken = malformed(name, content)
        if broken:
            torn.append("%s is torn (%s): %r" % (name, broken, content))
        else:
            between += 1
    assign = control_contents()["users/assign"]
    if assign is None or not assign.endswith(b".\n"):
        torn.append("assign does not end with \".\": %r" % (assign[-100:] if assign else assign))
    return torn, between


def broken_stores():
    return ["%s: integrity check says %s" % (store, verdict) for store in STORES if os.path.exists(store)
            for verdict in [integrity(store)] if verdict != "ok"]


def again_and_compare(server, document, final):
    """Runs the same batch once more, undisturbed: the difference from the
    uninterrupted run's state (empty when there is none) and the state."""
    run_batch(server, document)
    again = server_state()
    return ("" if again == final else describe_difference(final, again, 6)), again


def kill_sweep(server, results, sampled, audits):
    need(server, *COMMANDS_USED)
    document, pictures = prepared(server)
    snapshot()
    before = server_state()
    before_files = control_contents()
    before_written = {path: before.get(path) for path in WRITTEN_ONCE}
    reference_path = STATE + "/batch-reference.trace"
    result, pids = traced_run(server, document, reference_path)
    if result.returncode != 0:
        raise SuiteError("the traced batch does not run cleanly: %s%s" % (result.stdout[-600:], result.stderr[-600:]))
    tree = Tree(reference_path, pids, len(objects(result)))
    after_files = control_contents()
    final = server_state()
    quotas = quota_rows()
    restore()
    if server_state() != before:
        raise SuiteError("the snapshot does not restore the state:\n" + describe_difference(before, server_state()))
    everything = [c for c in tree.everything() if c.name not in ENDINGS]
    position = {id(c): i for i, c in enumerate(everything)}
    cuts = sorted((position[id(call)], key) for key, call in first_cuts(everything).items())
    points = spread(cuts, len(everything), sampled)
    first = first_cuts(everything)
    # the state a batch leaves when it dies between its last command and
    # its shared rebuild is always among the points
    rebuild_point = before_shared_rebuild(tree, first)
    failures = []
    if rebuild_point is None:
        failures.append("no kill point reaches the batch process between its last command and its shared rebuild")
    elif rebuild_point not in points:
        points.append(rebuild_point)
    # and so is the state between its last command and its writes
    writes_point = before_writes(tree, first)
    if writes_point is None:
        failures.append("no kill point reaches the batch process between its last command and its writes")
    elif writes_point not in points:
        points.append(writes_point)
    figures = {"batch": 0, "children": 0, "only children": 0, "not killed": 0, "between": 0}
    by_role = {}
    trace = STATE + "/batch-kill.trace"
    audited_without_picture = False
    for name, occurrence in points:
        restore()
        cut = first[(name, occurrence)]
        where = "%s #%d (first cut: %s, call %d of %d)" % (name, occurrence, tree.role(cut.pid),
                                                          position[id(cut)] + 1, len(everything))
        killed, killed_pids_found = kill_run(server, document, trace, name, occurrence)
        batch_died = killed.returncode == -signal.SIGKILL
        children = len(killed_pids_found) - (1 if batch_died else 0)
        figures["batch"] += batch_died
        figures["children"] += children
        figures["only children"] += children > 0 and not batch_died
        figures["not killed"] += not killed_pids_found
        by_role[tree.role(cut.pid)] = by_role.get(tree.role(cut.pid), 0) + 1
        wait_until("the killed batch's processes to end", children_gone, 30)
        problems = []
        read_past = None if audits.missing else leftovers_read_past()
        said = None if audits.missing else audits.audit(server, pictures, quotas)
        killed_state = server_state()
        torn, between = torn_files(before_files, after_files)
        figures["between"] += between
        problems += torn + broken_stores()
        if (name, occurrence) == writes_point:
            problems += unwritten_problems(
                {path: killed_state.get(path) for path in before_written}, before_written, said)
            results.figure("batches: killed before its writes: control files and assign as before the batch; the "
                           "audit says: %s" % ("(not built)" if said is None else "; ".join(said[1][:3]) or "nothing"))
        if (name, occurrence) == rebuild_point:
            problems += unbuilt_table_problems(killed_state, final, said)
            results.figure("batches: killed before its shared rebuild: assign as after the batch, users/cdb as "
                           "before it; the audit says: %s" % ("(not built)" if said is None else
                                                              "; ".join(said[1][:3]) or "nothing"))
        difference, again = again_and_compare(server, document, final)
        if not audits.missing:
            judge_killed_state(audits, where, said, None, killed_state, again, read_past)
            if not difference:
                # without the picture once: the repaired state is the same
                # at every kill point
                audit_repaired_state(audits, server, where, pictures, quotas, audited_without_picture)
                audited_without_picture = True
        if difference:
            problems.append("running the batch again does not end in the uninterrupted run's state:\n" + difference)
        if problems:
            failures.append("%s: %s" % (where, "; ".join(problems)))
    if figures["not killed"] > max(1, len(points) // 10):
        failures.append("%d of %d runs were not killed: the kill points do not match the run"
                        % (figures["not killed"], len(points)))
    results.figure("batches: %d processes and %d system calls in the uninterrupted batch; %d kill points (first cuts "
                   "in %s; %d points in all); the batch process killed in %d runs, only its children in %d, %d children killed in "
                   "all, %d runs not killed; %d control files between steps, none torn"
                   % (len(pids), len(everything), len(points),
                      ", ".join("%s: %d" % item for item in sorted(by_role.items())), len(cuts), figures["batch"],
                      figures["only children"], figures["children"], figures["not killed"], figures["between"]))
    if not audits.missing:
        results.figure("batches: sorvane-audit flagged %d of %d killed states that differed from the repaired "
                       "one (%d differed only by leftovers it reads past), %d repaired states clean"
                       % (audits.flagged, audits.differing, audits.leftovers_only, audits.clean_checked))
    audits.ran = True
    if failures:
        headlines = [f.split(":\n", 1)[0][:300] for f in failures]
        raise SuiteError("%d kill points left a state the next run does not repair:\n  %s\nin full:\n  %s"
                         % (len(failures), "\n  ".join(headlines), "\n  ".join(failures[:4])))
    return "%d kill points, every state repaired by running the batch again" % len(points)


# The files a batch edits in memory and writes once, after its last command.
WRITTEN_ONCE = [QMAIL + "/control/" + name for name in ("rcpthosts", "virtualdomains", "locals", "rejectnonexist")] + [
    QMAIL + "/users/assign"]


def batch_fork(tree, first, number):
    """The kill point at the batch process's fork of that number (from 0),
    or None when it makes fewer or another process makes as many forks
    before it."""
    forks = [c for c in tree.calls[tree.batch] if c.name in FORKS and c.event.result.isdigit()]
    if len(forks) <= number:
        return None
    call = forks[number]
    return (call.name, call.occurrence) if first.get((call.name, call.occurrence)) is call else None


def before_shared_rebuild(tree, first):
    """The kill point at the batch process's fork of its shared rebuild (the
    fork after one per command and one per file it writes)."""
    return batch_fork(tree, first, len(BATCH) + tree.write_forks)


def before_writes(tree, first):
    """The kill point at the batch process's first fork after its last
    command: every command has run, none of the files it edited in memory
    is written."""
    return batch_fork(tree, first, len(BATCH)) if tree.write_forks else None


def unwritten_problems(killed, before, said):
    """A batch killed before its writes leaves the control files and assign
    as they were before it, and the audit flags that state."""
    problems = []
    for path in sorted(before):
        if killed.get(path) != before.get(path):
            problems.append("killed before the batch's writes, %s is not as before the batch" % path)
    if said is not None and (said[0] != 1 or not said[1]):
        problems.append("killed before the batch's writes, the audit flags nothing: %s" % said[2][:600])
    return problems


def unbuilt_table_problems(killed, final, said):
    """A batch killed before its shared rebuild has written assign as the
    uninterrupted batch does and left users/cdb from before it."""
    problems = []
    assign, table = "/var/qmail/users/assign", "/var/qmail/users/cdb"
    if killed.get(assign) != final.get(assign):
        problems.append("killed before the shared rebuild, assign is not as after the batch")
    if killed.get(table) == final.get(table):
        problems.append("killed before the shared rebuild, users/cdb is already rebuilt")
    if said is not None and (said[0] != 1 or not said[1]):
        problems.append("killed before the shared rebuild, the audit flags nothing: %s" % said[2][:600])
    return problems


def kill_run(server, document, trace, name, occurrence):
    """The batch run with SIGKILL at each process's call of that name and
    number: its result and the pids killed."""
    result, pids = traced_run(server, document, trace, ["-e", "trace=%s" % name,
                                                        "-e", "inject=%s:signal=KILL:when=%d" % (name, occurrence)])
    return result, killed_pids(trace, pids)


def audit_verdict(audits):
    if audits.missing:
        raise NotBuilt(audits.missing)
    if audits.problems:
        headlines = [p.split(":\n", 1)[0][:300] for p in audits.problems]
        raise SuiteError("%d audits went wrong:\n  %s\nin full:\n  %s" % (
            len(audits.problems), "\n  ".join(headlines), "\n  ".join(audits.problems[:6])))
    if not audits.ran:
        raise NotBuilt("the kill sweep to have run to its end")
    return "%d of %d differing killed states flagged, %d repaired states clean" % (
        audits.flagged, audits.differing, audits.clean_checked)


# ---- faults ------------------------------------------------------------------------

FAMILIES = {"write": "write", "pwrite64": "write", "writev": "write", "rename": "rename", "renameat": "rename",
            "renameat2": "rename", "fsync": "fsync", "fdatasync": "fsync"}


def kept(path):
    return bool(path) and (watched(path) or watched(path.rsplit(".", 1)[0]) or path.startswith("/var/lib/crelm/")
                           or path.startswith("/var/qmail/mailnames/") or path.startswith("/var/qmail/users/"))


def fault_points(tree):
    """Each write, rename and fsync of any of the batch's processes on a file
    it keeps (or its temporary copy, or a store), as (call, number), in the
    order of their first cuts."""
    everything = tree.everything()
    first = first_cuts(everything)
    points = []
    for call in everything:
        family = FAMILIES.get(call.name)
        if family is None or first[(call.name, call.occurrence)] is not call:
            continue
        path = strace_log.rename_paths(call.event)[1] if family == "rename" else strace_log.fd_path(call.event.args[0])
        if kept(path):
            points.append(((call.name, call.occurrence), path, tree.role(call.pid), None))
    return points


def rebuild_fault_points(tree):
    """The first write, rename and fsync of the shared rebuild on the
    compiled table's temporary file, as (call, 1, the file, the names that
    strace's path filter is to match): counted only among the calls on that
    file, they reach qmail-newu alone, whose calls of those names by number
    the commands' processes make first."""
    points = []
    families = set()
    for call in tree.everything():
        family = FAMILIES.get(call.name)
        if family is None or family in families or tree.role(call.pid) != "the shared rebuild":
            continue
        if family == "rename":
            given = strace_log.unquote(call.event.args[0 if call.name == "rename" else 1])
            # qmail-newu names its files from qmail's home, its working directory
            path = given if given.startswith("/") else os.path.join(QMAIL, given)
        else:
            path = given = strace_log.fd_path(call.event.args[0])
        if path and path.endswith("/users/cdb.tmp"):
            families.add(family)
            points.append(((call.name, 1), path, "the shared rebuild", sorted({path, given})))
    return points


def varied(points, count):
    """count of the points (all when count is None), shared out in turn among
    the kinds (the call's family, and whether a command's process, the batch
    process or the shared rebuild makes it first), each kind's share spread
    evenly over its points."""
    if count is None or len(points) <= count:
        return points
    kinds = {}
    for point in points:
        (name, _), _, role, _ = point
        kinds.setdefault((FAMILIES[name], "command" if role.startswith("command ") else role), []).append(point)
    # a command's writes, renames and fsyncs first, then the others'
    order = sorted(kinds, key=lambda kind: (kind[1] != "command", ("write", "rename", "fsync").index(kind[0]), kind))
    shares = dict.fromkeys(kinds, 0)
    while sum(shares.values()) < count:
        for kind in order:
            if shares[kind] < len(kinds[kind]) and sum(shares.values()) < count:
                shares[kind] += 1
    chosen = [kinds[kind][int((i + 0.5) * len(kinds[kind]) / share)]
              for kind, share in shares.items() for i in range(share)]
    return sorted(chosen, key=points.index)


def injected_anywhere(trace, pids):
    for pid in pids:
        with open("%s.%d" % (trace, pid), errors="replace") as f:
            if "(INJECTED)" in f.read():
                return True
    return False


def injected_lines(trace, pids, tree_of_run):
    """The command lines whose processes met the injected fault, and
    whether the batch process or the shared rebuild met it."""
    lines, others = set(), set()
    for pid in pids:
        with open("%s.%d" % (trace, pid), errors="replace") as f:
            if "(INJECTED)" not in f.read():
                continue
        role = tree_of_run.role(pid)
        if role.startswith("command "):
            lines.add(int(role.split()[1]))
        else:
            others.add(role)
    return lines, others


def fault_sweep(server, results, sampled):
    need(server, *COMMANDS_USED)
    document, _ = prepared(server)
    snapshot()
    before = server_state()
    reference_path = STATE + "/batch-fault-reference.trace"
    result, pids = traced_run(server, document, reference_path, ["-y"])
    tree = Tree(reference_path, pids, len(objects(result)))
    after = server_state()
    restore()
    rebuild_points = rebuild_fault_points(tree)
    results.figure("batches: %d fault points of the commands and %d of the shared rebuild in all"
                   % (len(fault_points(tree)), len(rebuild_points)))
    points = varied(fault_points(tree), sampled) + (rebuild_points if sampled is None or sampled > LIGHT_FAULTS
                                                     else rebuild_points[:1])
    failures = []
    figures = {"injected": 0, "torn": 0, "failed commands": 0, "passed over": 0, "shared": 0, "domain rows": 0,
               "batch stopped": 0}
    trace = STATE + "/batch-fault.trace"
    for (name, occurrence), path, role, filtered in points:
        for error in ERRORS:
            restore()
            where = "%s on %s #%d (%s, first in %s)" % (error, name, occurrence, path, role)
            inject = ["-e", "inject=%s:error=%s:when=%d" % (name, error, occurrence)]
            if filtered:
                # only the calls on the file are traced and counted
                traced = ["-e", "trace=%s" % name] + [arg for given in filtered for arg in ("-P", given)]
            else:
                traced = ["-e", "trace=%s,%s,execve" % (name, ",".join(FORKS))]
            faulted, run_pids = traced_run(server, document, trace, traced + inject)
            figures["injected"] += 1
            said = objects(faulted)
            if filtered:
                hit_lines, hit_others = set(), {role} if injected_anywhere(trace, run_pids) else set()
            else:
                hit_lines, hit_others = injected_lines(trace, run_pids, Tree(trace, run_pids, len(said)))
            if not hit_lines and not hit_others:
                failures.append("%s: the fault was not injected (the run differs from the reference)" % where)
            problems = fault_problems(faulted, said, hit_lines, hit_others, figures, error)
            found = server_state()
            torn, _, gone = judge(files_of(before), files_of(after), files_of(found))
            figures["torn"] += len(torn)
            problems += ["files torn: %s" % torn] if torn else []
            problems += broken_stores()
            left = temporary_files()
            if left and not gone:
                problems.append("temporary files left: %s" % left)
            difference, again = again_and_compare(server, document, after)
            if difference and only_empty_auth_domains_added(after, again):
                figures["domain rows"] += 1
            elif difference:
                problems.append("running the batch again does not converge:\n" + difference)
            if filtered and said:
                restore()
                problems += first_command_alone(server, document, said[0], traced + inject)
            failed = [o for o in said if o.get("status") != 0]
            results.figure("batches:   %s: met by %s; statuses %s%s" % (
                where, ", ".join(["command %d" % n for n in sorted(hit_lines)] + sorted(hit_others)) or "nothing",
                [o.get("status") for o in said],
                "; line %d says %r" % (failed[0].get("line"), failed[0].get("stderr", "")[:400]) if failed else ""))
            if problems:
                failures.append("%s: %s" % (where, "; ".join(problems)))
    results.figure("batches: %d faults injected (%s on %d writes, renames and fsyncs of the batch's processes), "
                   "%d commands ended with a message, %d faults in the shared rebuild, %d batches stopped as "
                   "documented when the batch process met the fault, %d commands met a fault and ended 0, %d files "
                   "torn, %d states repaired but for a domain row without users in the authentication store"
                   % (figures["injected"], " and ".join(ERRORS), len(points), figures["failed commands"],
                      figures["shared"], figures["batch stopped"], figures["passed over"], figures["torn"],
                      figures["domain rows"]))
    if failures:
        raise SuiteError("%d faults handled badly:\n  %s" % (len(failures), "\n  ".join(failures[:12])))
    return "%d faults injected, each reported, no file torn, every state repaired" % figures["injected"]


def first_command_alone(server, document, told, strace_options):
    """The batch's first command run alone from the same state, its own
    qmail-newu meeting the same fault: the batch's object for it must hold
    exactly what it prints and ends with (but for the process numbers of
    log lines)."""
    line = json.loads(document.splitlines()[0])
    env = {"QVT_PASSWORD": line["password"]} if "password" in line else None
    alone = server.sorvane(*line["args"], expect=None, stdin=line.get("stdin"), env=env,
                           prefix=["strace", "-f", "-qq", "-o", STATE + "/batch-alone.trace"] + strace_options)
    with open(STATE + "/batch-alone.trace", errors="replace") as f:
        if "(INJECTED)" not in f.read():
            return ["line 1 alone: its qmail-newu did not meet the fault"]
    wanted = (alone.returncode, without_pids(alone.stdout), without_pids(alone.stderr))
    got = (told.get("status"), without_pids(told.get("stdout")), without_pids(told.get("stderr")))
    if got != wanted:
        return ["line 1 says %r, alone with its own qmail-newu meeting the fault it says %r" % (got, wanted)]
    return []


# What strerror says for each injected error.
ERROR_TEXTS = {"ENOSPC": "No space left on device", "EIO": "Input/output error"}


def stopped_as_documented(faulted, said, error):
    """Whether the batch process itself met the fault while it made the next
    command's files (strace counts a call for injection among all the
    process's calls of that name, whatever path its trace is limited to):
    the batch then stops as sorvane(8) says, with status 2, the objects of
    the lines before and the line and the error on its standard error."""
    told = "Error: unable to run batch line %d: %s\n" % (len(said) + 1, ERROR_TEXTS[error])
    return faulted.returncode == 2 and len(said) < len(BATCH) and faulted.stderr.endswith(told)


def fault_problems(faulted, said, hit_lines, hit_others, figures, error):
    """What is wrong with the output of a batch that met a fault: every
    command that failed says why, a command that met the fault and ended 0
    is one whose step the command passes over, and the batch's status
    follows its objects' (or the batch stopped as documented when its own
    process met the fault)."""
    problems = []
    statuses = [o.get("status") for o in said]
    stopped = stopped_as_documented(faulted, said, error)
    figures["batch stopped"] += stopped
    if len(said) != len(BATCH) and not stopped:
        problems.append("%d objects for %d commands: %s" % (len(said), len(BATCH), faulted.stderr[-400:]))
    for number, obj in enumerate(said, 1):
        if obj.get("status") != 0:
            figures["failed commands"] += 1
            if not obj.get("stderr", "").strip():
                problems.append("command %d ended %s without a message" % (number, obj.get("status")))
    for line in hit_lines:
        # a command that met the fault and still ended 0 passed over a
        # step it reports (its state is judged by the re-run)
        if line <= len(said) and said[line - 1].get("status") == 0:
            figures["passed over"] += 1
    if "the shared rebuild" in hit_others:
        figures["shared"] += 1
        if all(s == 0 for s in statuses):
            problems.append("the shared rebuild met the fault but no command says so")
    expected_status = 2 if stopped else 0 if all(s == 0 for s in statuses) else 1
    if faulted.returncode != expected_status:
        problems.append("the batch ended %d, its objects' statuses %s" % (faulted.returncode, statuses))
    return problems


# ---- concurrent panels ----------------------------------------------------------

def batch_of(worker):
    """A panel's commands as one batch document."""
    return "\n".join(entry(args, document, PASSWORD) for args, document, _ in worker.commands) + "\n"


def run_single(server, commands, statuses):
    for command, document, _ in commands:
        result = server.sorvane(*command, expect=None, stdin=document, env={"QVT_PASSWORD": PASSWORD})
        statuses.append((command, result.returncode, result.stdout, result.stderr))


def run_as_batch(server, worker, outcome):
    result = run_batch(server, batch_of(worker))
    outcome["result"] = result
    # what the batch made must be answered the moment it returns
    outcome["unanswered"] = unanswered([worker], "as the batch returned")


def lines_lost(sequential, concurrent):
    """Lines of the control files and assign that the sequential run has and
    the concurrent one lacks."""
    lost = 0
    for name in CONTROL_FILES:
        path = "/var/qmail/" + name
        wanted = sequential.get(path)
        got = concurrent.get(path)
        if wanted and len(wanted) == 4:
            have = set(got[3].split(b"\n")) if got and len(got) == 4 else set()
            lost += sum(1 for line in wanted[3].split(b"\n") if line not in have)
    return lost


def without_pids(text):
    """A command's messages with the process number of its log lines left
    out: the only part that differs between two runs of it."""
    return re.sub(r"^sorvane\[\d+\]: ", "sorvane: ", text or "", flags=re.M)


def batch_round(server, round_number, batches, commands, audits):
    workers = plan(100 + round_number, commands)
    as_batch = workers[:batches]
    prepare_round(server)
    outcomes = [{} for _ in as_batch]
    statuses = [[] for _ in workers]
    threads = [threading.Thread(target=run_as_batch, args=(server, w, outcomes[i])) for i, w in enumerate(as_batch)]
    threads += [threading.Thread(target=run_single, args=(server, w.commands, statuses[i]))
                for i, w in enumerate(workers) if w not in as_batch]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    concurrent = server_state()
    left = temporary_files()
    problems = []
    for outcome in outcomes:
        problems += outcome["unanswered"]
    problems += unanswered(workers, "after the concurrent run")
    audits.judge(server, "round %d, with %d batches beside single commands" % (round_number + 1, batches), workers)
    prepare_round(server)
    sequential_statuses = [[] for _ in workers]
    for i, worker in enumerate(workers):
        run_single(server, worker.commands, sequential_statuses[i])
    sequential = server_state()
    for worker, outcome, alone in zip(as_batch, outcomes, sequential_statuses):
        said = objects(outcome["result"])
        if len(said) != len(worker.commands):
            problems.append("batch of panel %d: %d objects for %d commands" % (worker.number, len(said),
                                                                               len(worker.commands)))
        for number, (obj, (command, status, out, err)) in enumerate(zip(said, alone), 1):
            told = (obj.get("line"), obj.get("status"), without_pids(obj.get("stdout")),
                    without_pids(obj.get("stderr")))
            if told != (number, status, without_pids(out), without_pids(err)):
                problems.append("batch of panel %d, line %d (%s): said %r, alone it ends %d with %r %r"
                                % (worker.number, number, " ".join(command), obj, status, out, err))
    for worker, mine, alone in zip(workers, statuses, sequential_statuses):
        if worker not in as_batch and [s[:2] for s in mine] != [s[:2] for s in alone]:
            problems.append("panel %d's statuses differ from the sequential run" % worker.number)
    lost = lines_lost(sequential, concurrent)
    if normalised(concurrent) != normalised(sequential):
        problems.append("state differs from the sequential run (%d lines lost):\n%s"
                        % (lost, describe_difference(normalised(sequential), normalised(concurrent))))
    if left:
        problems.append("temporary files left: %s" % left)
    return problems, lost, sum(len(w.commands) for w in as_batch), sum(len(w.commands) for w in workers)


def concurrent_batches(server, results, rounds, commands, audits):
    need(server, "--add-domain", "--turn-on-domain", "--add-mailname", "--add-mailbox", "--remove-mailname",
         "--rename-mailname", "--rename-domain", "--add-alias", "--remove-alias", "--add-domain-alias",
         "--del-domain-alias")
    for round_number in range(rounds):
        batches = 2 if round_number % 2 or rounds == 1 else 1
        problems, lost, batched, total = batch_round(server, round_number, batches, commands, audits)
        results.figure("batches: concurrency round %d: %d batches (%d commands) beside %d single commands of "
                       "other panels, 8 panels at once; %d lines lost" % (round_number + 1, batches, batched,
                                                                          total - batched, lost))
        if problems:
            raise SuiteError("round %d:\n%s" % (round_number + 1, "\n".join(problems[:12])))
    return "%d rounds, state equal to the sequential run, each batch's objects as the commands alone" % rounds


def concurrent_audit(audits):
    if audits.problems:
        raise SuiteError("\n".join(audits.problems[:4]))
    if audits.missing:
        raise NotBuilt(audits.missing)
    if not audits.runs:
        raise NotBuilt("the rounds to have run")
    return "%d audits, each clean but for the logins the partial pictures leave out" % audits.runs


# ---- deliveries --------------------------------------------------------------------

def deliveries(server):
    need(server, *COMMANDS_USED)
    server.reset()
    pictures = {OLD: Domain(OLD), NEW: Domain(NEW)}
    for args in SETUP:
        server.panel(pictures[OLD], *args, env={"QVT_PASSWORD": PASSWORD})
    document = batch_document(pictures, BATCH)
    uninterrupted(server, document)
    for address, mailname in MADE:
        delivery = server.deliver(address)
        expect_local(delivery, "success", address)
        landed(server, NEW, mailname, delivery.sender)
    # the mail name the batch removed bounces, as its domain says
    removed = "info@" + OLD
    expect_local(server.deliver(removed), "failure", removed)
    expect(not os.path.exists("%s/%s/info" % (MAILNAMES, OLD)), "the removed mail name's tree is still there")
    return "%d messages, each in its Maildir: %s; %s bounced" % (len(MADE), ", ".join(a for a, _ in MADE), removed)


# ---- the group -------------------------------------------------------------------

def timed(results, name, function, *args):
    started = time.monotonic()
    try:
        return function(*args)
    finally:
        results.figure("batches: %s took %.0f s" % (name, time.monotonic() - started))


def run(server, results, options):
    full, light = options.full, options.light
    audits = AuditTally(server)
    results.check(GROUP, "SIGKILL at sampled system calls of the batch and its children: no torn file, the same "
                  "batch again ends in the uninterrupted run's state", timed, results, "the kill sweep", kill_sweep,
                  server, results, None if full else (LIGHT_POINTS if light else SAMPLED_POINTS), audits)
    results.check(GROUP, "sorvane-audit with the panel's picture flags each killed batch state the next run "
                  "changes, and nothing once it has run", audit_verdict, audits)
    results.check(GROUP, "ENOSPC and EIO in the batch's processes: a message in the command's object, no torn "
                  "file, the batch again converges", timed, results, "the fault points", fault_sweep, server,
                  results, None if full else (LIGHT_FAULTS if light else SAMPLED_FAULTS))
    rounds = LIGHT_ROUNDS if light else ROUNDS
    round_audits = AuditRuns(server)
    results.check(GROUP, "batches beside single commands of other panels: nothing lost, each object as the "
                  "command alone", timed, results, "the concurrent rounds", concurrent_batches, server, results,
                  rounds, LIGHT_ROUND_COMMANDS if light else ROUND_COMMANDS, round_audits)
    results.check(GROUP, "sorvane-audit after each round: only the logins the partial pictures leave out",
                  concurrent_audit, round_audits)
    results.check(GROUP, "real deliveries to every mailbox and alias a batch made", timed, results, "the deliveries",
                  deliveries, server)
