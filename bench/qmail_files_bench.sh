#!/bin/bash
# Control-file benchmark: every edit that sorvane makes of assign and the
# control files, timed as the built program makes it, against a bare copy
# of the same files timed in the same run. On a server whose user
# assignment table holds 10,000, 100,000 and 1,000,000 mail-name records
# over 10,000 domains (whose lines fill rcpthosts and virtualdomains), plus
# a target domain with 10 mail names and an alias each (made by sorvane
# itself), each of these runs starts from the same files:
#   add record           --add-mailname           (assign)
#   remove record        --remove-mailname        (assign)
#   rename mail name     --rename-mailname        (assign)
#   add mail alias       --add-alias              (assign)
#   remove mail alias    --remove-alias           (assign)
#   add domain           --add-domain             (rcpthosts, virtualdomains, assign)
#   remove domain        --remove-domain          (rcpthosts, virtualdomains, assign)
#   rename domain        --rename-domain          (rcpthosts, virtualdomains, assign)
#   turn off domain      --turn-off-domain        (rcpthosts, virtualdomains)
#   turn on domain       --turn-on-domain         (rcpthosts, virtualdomains)
#   add domain alias     --add-domain-alias       (rcpthosts, virtualdomains, locals)
#   remove domain alias  --del-domain-alias       (rcpthosts, virtualdomains, locals)
# The bare copy is one `cp` of the files in brackets. qmail-newu is a copy
# of /bin/true and the panel's service helper (the reload's fallback) exits
# 0 at once, as in the other benchmarks here.
#
# Three views, each the least of the runs (the machine's other load only
# ever adds), wall-clock and CPU (user + system of the process and the
# children it waited for) milliseconds:
#   whole    the whole sorvane process against the whole cp process;
#   by size  the part of each that grows with the files: the same command
#            and the same cp on the same server with only the target
#            domain's lines (the fixed cost: process start, stores, trees,
#            the stubbed children) taken off both;
#   edit     the edit alone, in process: bench/qmail_files_driver calls
#            the function that the command calls for the files, against
#            the driver's own bare copy (read, write, flush, rename) of
#            the same files.
# Goal: the "by size" and "edit" ratios at most 1.2.
#
#   bench/qmail_files_bench.sh [--on-disk <dir>] <release-build-dir> [repetitions] [record counts...]
#
# By default the files live on tmpfs, where a flush costs nothing. With
# --on-disk, /var/qmail and /var/lib/crelm live in a fresh folder under
# <dir>, which must be on a disk (ext4, say), so that the flushes that
# sorvane makes (and cp does not) reach the device and their price shows.
#
# QMAIL_FILES_BENCH_WRAP, when set, is a command put in front of every run of
# sorvane and of the driver (say "strace -f -o <file>" or "perf record -g -o
# <file> --"), to see where their time goes; its timings then mean nothing.
#
# Runs as root in private mount, PID and host-name namespaces: tmpfs over
# /var/qmail, /var/lib/crelm, /etc/domainkeys, /etc/qvt, /opt/qvt and
# /run/sorvane (the lock directory), passwd and group with popuser and
# nofiles, a hosts file that names the host; nothing of the host changes.
set -eu
on_disk=
if [ "${1:-}" = --on-disk ]; then
    on_disk="$(cd "$2" && pwd)"
    shift 2
