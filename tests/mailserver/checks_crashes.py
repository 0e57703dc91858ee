"""Crashes: each command is killed with SIGKILL at its own system calls,
stepped across the whole run. After every kill each control file and assign
holds its old or its new content (or a state the next run repairs), assign
still ends with ".", every store passes its integrity check, and running
the same command again ends in exactly the state of an uninterrupted run.
sorvane-audit, given the panel's picture after the command, reports every
killed state that differs from the state after the second run (unless only
by leftovers no reader sees: a journal whose header was never written, a
half-made maildirsize in a Maildir's tmp folder, a replacement's temporary
file), and nothing once the
second run has ended (without the picture too)."""
import os
import re
import shutil
import signal
import subprocess
import time

import strace_log
from checks_deliveries import PASSWORD, NotAvailable
from mailserver import (CONTROL_FILES, MUTABLE_TREES, QMAIL, STATE, STORES, Domain, NotAvailable as NotBuilt,
                        SuiteError, describe_difference, integrity, quota_rows, read, server_state, wait_until)

GROUP = "crashes"
SNAPSHOT = STATE + "/crash-snapshot"
# Points tried per command in the sampled sweep (CI); the full sweep tries
# every system call.
SAMPLED_POINTS = 48
# Points per command in the sanitizer build's lighter run.
LIGHT_POINTS = 8
# The audit without the panel's picture judges every so many killed states
# of the sampled sweeps (a figure only, and a third of the sweep's audits
# when asked at every point).
WITHOUT_PICTURE_EVERY = 4

D = "--domain-name=example.com"
SETUP_DOMAIN = [("--add-domain", D), ("--turn-on-domain", D, "--set-bounce")]
SETUP_MAILNAME = SETUP_DOMAIN + [("--add-mailname", D, "--mailname=info", "--disk-quota=100000")]
SETUP_MAILBOX = SETUP_MAILNAME + [("--add-mailbox", D, "--mailname=info")]
SETUP_FULL = SETUP_MAILBOX + [("--add-alias", D, "--mailname=info", "--alias=sales"),
                              ("--add-domain-alias", D, "--domain-alias-name=example.net", "--set-bounce")]

# (command, the state it starts from)
CASES = [
    (("--add-domain", D), []),
    (("--turn-on-domain", D, "--set-bounce"), [("--add-domain", D)]),
    (("--add-mailname", D, "--mailname=info", "--disk-quota=100000"), SETUP_DOMAIN),
    (("--add-mailbox", D, "--mailname=info"), SETUP_MAILNAME),
    (("--add-alias", D, "--mailname=info", "--alias=sales"), SETUP_MAILBOX),
    (("--add-domain-alias", D, "--domain-alias-name=example.net", "--set-bounce"), SETUP_MAILBOX),
    (("--set-mailbox-disk-quota", D, "--mailname=info", "--disk-quota=5000"), SETUP_MAILBOX),
    (("--set-password", D, "--mailname=info"), SETUP_FULL),
    (("--get-mailbox-size", D, "--mailname=info"), SETUP_FULL),
    (("--set-domain-disk-quota", D, "--disk-quota=200000"), SETUP_FULL),
    (("--rename-domain-alias", D, "--old-domain-alias-name=example.net", "--new-domain-alias-name=example.org",
      "--set-reject"), SETUP_FULL),
    (("--rename-mailname", D, "--old-mailname=info", "--new-mailname=contact"), SETUP_FULL),
    (("--rename-domain", "--old-domain-name=example.com", "--new-domain-name=example.org"), SETUP_FULL),
    (("--remove-alias", D, "--mailname=info", "--alias=sales"), SETUP_FULL),
    (("--del-domain-alias", D, "--domain-alias-name=example.net"), SETUP_FULL),
    (("--remove-mailbox", D, "--mailname=info"), SETUP_FULL),
    (("--remove-mailname", D, "--mailname=info"), SETUP_FULL),
    (("--turn-off-domain", D), SETUP_FULL),
    # a panel takes a domain's aliases away before the domain itself:
    # --remove-domain leaves them (and their logins) in place
    (("--remove-domain", D), SETUP_MAILBOX + [("--add-alias", D, "--mailname=info", "--alias=sales")]),
]

