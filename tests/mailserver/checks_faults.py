"""Faults: ENOSPC and EIO injected (strace's error injection) into each
write, rename and fsync that a command makes on the files it keeps, and a
full filesystem under /var/qmail. Each time: a clear error, a non-zero
status, and no file torn: the file the fault hit holds its content from
before the command, and any other file holds that too or the complete new
content of a step that finished before the fault (steps that finished are
kept, not rolled back across files). Running the command again without the
fault then ends in exactly the state of a run that never met one."""
import os
import subprocess

import strace_log
from checks_crashes import CASES, ENV, prepare, restore, run_again, snapshot
from checks_deliveries import NotAvailable
from checks_powerloss import watched
from checks_crashes import malformed
from mailserver import CONTROL_FILES, QMAIL, STATE, STORES, SuiteError, integrity, server_state, temporary_files

AUTH_STORE = "/var/lib/crelm/mail/auth/passwd.db"

GROUP = "faults"
ERRORS = ("ENOSPC", "EIO")
CALLS = ("write", "rename", "fsync")
# The commands whose faults are swept; sampled (every k-th point) unless full.
SAMPLED_POINTS = 8


def fault_points(server, command, picture):
    """Each write, rename and fsync of the command's own process on a file it
    keeps (or on that file's temporary copy, or a store), as (call, its
    number among the calls of that name, the file)."""
    trace = STATE + "/fault-reference.trace"
    server.panel(picture.copy(), *command, env=ENV, prefix=["strace", "-qq", "-y", "-o", trace])
    counts = {}
    points = []
    for event in strace_log.events(trace):
        counts[event.call] = counts.get(event.call, 0) + 1
        family = {"write": "write", "pwrite64": "write", "writev": "write", "rename": "rename", "renameat": "rename",
                  "renameat2": "rename", "fsync": "fsync", "fdatasync": "fsync"}.get(event.call)
        if family is None:
            continue
        if family == "rename":
            path = strace_log.rename_paths(event)[1]
        else:
            path = strace_log.fd_path(event.args[0])
        if not path:
            continue
        kept = watched(path) or watched(path.rsplit(".", 1)[0]) or path.startswith("/var/lib/crelm/") \
            or path.startswith("/var/qmail/mailnames/")
        if kept:
            points.append((event.call, counts[event.call], path))
    return points


def files_of(state):
    return {k: v for k, v in state.items() if not k.endswith(" rows")}


def options_light(full):
    return full == "light"


def judge(before, after, found):
    """Files torn (not whole lines of their form), files changed at all, and
    files that are gone."""
    torn, changed, gone = [], [], []
    for path in sorted(set(before) | set(found)):
        if found.get(path) == before.get(path):
            continue
        changed.append(path)
        if path not in found:
            gone.append(path)
            continue
        entry = found[path]
        content = entry[3] if len(entry) > 3 and isinstance(entry[3], bytes) else None
        name = path[len(QMAIL) + 1:] if path.startswith(QMAIL + "/") else path
        if name in CONTROL_FILES and malformed(name, content):
            torn.append("%s (%s)" % (path, malformed(name, content)))
        elif os.path.basename(path).startswith(".qmail") and content and not content.endswith(b"\n"):
            torn.append("%s (no newline at the end)" % path)
    return torn, changed, gone


def only_empty_auth_domains_added(expected, found):
    """Whether found differs from expected only by domain rows of the
    authentication store that no user row names."""
    key = AUTH_STORE + " rows"
    if {k: v for k, v in expected.items() if k != key} != {k: v for k, v in found.items() if k != key}:
        return False
    wanted, got = list(expected.get(key, ())), list(found.get(key, ()))
    for row in wanted:
        if row not in got:
            return False
        got.remove(row)
    named = {dict(row[1:]).get("dom_id") for row in found.get(key, ()) if row[0] == "users"}
    return all(row[0] == "domains" and dict(row[1:]).get("name") not in named for row in got)