fi
if [ $# -lt 1 ]; then
    echo "usage: $0 [--on-disk <dir>] <release-build-dir> [repetitions] [record counts...]" >&2
    exit 2
fi
build="$(cd "$1" && pwd)"
. "$(cd "$(dirname "$0")" && pwd)/lib.sh"
sorvane="$build/src/sorvane"
driver="$build/bench/qmail_files_driver"
stores_setup="$build/tests/mail_stores_setup"
for program in "$sorvane" "$driver" "$stores_setup"; do
    [ -x "$program" ] || { echo "$0: $program not built" >&2; exit 2; }
done
repetitions="${2:-5}"
shift $(($# >= 2 ? 2 : 1))
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(10000 100000 1000000)

if [ -z "${QMAIL_FILES_BENCH_INSIDE:-}" ]; then
    if [ "$(id -u)" != 0 ]; then
        echo "$0: must run as root (private namespaces)" >&2
        exit 2
    fi
    QMAIL_FILES_BENCH_INSIDE=1 exec unshare --mount --uts --pid --fork --mount-proc --propagation private -- \
        bash "$0" ${on_disk:+--on-disk "$on_disk"} "$build" "$repetitions" "${counts[@]}"
fi

private=$(mktemp -d "${TMPDIR:-/tmp}/qmail-files-bench.XXXXXX")
disk_trees=
if [ -n "$on_disk" ]; then
    disk_trees=$(mktemp -d "$on_disk/qmail-files-bench.XXXXXX")
fi
trap 'rm -rf "$private" ${disk_trees:+"$disk_trees"}' EXIT
for tree in /var/qmail /var/lib/crelm /etc/domainkeys /etc/qvt /opt/qvt /run/sorvane; do
    mkdir -p "$tree"
    if [ -n "$disk_trees" ] && { [ "$tree" = /var/qmail ] || [ "$tree" = /var/lib/crelm ]; }; then
        mkdir -p "$disk_trees$tree"
        chmod 0755 "$disk_trees$tree"
        mount --bind "$disk_trees$tree" "$tree"
    else
        mount -t tmpfs -o size=3g,mode=0755 tmpfs "$tree"
    fi
done
# The lock directory must be root's alone.
chmod 0700 /run/sorvane
echo "files on $(findmnt -n -o FSTYPE --target /var/qmail) ($(findmnt -n -o SOURCE --target /var/qmail))"
bench_mail_users "$private"
hostname bench
printf '127.0.0.1 localhost\n192.0.2.7 bench.example bench\n' > "$private/hosts"
mount --bind "$private/hosts" /etc/hosts

mkdir -p /var/qmail/bin /var/qmail/control /var/qmail/users /opt/qvt/admin/sbin
cp /bin/true /var/qmail/bin/qmail-newu
printf '#!/bin/sh\nexit 0\n' > /opt/qvt/admin/sbin/crelmrc
chmod 0755 /opt/qvt/admin/sbin/crelmrc
echo localhost > /var/qmail/control/locals
echo localhost > /var/qmail/control/rcpthosts
: > /var/qmail/control/virtualdomains
echo . > /var/qmail/users/assign
chmod 0644 /var/qmail/control/locals /var/qmail/control/rcpthosts /var/qmail/control/virtualdomains \
    /var/qmail/users/assign
mkdir -m 0751 /var/qmail/mailnames
chown popuser:popuser /var/qmail/mailnames
printf '| /usr/bin/deliverquota ./Maildir\n' > /var/qmail/mailnames/.default_delivery
printf 'CRELM_MAILNAMES_D /var/qmail/mailnames\n' > /etc/qvt/qvt.conf
mkdir -p /var/lib/crelm/mail/userdb /var/lib/crelm/mail/handlers /var/lib/crelm/mail/auth
"$stores_setup"

python3 - "$sorvane" "$driver" "$repetitions" "${counts[@]}" <<'PY'
import os, shutil, subprocess, sys, time

sorvane, driver, reps = sys.argv[1], sys.argv[2], int(sys.argv[3])
WRAP = os.environ.get("QMAIL_FILES_BENCH_WRAP", "").split()
if WRAP:
    WRAP[0] = shutil.which(WRAP[0]) or WRAP[0]
counts = [int(c) for c in sys.argv[4:]]
DOMAINS = 10000
T = "bench-target.example"
NEW = "bench-new.example"
ALIAS = "bench-alias.example"
RENAMED = "renamed-target.example"
QMAIL, CONTROL, MAILNAMES = "/var/qmail", "/var/qmail/control", "/var/qmail/mailnames"
ASSIGN = QMAIL + "/users/assign"
RCPTHOSTS, VIRTUALDOMAINS, LOCALS = CONTROL + "/rcpthosts", CONTROL + "/virtualdomains", CONTROL + "/locals"
SAVED = "/var/qmail/.bench-saved"
COPIES = "/var/qmail/.bench-copies"
IDS = "popuser:2110:2110:"
# What a run starts from: the trees of the server, copied back before each run.
TREES = ["/var/qmail/control", "/var/qmail/users", "/var/qmail/mailnames", "/var/lib/crelm", "/etc/domainkeys"]


def timed(argv):
    """(wall, cpu) milliseconds of argv, which must end 0; its standard
    input is the session document."""
    errors = "/tmp/qmail-files-bench.err"
    if WRAP and argv[0] in (sorvane, driver):
        argv = WRAP + argv
    actions = [(os.POSIX_SPAWN_OPEN, 0, SESSION if os.path.exists(SESSION) else "/dev/null", os.O_RDONLY, 0),
               (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0),
               (os.POSIX_SPAWN_OPEN, 2, errors, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)]
    start = time.perf_counter()
    pid = os.posix_spawn(argv[0], argv, os.environ, file_actions=actions)
    _, status, usage = os.wait4(pid, 0)
    wall = (time.perf_counter() - start) * 1000
    if status != 0:
        with open(errors) as f:
            sys.exit("%s failed (status %d): %s" % (" ".join(argv), status, f.read()))
    return wall, (usage.ru_utime + usage.ru_stime) * 1000


def must(argv):
    with open(SESSION if os.path.exists(SESSION) else "/dev/null") as document:
        done = subprocess.run(argv, stdin=document, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit("%s failed (%d): %s%s" % (" ".join(argv), done.returncode, done.stdout, done.stderr))


def save(name):
    target = os.path.join(SAVED, name)
    shutil.rmtree(target, ignore_errors=True)
    os.makedirs(target)
    for tree in TREES:
        must(["cp", "-a", tree, os.path.join(target, tree.strip("/").replace("/", "_"))])


def restore(name):
    source = os.path.join(SAVED, name)
    for tree in TREES:
        for entry in os.listdir(tree):
            path = os.path.join(tree, entry)
            if os.path.isdir(path) and not os.path.islink(path):
                shutil.rmtree(path)
            else:
                os.unlink(path)
        must(["cp", "-a", os.path.join(source, tree.strip("/").replace("/", "_")) + "/.", tree])
    shutil.rmtree(COPIES, ignore_errors=True)
    os.makedirs(COPIES)


def lines(path):
    with open(path) as f:
        return f.read().splitlines()


def count(path, line):
    return sum(1 for held in lines(path) if held == line)


def record(name, home):
    return "=%s-%s:%s%s/%s/%s:::" % (T, name, IDS, MAILNAMES, T, home)


def check(condition, what):
    if not condition:
        sys.exit("check failed: " + what)


SESSION = "/var/qmail/.bench-session"


def session(mails):
    """The session document of the target domain (the standard input of
    every run) with mails, (name, aliases) pairs."""
    entries = ['{"name": "%s", "mbox_quota": 104857600, "aliases": [%s]}' % (name, ", ".join(
        '"%s"' % alias for alias in aliases)) for name, aliases in mails]
    with open(SESSION, "w") as f:
        f.write('{"domain": {"name": "%s", "dom_aliases": [], "mails": [%s]}}' % (T, ", ".join(entries)))

# The target domain, its 10 mail names and an alias of each, made by sorvane.
session([])
must([sorvane, "--add-domain", "--domain-name=" + T])
for i in range(10):
    session([("name%d" % j, ["alias%d" % j]) for j in range(i)])
    must([sorvane, "--add-mailname", "--domain-name=" + T, "--mailname=name%d" % i])
    session([("name%d" % j, ["alias%d" % j] if j < i else []) for j in range(i + 1)])
    must([sorvane, "--add-alias", "--domain-name=" + T, "--mailname=name%d" % i, "--alias=alias%d" % i])
session([("name%d" % j, ["alias%d" % j]) for j in range(10)])
save("small")

ASSIGN_ONLY = [ASSIGN]
THREE = [RCPTHOSTS, VIRTUALDOMAINS, ASSIGN]
TWO = [RCPTHOSTS, VIRTUALDOMAINS]
ALIAS_FILES = [RCPTHOSTS, VIRTUALDOMAINS, LOCALS]


def prepare_alias():
    must([sorvane, "--add-domain-alias", "--domain-name=" + T, "--domain-alias-name=" + ALIAS, "--set-bounce"])


def prepare_off():
    must([sorvane, "--turn-off-domain", "--domain-name=" + T])


# Each edit: label, sorvane's arguments, the driver's arguments, the files
# copied, what runs (untimed) before it, and the check of its result.
EDITS = [
    ("add record", ["--add-mailname", "--domain-name=" + T, "--mailname=newname"],
     ["add-record", "newname", T], ASSIGN_ONLY, None,
     lambda: lines(ASSIGN)[0] == record("newname", "newname")),
    ("remove record", ["--remove-mailname", "--domain-name=" + T, "--mailname=name1"],
     ["remove-record", "name1", T], ASSIGN_ONLY, None,
     lambda: count(ASSIGN, record("name1", "name1")) == 0),
    ("rename mail name", ["--rename-mailname", "--domain-name=" + T, "--old-mailname=name2",
                          "--new-mailname=renamed2"],
     ["rename-mailname", "name2", T, "renamed2"], ASSIGN_ONLY, None,
     lambda: lines(ASSIGN)[0] == record("renamed2", "renamed2") and count(ASSIGN, record("name2", "name2")) == 0
     and count(ASSIGN, record("alias2", "renamed2")) == 1),
    ("add mail alias", ["--add-alias", "--domain-name=" + T, "--mailname=name0", "--alias=newalias"],
     ["add-alias", "name0", T, "newalias"], ASSIGN_ONLY, None,
     lambda: lines(ASSIGN)[0] == record("newalias", "name0")),
    ("remove mail alias", ["--remove-alias", "--domain-name=" + T, "--mailname=name0", "--alias=alias0"],
     ["remove-alias", "name0", T, "alias0"], ASSIGN_ONLY, None,
     lambda: count(ASSIGN, record("alias0", "name0")) == 0),
    ("add domain", ["--add-domain", "--domain-name=" + NEW], ["add-domain", NEW], THREE, None,
     lambda: lines(ASSIGN)[0] == "+%s:%s%s/%s:::" % (NEW, IDS, MAILNAMES, NEW) and lines(RCPTHOSTS)[-1] == NEW
     and lines(VIRTUALDOMAINS)[-1] == NEW + ":" + NEW),
    ("remove domain", ["--remove-domain", "--domain-name=" + T], ["remove-domain", T], THREE, None,
     lambda: not any(T in line for path in THREE for line in lines(path)) and not os.path.exists(MAILNAMES + "/" + T)),
    ("rename domain", ["--rename-domain", "--old-domain-name=" + T, "--new-domain-name=" + RENAMED],
     ["rename-edits", T, RENAMED], THREE, None,
     lambda: not any(T in line for path in THREE for line in lines(path))
     and sum(1 for line in lines(ASSIGN) if RENAMED in line) == 21),
    ("turn off domain", ["--turn-off-domain", "--domain-name=" + T], ["domain-off", T], TWO, None,
     lambda: count(RCPTHOSTS, T) == 0 and count(VIRTUALDOMAINS, T + ":" + T) == 0),
    ("turn on domain", ["--turn-on-domain", "--domain-name=" + T, "--set-bounce"], ["domain-on", T], TWO, prepare_off,
     lambda: count(RCPTHOSTS, T) == 1 and count(VIRTUALDOMAINS, T + ":" + T) == 1),
    ("add domain alias", ["--add-domain-alias", "--domain-name=" + T, "--domain-alias-name=" + ALIAS, "--set-bounce"],
     ["add-domain-alias", T, ALIAS], ALIAS_FILES, None,
     lambda: lines(RCPTHOSTS)[-1] == ALIAS and lines(VIRTUALDOMAINS)[-1] == ALIAS + ":" + T),
    ("remove domain alias", ["--del-domain-alias", "--domain-name=" + T, "--domain-alias-name=" + ALIAS],
     ["remove-domain-alias", T, ALIAS], ALIAS_FILES, prepare_alias,
     lambda: count(RCPTHOSTS, ALIAS) == 0 and count(VIRTUALDOMAINS, ALIAS + ":" + T) == 0),
]


def make_large(records):
    """The small server's files with the bulk mail names and domains behind
    the target's lines (assign keeps its "." last)."""
    restore("small")
    held = lines(ASSIGN)
    with open(ASSIGN, "w") as f:
        for line in held[:-1]:
            f.write(line + "\n")
        m = MAILNAMES
        for i in range(records):
            d = i % DOMAINS
            f.write("=domain%05d.example-user%07d:%s%s/domain%05d.example/user%07d:::\n" % (d, i, IDS, m, d, i))
        for d in range(DOMAINS):
            f.write("+domain%05d.example:%s%s/domain%05d.example:::\n" % (d, IDS, m, d))
        f.write(".\n")
    with open(RCPTHOSTS, "a") as f:
        for d in range(DOMAINS):
            f.write("domain%05d.example\n" % d)
    with open(VIRTUALDOMAINS, "a") as f:
        for d in range(DOMAINS):
            f.write("domain%05d.example:domain%05d.example\n" % (d, d))
    save("large")


def fresh(state, prepare):
    restore(state)
    if prepare:
        prepare()


def measure(records):
    make_large(records)
    series = {}
    def add(key, value):
        series.setdefault(key, []).append(value)
    for rep in range(reps + 1):  # the first round warms up and is not counted
        for label, args, driver_args, files, prepare, result in EDITS:
            sample = {}
            for state in ("small", "large"):
                fresh(state, prepare)
                sample["cp " + state] = timed(["/bin/cp"] + files + [COPIES])
                sample["sorvane " + state] = timed([sorvane] + args)
                if state == "large":
                    check(result(), label)
            fresh("large", prepare)
            sample["driver copy"] = timed([driver, "synced-copy"] + files)
            fresh("large", prepare)
            sample["driver edit"] = timed([driver] + driver_args)
            check(result(), label + " (driver)")
            if rep > 0:
                for key, value in sample.items():
                    add((label, key), value)
    return series


def least(values, which):
    return min(v[which] for v in values)


def report(records, series):
    size = os.path.getsize(SAVED + "/large/var_qmail_users/assign")
    print()
    print("%d records (assign %.1f MB), least of %d runs after a warm-up round" % (records, size / 1e6, reps))
    for which, name in ((1, "CPU"), (0, "wall")):
        print()
        print("%s ms | whole: cp | sorvane | x | by size: cp | sorvane | x | edit: copy | edit | x |" % name)
        print("|---|---|---|---|---|---|---|---|---|---|")
        for label, _, _, files, _, _ in EDITS:
            m = {key: least(values, which) for (edit, key), values in series.items() if edit == label}
            cp_size = m["cp large"] - m["cp small"]
            sorvane_size = m["sorvane large"] - m["sorvane small"]
            print("| %s (%s) | %.1f | %.1f | %.2f | %.1f | %.1f | %.2f | %.1f | %.1f | %.2f |" % (
                label, "+".join(os.path.basename(f) for f in files), m["cp large"], m["sorvane large"],
                m["sorvane large"] / m["cp large"], cp_size, sorvane_size,
                sorvane_size / cp_size if cp_size > 0 else float("nan"), m["driver copy"], m["driver edit"],
                m["driver edit"] / m["driver copy"]), flush=True)


for records in counts:
    report(records, measure(records))
PY