ENV = {"QVT_PASSWORD": PASSWORD}


def snapshot():
    shutil.rmtree(SNAPSHOT, ignore_errors=True)
    os.makedirs(SNAPSHOT)
    for number, tree in enumerate(MUTABLE_TREES):
        if os.path.exists(tree):
            subprocess.run(["cp", "-a", tree, "%s/%d" % (SNAPSHOT, number)], check=True)


def restore():
    for number, tree in enumerate(MUTABLE_TREES):
        saved = "%s/%d" % (SNAPSHOT, number)
        if os.path.ismount(tree):
            for entry in os.listdir(tree):
                path = os.path.join(tree, entry)
                if os.path.isdir(path) and not os.path.islink(path):
                    shutil.rmtree(path)
                else:
                    os.unlink(path)
        else:
            shutil.rmtree(tree, ignore_errors=True)
        if os.path.exists(saved):
            subprocess.run(["cp", "-a", saved + "/.", tree + "/"] if os.path.isdir(tree) else
                           ["cp", "-a", saved, tree], check=True)


def children_gone():
    """No program that a killed run started (sed, qmail-newu, killall, the
    service helper) is still at work."""
    for pid in os.listdir("/proc"):
        if not pid.isdigit():
            continue
        try:
            with open("/proc/%s/cmdline" % pid, "rb") as f:
                argv = f.read().split(b"\0")
            with open("/proc/%s/stat" % pid) as f:
                zombie = f.read().rsplit(")", 1)[1].split()[0] == "Z"
        except OSError:
            continue
        if zombie:
            continue
        name = os.path.basename(argv[0].decode(errors="replace"))
        if name in ("sed", "qmail-newu", "killall", "crelmrc", "sorvane") or b"crelmrc" in b" ".join(argv):
            return False
    return True


def control_contents():
    found = {}
    for name in CONTROL_FILES:
        path = QMAIL + "/" + name
        found[name] = read(path) if os.path.exists(path) else None
    return found


def prepare(server, setup):
    """A fresh server brought to the state the command starts from; the
    panel's picture of the domain at that point."""
    server.reset(start=False)
    picture = Domain("example.com")
    for step in setup:
        server.panel(picture, *step, env=ENV)
    return picture


LINE_FORMS = {
    "users/assign": re.compile(r"^[=+][^:\n]+:[^:\n]*:\d+:\d+:[^:\n]*:[^:\n]*:[^:\n]*:$"),
    "control/virtualdomains": re.compile(r"^[a-z0-9.-]+:[a-z0-9.-]+$"),
}
DOMAIN_LINE = re.compile(r"^[a-z0-9.-]+$")


def malformed(file_name, content):
    """Why a control file or assign is not whole lines of its own form, or
    None."""
    if content is None or content == b"":
        return None
    text = content.decode(errors="replace")
    if not text.endswith("\n"):
        return "no newline at the end"
    lines = text[:-1].split("\n")
    if file_name == "users/assign":
        if lines[-1] != ".":
            return "no \".\" at the end"
        lines = lines[:-1]
    form = LINE_FORMS.get(file_name, DOMAIN_LINE)
    for line in lines:
        if not form.match(line):
            return "line %r" % line
    return None


def reference_syscalls(server, command, picture):
    """The system calls of an uninterrupted run (sorvane's own process),
    each as (name, its number among the calls of that name)."""
    trace = STATE + "/crash-reference.trace"
    server.panel(picture.copy(), *command, env=ENV, prefix=["strace", "-qq", "-o", trace])
    counts = {}
    calls = []
    for event in strace_log.events(trace):
        if event.call in ("exit_group", "exit"):
            continue
        counts[event.call] = counts.get(event.call, 0) + 1
        calls.append((event.call, counts[event.call]))
    return calls