def sweep(server, results, full):
    cases = [(c, setup) for c, setup in CASES if all(server.available(x[0]) for x in [c] + setup)]
    if not cases:
        raise NotAvailable("the domain and mail name commands")
    failures = []
    injected = 0
    changed_total = 0
    torn_total = 0
    passed_over = []
    missing = []
    unrepaired = 0
    empty_domains = []
    for command, setup in cases:
        picture = prepare(server, setup)
        snapshot()
        before = server_state()
        points = fault_points(server, command, picture)
        after = server_state()
        restore()
        sampled = 2 if options_light(full) else SAMPLED_POINTS
        if full is not True and len(points) > sampled:
            step = len(points) / sampled
            points = [points[int(i * step)] for i in range(sampled)]
        for call, occurrence, path in points:
            for error in ERRORS:
                restore()
                trace = STATE + "/fault.trace"
                strace = ["strace", "-qq", "-o", trace, "-e",
                          "inject=%s:error=%s:when=%d" % (call, error, occurrence)]
                result = server.panel(picture.copy(), *command, env=ENV, prefix=strace, expect=None)
                injected += 1
                with open(trace, errors="replace") as f:
                    if "(INJECTED)" not in f.read():
                        failures.append("%s %s #%d: the fault was not injected (the run differs from the "
                                        "reference)" % (command[0], call, occurrence))
                found = server_state()
                torn, changed, gone = judge(files_of(before), files_of(after), files_of(found))
                changed_total += len([c for c in changed if not c.endswith("/users/cdb")])
                torn_total += len(torn)
                where = "%s: %s on %s #%d (%s)" % (command[0], error, call, occurrence, path)
                if result.returncode == 0 and found != after:
                    # a step whose failure the command reports and passes over
                    passed_over.append(where)
                elif result.returncode != 0 and not result.stderr.strip():
                    failures.append("%s: status %d without a message" % (where, result.returncode))
                if torn:
                    failures.append("%s: files torn: %s" % (where, torn))
                if gone:
                    missing.append("%s: %s" % (where, gone))
                for store in STORES:
                    if os.path.exists(store) and integrity(store) != "ok":
                        failures.append("%s: store %s corrupt" % (where, store))
                left = temporary_files()
                if left and not gone:
                    failures.append("%s: temporary files left: %s" % (where, left))
                _, difference, again = run_again(server, picture, command, after)
                if difference and only_empty_auth_domains_added(after, again):
                    empty_domains.append(where)
                elif difference:
                    unrepaired += 1
                    failures.append("%s: running it again does not repair it:\n%s" % (where, difference))
    results.figure("faults: %d injected (ENOSPC and EIO on write, rename and fsync), %d files torn, "
                   "%d files changed by failed commands (whole lines: results of the steps that did not fail), "
                   "%d faults passed over with status 0 (steps the command reports and goes on from), "
                   "%d faults after which files are gone (removed or renamed by steps that finished before the "
                   "fault), %d states not repaired by running the command again, %d states repaired but for a "
                   "domain row without users in the authentication store (made by the undo of a half-made mail "
                   "name: removing a user enters its domain, the store's rule)"
                   % (injected, torn_total, changed_total, len(passed_over), len(missing), unrepaired,
                      len(empty_domains)))
    for text in passed_over:
        results.figure("faults:   passed over: " + text)
    for text in missing:
        results.figure("faults:   gone: " + text[:300] + ("..." if len(text) > 300 else ""))
    for text in empty_domains:
        results.figure("faults:   empty domain row: " + text)
    if failures:
        raise SuiteError("%d faults handled badly:\n  %s" % (len(failures), "\n  ".join(failures[:25])))
    return "%d faults injected, no file torn" % injected


def fill(path):
    """Fills the filesystem at path to the last byte."""
    filler = os.path.join(path, ".filler")
    try:
        f = open(filler, "wb", buffering=0)
    except OSError:
        return None  # full already
    with f:
        try:
            while True:
                f.write(b"f" * 65536)
        except OSError:
            pass
        try:
            while True:
                f.write(b"f")
        except OSError:
            pass
    return filler


def full_filesystem(server):
    cases = [(("--turn-on-domain", "--domain-name=example.com", "--set-bounce"), [("--add-domain",
                                                                                  "--domain-name=example.com")]),
             (("--add-mailname", "--domain-name=example.com", "--mailname=info"),
              [("--add-domain", "--domain-name=example.com"),
               ("--turn-on-domain", "--domain-name=example.com", "--set-bounce")])]
    cases = [(c, s) for c, s in cases if all(server.available(x[0]) for x in [c] + s)]
    if not cases:
        raise NotAvailable("the domain and mail name commands")
    done = []
    changes = []
    for command, setup in cases:
        picture = prepare(server, setup)
        # a limit just above what is used, then filled to the last byte
        usage = os.statvfs(QMAIL)
        used_kb = (usage.f_blocks - usage.f_bfree) * usage.f_frsize // 1024
        subprocess.run(["mount", "-o", "remount,size=%dk" % (used_kb + 256), QMAIL], check=True)
        filler = fill(QMAIL)
        before = server_state()
        result = server.panel(picture.copy(), *command, env=ENV, expect=None)
        found = server_state()
        if filler:
            os.unlink(filler)
        problems = []
        if result.returncode == 0:
            problems.append("status 0 on a full filesystem")
        if not result.stderr.strip():
            problems.append("no message")
        # qmail-newu's own users/cdb.tmp is qmail's, not the command's
        torn, changed, gone = judge(files_of(before), files_of(before), {
            k: v for k, v in files_of(found).items() if not k.endswith("/users/cdb.tmp")})
        if torn:
            problems.append("files torn: %s" % torn)
        if changed:
            changes.append("%s: whole-line changes that fitted: %s" % (command[0], changed))
        left = [t for t in temporary_files() if not t.endswith("/users/cdb.tmp")]
        if left:
            problems.append("temporary files left: %s" % left)
        if problems:
            raise SuiteError("%s on a full /var/qmail: %s\nstderr: %s" % (command[0], "; ".join(problems),
                                                                          result.stderr[-600:]))
        done.append(command[0])
    return "refused with a message, no file torn: %s%s" % (", ".join(done), "".join("; " + c for c in changes))


def run(server, results, options):
    results.check(GROUP, "ENOSPC and EIO on write, rename and fsync: an error and no torn file", sweep, server,
                  results, True if options.full else ("light" if options.light else False))
    results.check(GROUP, "a full /var/qmail: an error and the files as they were", full_filesystem, server)
