"""One line of bench/batch_bench.sh: N mail names with their mailboxes on an
assign of R records, as one sorvane --batch, as the bulk floor and as single
commands (sampled), each from the same saved files. Runs inside the bench's
private namespace, which has made the server."""
import json
import os
import resource
import shlex
import shutil
import sqlite3
import subprocess
import sys
import time

sorvane, records, count, suite = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), sys.argv[4]
sys.path.insert(0, suite)
from mailserver import cdb_lookup  # noqa: E402  (the mail-server suite's reader of qmail's compiled table)

DOMAIN = "bench.test"
QMAIL = "/var/qmail"
ASSIGN = QMAIL + "/users/assign"
HOME = QMAIL + "/mailnames/" + DOMAIN
STORES = {"userdb": "/var/lib/crelm/mail/userdb/userdb.db", "handlers": "/var/lib/crelm/mail/handlers/handlers.db",
          "passwd": "/var/lib/crelm/mail/auth/passwd.db"}
DOCUMENT = json.dumps({"domain": {"name": DOMAIN, "mails": []}})
SINGLE_SAMPLE = 20
POPUSER = 2110


def names(n):
    return ["user%06d" % i for i in range(n)]


def run(argv, **kwargs):
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **kwargs)
    if done.returncode != 0:
        sys.exit("%s failed (%d): %s%s" % (" ".join(argv[:2]), done.returncode, done.stdout[-2000:],
                                          done.stderr[-2000:]))
    return done


def fresh():
    """The saved server, then the domain made and turned on (not timed)."""
    shutil.copyfile(QMAIL + "/saved/assign", ASSIGN)
    for name in ("rcpthosts", "virtualdomains", "locals"):
        shutil.copyfile(QMAIL + "/saved/" + name, QMAIL + "/control/" + name)
    for path in (ASSIGN, QMAIL + "/control/rcpthosts", QMAIL + "/control/virtualdomains", QMAIL + "/control/locals"):
        os.chmod(path, 0o644)
    for path in ("/var/qmail/control/rejectnonexist",):
        if os.path.exists(path):
            os.unlink(path)
    shutil.rmtree(HOME, ignore_errors=True)
    for name, path in STORES.items():
        for suffix in ("", "-journal", "-wal", "-shm"):
            if os.path.exists(path + suffix):
                os.unlink(path + suffix)
        shutil.copyfile("/var/lib/crelm/mail/saved-%s.db" % name, path)
    os.chown(STORES["userdb"], POPUSER, POPUSER)
    os.chown(STORES["handlers"], 0, POPUSER)
    os.chmod(STORES["handlers"], 0o640)
    os.chown(STORES["passwd"], 0, 2111)
    os.chmod(STORES["passwd"], 0o640)
    run([sorvane, "--add-domain", "--domain-name=" + DOMAIN])
    run([sorvane, "--turn-on-domain", "--domain-name=" + DOMAIN, "--set-reject", "--wait-stdin"],
        input=DOCUMENT.encode())


def measured(body):
    """Wall seconds, CPU seconds of this process and its children, and
    body's result."""
    self_before = resource.getrusage(resource.RUSAGE_SELF)
    children_before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    result = body()
    wall = time.perf_counter() - start
    self_after = resource.getrusage(resource.RUSAGE_SELF)
    children_after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = sum(getattr(after, field) - getattr(before, field)
              for before, after in ((self_before, self_after), (children_before, children_after))
              for field in ("ru_utime", "ru_stime"))
    return wall, cpu, result


def batch_document(n):
    lines = []
    for name in names(n):
        lines.append(json.dumps({"args": ["--add-mailname", "--domain-name=" + DOMAIN, "--mailname=" + name],
                                 "stdin": DOCUMENT}))
        lines.append(json.dumps({"args": ["--add-mailbox", "--domain-name=" + DOMAIN, "--mailname=" + name],
                                 "password": "pw-" + name, "stdin": DOCUMENT}))
    return ("\n".join(lines) + "\n").encode()