class AuditTally:
    """What sorvane-audit said across the sweep: how many killed states
    differed from the state after the second run and how many of those it
    flagged, how many clean states it judged, and what it got wrong. missing
    names why the audit could not run (its binary not built)."""

    def __init__(self, server):
        self.missing = None
        self.ran = False
        self.differing = 0
        self.flagged = 0
        # differing killed states that the audit flags without the picture,
        # of those it was asked about (a figure only: some differences only
        # the picture shows)
        self.flagged_without = 0
        self.asked_without = 0
        # killed states that differ only by leftovers the audit reads past
        self.leftovers_only = 0
        self.clean_checked = 0
        self.runs = 0
        self.seconds = 0.0
        self.problems = []
        if not os.path.exists(server.audit_path):
            self.missing = "sorvane-audit in the build tree"

    def audit(self, server, pictures=None, quotas=None):
        started = time.monotonic()
        try:
            return server.audit(pictures, quotas)
        finally:
            self.runs += 1
            self.seconds += time.monotonic() - started


def leftovers_read_past():
    """What a kill can leave that changes nothing a reader sees, and that
    the audit therefore reads past: a store's rollback journal whose header
    was never written (SQLite ignores it and the next writer replaces it)
    and a writer's half-made maildirsize in a Maildir's tmp folder (the
    delivery agents' scratch space, which the next writer clears). A
    replacement's temporary file beside the file it was to replace
    ("<name>.tmp.XXXXXX") is not among them: the audit reports it."""
    found = set()
    for store in STORES:
        journal = store + "-journal"
        try:
            with open(journal, "rb") as f:
                first = f.read(1)
        except FileNotFoundError:
            continue
        if first in (b"", b"\0"):
            found.add(journal)
    for tree in MUTABLE_TREES:
        for directory, _, files in os.walk(tree):
            for name in files:
                if directory.endswith("/Maildir/tmp") and name.endswith("-maildirsize"):
                    found.add(os.path.join(directory, name))
    return found


def judge_killed_state(tally, where, said, said_without, killed, again, read_past):
    """A killed state that differs from the one the second run ends in must
    have been flagged by the audit with the panel's picture after the
    command (said: what it said on the killed state): status 1 and at
    least one finding."""
    status, findings, output = said
    if status not in (0, 1):
        tally.problems.append("%s: the audit of the killed state could not run: %s" % (where, output))
        return
    if killed == again:
        return
    if {key for key in set(killed) | set(again) if killed.get(key) != again.get(key)} <= read_past:
        tally.leftovers_only += 1
        return
    tally.differing += 1
    if said_without is not None:
        tally.asked_without += 1
        tally.flagged_without += 1 if said_without[0] == 1 and said_without[1] else 0
    if status == 1 and findings:
        tally.flagged += 1
        return
    tally.problems.append("%s: the killed state differs from the repaired one but the audit with the picture "
                          "flags nothing:\n%s\n  audit: %s" % (where, describe_difference(again, killed, 6), output))


def audit_repaired_state(tally, server, where, expected, quotas, with_picture_only):
    """The audit of the state the second run ended in: nothing with the
    picture (expected: one domain's, or a list of them), and (unless
    with_picture_only) nothing without it."""
    if tally.missing:
        return
    pictures = expected if isinstance(expected, list) else [expected]
    runs = [("with the picture", pictures)] + ([] if with_picture_only else [("without a picture", None)])
    for how, pictures in runs:
        status, findings, output = tally.audit(server, pictures, quotas)
        tally.clean_checked += 1
        if status != 0 or findings:
            tally.problems.append("%s: after the second run the audit %s is not clean: %s:\n  %s"
                                  % (where, how, "; ".join(findings), output))


def sweep_command(server, command, setup, full, tally, audits):
    picture = prepare(server, setup)
    snapshot()
    before = server_state()
    before_files = control_contents()
    calls = reference_syscalls(server, command, picture)
    after_files = control_contents()
    final = server_state()
    # What the panel holds once the command has succeeded; the quotas are
    # those an uninterrupted run stored.
    expected = picture.copy()
    expected.apply(command)
    quotas = quota_rows()
    restore()
    # the state must come back exactly, or the comparisons below mean nothing
    if server_state() != before:
        raise SuiteError("the snapshot does not restore the state:\n" + describe_difference(before, server_state()))
    points = list(range(len(calls)))
    sampled = LIGHT_POINTS if full == "light" else SAMPLED_POINTS
    if full is not True and len(points) > sampled:
        step = len(points) / sampled
        points = sorted({int(i * step) + int(step / 2) for i in range(sampled)})
    unrepaired = []
    not_killed = []
    children_killed = 0
    only_children = 0
    torn = 0
    intermediate = 0
    leftovers = 0
    audits_without_picture_done = False
    for number, index in enumerate(points):
        restore()
        name, occurrence = calls[index]
        # -f: the programs that sorvane runs (sed, qmail-newu, killall, the
        # service helper) die at their own call of that number too, if they
        # make that many; only the named call is traced, which injection needs.
        trace = STATE + "/crash.trace"
        strace = ["strace", "-f", "-q", "-o", trace, "-e", "trace=%s" % name,
                  "-e", "inject=%s:signal=KILL:when=%d" % (name, occurrence)]
        killed = server.panel(picture.copy(), *command, env=ENV, prefix=strace, expect=None)
        with open(trace, errors="replace") as f:
            kills = f.read().count("+++ killed by SIGKILL +++")
        # strace ends with the signal that ended the program it traced
        if killed.returncode == -signal.SIGKILL:
            children_killed += kills - 1
        elif kills:
            children_killed += kills
            only_children += 1
        else:
            not_killed.append("%s #%d (status %d)" % (name, occurrence, killed.returncode))
        wait_until("the killed run's children to end", children_gone, 30)
        problems = []
        # the audit judges the killed state first: reading the stores'
        # rows below rolls a hot journal back, and the second run changes
        # the rest; whether it had to flag the state is known once that run
        # has ended
        read_past = None if audits.missing else leftovers_read_past()
        said = None if audits.missing else audits.audit(server, [expected], quotas)
        # without the picture too, for the figure only, at every few
        # points; the full sweep, hours long already, leaves that out
        asked_without = full is not True and number % WITHOUT_PICTURE_EVERY == 0
        said_without = audits.audit(server) if asked_without and not audits.missing else None
        killed_state = None if audits.missing else server_state()
        files = control_contents()
        for file_name, content in files.items():
            if content in (before_files[file_name], after_files[file_name]):
                continue
            # between two steps of the command: whole lines, each well formed
            broken = malformed(file_name, content)
            if broken:
                torn += 1
                problems.append("%s is torn (%s): %r" % (file_name, broken, content))
            else:
                intermediate += 1
        assign = files["users/assign"]
        if assign is None or not assign.endswith(b".\n"):
            problems.append("assign does not end with \".\": %r" % (assign[-100:] if assign else assign))
        for store in STORES:
            if os.path.exists(store):
                verdict = integrity(store)
                if verdict != "ok":
                    problems.append("%s: integrity check says %s" % (store, verdict))
        stray, difference, again = run_again(server, picture, command, final)
        leftovers += stray
        if not audits.missing:
            where = "%s, kill at system call %d (%s #%d)" % (command[0], index + 1, name, occurrence)
            judge_killed_state(audits, where, said, said_without, killed_state, again, read_past)
            if not difference:
                # without the picture once per command: the repaired state
                # is the same at every kill point
                audit_repaired_state(audits, server, where, expected, quotas, audits_without_picture_done)
                audits_without_picture_done = True
        if difference:
            problems.append("running it again does not repair it:\n" + difference)
        if problems:
            unrepaired.append("kill at system call %d (%s #%d): %s" % (index + 1, name, occurrence,
                                                                       "; ".join(problems)))
    # A call that the reference run made may not come in another run (a poll
    # of standard input that the document has already reached, say): that
    # run ends uninterrupted and is judged like the others. More than a few
    # of those would mean the sweep misses the run it is meant to cut; one
    # is allowed however few points a light sweep takes.
    if len(not_killed) > max(1, len(points) // 10):
        unrepaired.append("%d of %d runs were not killed: the kill points do not match the run: %s" % (
            len(not_killed), len(points), ", ".join(not_killed)))
    tally.append((command[0], len(calls), len(points) - len(not_killed) - only_children, children_killed, torn,
                  intermediate, len(unrepaired), leftovers))
    return unrepaired


def run_again(server, picture, command, final):
    """Runs the command once more, undisturbed, and compares the state with
    that of an uninterrupted run: the number of stray maildirsize
    temporaries, the difference (empty when there is none) and the state."""
    server.panel(picture.copy(), *command, env=ENV, expect=None)
    again = server_state()
    # A half-written maildirsize in the Maildir's own tmp folder, named by
    # time and process, is what a kill in its writer leaves; the next writer
    # removes it, so one still there is a difference like any other.
    stray = [k for k in again if k not in final and "/Maildir/tmp/" in k and k.endswith("-maildirsize")]
    return len(stray), ("" if again == final else describe_difference(final, again, 6)), again


def crash_sweep(server, results, full, audits):
    cases = [(c, setup) for c, setup in CASES if all(server.available(x[0]) for x in [c] + setup)]
    if not cases:
        raise NotAvailable("the domain and mail name commands")
    for command, _ in CASES:
        if (command, _) not in cases:
            results.skipped(GROUP, "kill points of %s" % command[0], "the command is not available in this build")
    tally = []
    failures = []
    started = time.monotonic()
    for command, setup in cases:
        # each command's figures as soon as its sweep ends: the full sweep runs for hours
        failures += ["%s: %s" % (command[0], f) for f in sweep_command(server, command, setup, full, tally, audits)]
        name, calls, tried, children, torn, intermediate, unrepaired, leftovers = tally[-1]
        results.figure("crashes: %-26s %5d system calls, %4d runs killed, %3d children killed, %2d torn files, "
                       "%3d files between steps, %2d states not repaired, %2d maildirsize temporaries left after "
                       "the second run" % (name, calls, tried, children, torn, intermediate, unrepaired, leftovers))
    results.figure("crashes: %d runs killed in %.0f s" % (sum(t[2] for t in tally), time.monotonic() - started))
    audits.ran = True
    if not audits.missing:
        results.figure("crashes: sorvane-audit ran %d times in %.1f s: flagged %d of %d killed states that differed "
                       "from the repaired state with the picture (without it: %d of the %d asked), %d differed only "
                       "by leftovers it reads past, judged %d repaired states" % (
                           audits.runs, audits.seconds, audits.flagged, audits.differing, audits.flagged_without,
                           audits.asked_without, audits.leftovers_only, audits.clean_checked))
    if failures:
        # every kill point in one line, the first ones in full
        headlines = [f.split(":\n", 1)[0][:300] for f in failures]
        raise SuiteError("%d kill points left a state the next run does not repair:\n  %s\nin full:\n  %s"
                         % (len(failures), "\n  ".join(headlines), "\n  ".join(failures[:4])))
    return "%d commands, %d runs killed, every state repaired" % (len(tally), sum(t[2] for t in tally))


def audit_verdict(audits):
    """The audit's outcome over the sweep: every differing killed state
    flagged, every repaired state clean."""
    if audits.missing:
        raise NotBuilt(audits.missing)
    if audits.problems:
        # every problem in one line, the first ones in full
        headlines = [p.split(":\n", 1)[0][:300] for p in audits.problems]
        raise SuiteError("%d audits went wrong:\n  %s\nin full:\n  %s" % (
            len(audits.problems), "\n  ".join(headlines), "\n  ".join(audits.problems[:8])))
    if not audits.ran:
        raise NotBuilt("the crash sweep to have run to its end")
    return "%d of %d differing killed states flagged (%d more differed only by leftovers it reads past), %d " \
        "repaired states clean" % (audits.flagged, audits.differing, audits.leftovers_only, audits.clean_checked)


def run(server, results, options):
    audits = AuditTally(server)
    results.check(GROUP, "SIGKILL at each system call: old or new state, repaired by the next run",
                  crash_sweep, server, results, True if options.full else ("light" if options.light else False),
                  audits)
    results.check(GROUP, "sorvane-audit with the panel's picture flags each killed state the next run changes, "
                  "and finds nothing once it has run", audit_verdict, audits)