def run_batch(document):
    """The batch's output and its largest resident set in kB (through
    /usr/bin/time, whose own cost is one fork and one wait)."""
    argv = [sorvane, "--batch"]
    # A profiler's command line around the batch, e.g. "perf record -g -o F --"
    # (its cost then counts in the batch's figures).
    argv = shlex.split(os.environ.get("BATCH_BENCH_WRAP", "")) + argv
    process = subprocess.Popen(["/usr/bin/time", "-f", "%M"] + argv, stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out, err = process.communicate(document)
    if process.returncode != 0:
        sys.exit("sorvane --batch ended %d: %s %s" % (process.returncode, err[-2000:], out[-2000:]))
    return out, int(err.decode().strip().splitlines()[-1])


def check_compiled(n):
    with open(QMAIL + "/users/cdb", "rb") as f:
        compiled = f.read()
    for name in names(n):
        value = cdb_lookup(compiled, ("!%s-%s\0" % (DOMAIN, name)).encode())
        if value is None or value.split(b"\0")[3] != ("%s/%s" % (HOME, name)).encode():
            sys.exit("%s@%s is not in the compiled table" % (name, DOMAIN))


def floor(n):
    """The end result made the cheapest way."""
    with open(ASSIGN, "rb") as f:
        old = f.read()
    added = "".join("=%s-%s:popuser:%d:%d:%s/%s:::\n" % (DOMAIN, name, POPUSER, POPUSER, HOME, name)
                    for name in reversed(names(n))).encode()
    temporary = ASSIGN + ".floor"
    with open(temporary, "wb") as f:
        f.write(added + old)
        f.flush()
        os.fsync(f.fileno())
    os.rename(temporary, ASSIGN)
    directory = os.open(QMAIL + "/users", os.O_RDONLY)
    os.fsync(directory)
    os.close(directory)
    subprocess.run([QMAIL + "/bin/qmail-newu"], check=True)
    with open(QMAIL + "/mailnames/.default_delivery", "rb") as f:
        delivery = f.read()
    for name in names(n):
        home = HOME + "/" + name
        for path in (home, home + "/Maildir", home + "/Maildir/cur", home + "/Maildir/new", home + "/Maildir/tmp"):
            os.mkdir(path, 0o700)
            os.chown(path, POPUSER, POPUSER)
        descriptor = os.open(home + "/.qmail", os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
        os.write(descriptor, delivery)
        os.fchown(descriptor, POPUSER, POPUSER)
        os.close(descriptor)
    with sqlite3.connect(STORES["userdb"]) as db:
        db.executemany("INSERT INTO mailbox_quota VALUES (?, ?, '-1')", ((DOMAIN, name) for name in names(n)))
    with sqlite3.connect(STORES["passwd"]) as db:
        db.execute("INSERT OR IGNORE INTO domains (name, status) VALUES (?, 0)", (DOMAIN,))
        (domain_id,) = db.execute("SELECT id FROM domains WHERE name = ?", (DOMAIN,)).fetchone()
        db.executemany("INSERT INTO users (name, cmusaslsecretPLAIN, status, dom_id) VALUES (?, ?, 0, ?)",
                       ((name, "c2VjcmV0c2VjcmV0c2VjcmV0", domain_id) for name in names(n)))


def singles(n):
    sample = names(min(n, SINGLE_SAMPLE))
    for name in sample:
        run([sorvane, "--add-mailname", "--domain-name=" + DOMAIN, "--mailname=" + name, "--wait-stdin"],
            input=DOCUMENT.encode())
        run([sorvane, "--add-mailbox", "--domain-name=" + DOMAIN, "--mailname=" + name, "--wait-stdin"],
            input=DOCUMENT.encode(), env=dict(os.environ, QVT_PASSWORD="pw-" + name))
    return len(sample)


document = batch_document(count)
fresh()
batch_wall, batch_cpu, (output, rss) = measured(lambda: run_batch(document))
objects = [json.loads(line) for line in output.decode().splitlines()]
failed = [o for o in objects if o["status"] != 0]
if len(objects) != 2 * count or failed:
    sys.exit("the batch printed %d objects, %d failed: %s" % (len(objects), len(failed), failed[:2]))
check_compiled(count)

fresh()
floor_wall, floor_cpu, _ = measured(lambda: floor(count))
check_compiled(count)

fresh()
single_wall, single_cpu, sampled = measured(lambda: singles(count))
scale = count / sampled
single_wall *= scale
single_cpu *= scale

print("| %d | %d | %.2f (%.2f) | %.2f (%.2f) | %.1f (%.1f) | %.1f (%.1f) | %.2f (%.2f) | %d |" % (
    records, count, batch_wall, batch_cpu, floor_wall, floor_cpu, single_wall, single_cpu,
    batch_wall / floor_wall, batch_cpu / floor_cpu, batch_wall / single_wall, batch_cpu / single_cpu, rss),
    flush=True)
