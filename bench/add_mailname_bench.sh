#!/bin/bash
# The whole `sorvane --add-mailname` process on a server whose user
# assignment table holds 100,000 mail-name records (and rcpthosts and
# virtualdomains 10,000 domains), against its floor: a bare prepend of one
# line to the same assign (bench/assign_prepend_driver, timed inside the
# driver) plus two process starts of /bin/true (sorvane's own start and the
# qmail-newu it runs, which is /bin/true here). Same run, warm cache; every
# run starts from the same files. Prints the minimum and median milliseconds
# and the ratio (goal: at most 2).
#
#   bench/add_mailname_bench.sh <release-build-dir> [runs] [record counts...]   (default: 21 100000)
#
# Runs as root in a private mount namespace: tmpfs over /var/qmail,
# /var/lib/crelm, /run/sorvane (sorvane makes its lock
# directory there) and /etc/qvt, passwd and group with popuser.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 <release-build-dir> [runs] [record counts...]" >&2
    exit 2
fi
build="$(cd "$1" && pwd)"
. "$(cd "$(dirname "$0")" && pwd)/lib.sh"
sorvane="$build/src/sorvane"
driver="$build/bench/assign_prepend_driver"
for program in "$sorvane" "$driver"; do
    [ -x "$program" ] || { echo "$0: $program not built" >&2; exit 2; }
done
runs="${2:-21}"
shift $(($# >= 2 ? 2 : 1))
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(100000)

if [ -z "${ADD_MAILNAME_BENCH_INSIDE:-}" ]; then
    if [ "$(id -u)" != 0 ]; then
        echo "$0: must run as root (private mount namespace)" >&2
        exit 2
    fi
    ADD_MAILNAME_BENCH_INSIDE=1 exec unshare --mount --propagation private -- bash "$0" "$build" "$runs" "${counts[@]}"
fi

for tree in /var/qmail /var/lib/crelm /run/sorvane /etc/qvt; do
    mkdir -p "$tree"
    mount -t tmpfs -o size=2g tmpfs "$tree"
done
# The lock directory must be root's alone (a tmpfs starts world-writable).
chmod 0700 /run/sorvane
mkdir -m 0755 /var/qmail/control /var/qmail/users /var/qmail/mailnames /var/qmail/bin \
    /var/qmail/saved
private=$(mktemp -d "${TMPDIR:-/tmp}/add-mailname-bench.XXXXXX")
trap 'rm -rf "$private"' EXIT
bench_mail_users "$private"
: > /etc/qvt/qvt.conf
cp /bin/true /var/qmail/bin/qmail-newu
mkdir -p /var/lib/crelm/mail/userdb
sqlite3 /var/lib/crelm/mail/userdb/userdb.db "BEGIN TRANSACTION;CREATE TABLE IF NOT EXISTS mailbox_quota (domain_name TEXT NOT NULL,mailbox_name TEXT NOT NULL,quota TEXT NOT NULL,PRIMARY KEY (domain_name, mailbox_name));COMMIT;"
mkdir -m 0700 /var/qmail/mailnames/bench.test
chown popuser:popuser /var/qmail/mailnames/bench.test

make_files() {  # <records>
    awk -v n="$1" -v m=/var/qmail/mailnames 'BEGIN {
        ids = "popuser:2110:2110:"
        printf "+bench.test:%s%s/bench.test:::\n", ids, m
        for (i = 0; i < n; i++)
            printf "=domain%05d.example-user%07d:%s%s/domain%05d.example/user%07d:::\n", i % 10000, i, ids, m, i % 10000, i
        for (i = 0; i < 10000; i++)
            printf "+domain%05d.example:%s%s/domain%05d.example:::\n", i, ids, m, i
        print "."
    }' > /var/qmail/saved/assign
    awk 'BEGIN { for (i = 0; i < 10000; i++) printf "domain%05d.example\n", i; print "bench.test" }' \
        > /var/qmail/control/rcpthosts
    awk 'BEGIN { for (i = 0; i < 10000; i++) printf "domain%05d.example:domain%05d.example\n", i, i
                 print "bench.test:bench.test" }' > /var/qmail/control/virtualdomains
    chmod 0644 /var/qmail/saved/assign /var/qmail/control/*
}

echo "Milliseconds per run: minimum (median) of $runs runs, round-robin, after one warm-up round."
echo "| assign records | sorvane --add-mailname | prepend (in driver) | /bin/true | floor (prepend + 2 true) | ratio min (median) |"
echo "|---|---|---|---|---|---|"
for count in "${counts[@]}"; do
    make_files "$count"
    python3 - "$sorvane" "$driver" "$runs" "$count" <<'PY'
import os, shutil, statistics, subprocess, sys, time
sorvane, driver, runs, count = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
assign = "/var/qmail/users/assign"
home = "/var/qmail/mailnames/bench.test/newname"
record = "=bench.test-newname:popuser:2110:2110:/var/qmail/mailnames/bench.test/newname:::"

def fresh():
    shutil.copyfile("/var/qmail/saved/assign", assign)
    os.chmod(assign, 0o644)
    shutil.rmtree(home, ignore_errors=True)

def timed(argv):
    start = time.perf_counter()
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    elapsed = (time.perf_counter() - start) * 1000
    if done.returncode != 0:
        sys.exit("%s failed (%d): %s%s" % (argv[0], done.returncode, done.stdout, done.stderr))
    return elapsed, done.stdout

times = {"sorvane": [], "prepend": [], "true": []}
for run in range(runs + 1):
    fresh()
    sorvane_ms, _ = timed([sorvane, "--add-mailname", "--domain-name=bench.test", "--mailname=newname",
                           "--disk-quota=1048576"])
    with open(assign) as f:
        first = f.readline().rstrip("\n")
    if first != record:
        sys.exit("unexpected first line of assign: %r" % first)
    fresh()
    _, out = timed([driver, assign, record])
    prepend_ms = int(out.strip()) / 1000.0
    true_ms, _ = timed(["/bin/true"])
    if run > 0:
        times["sorvane"].append(sorvane_ms)
        times["prepend"].append(prepend_ms)
        times["true"].append(true_ms)
best = {k: min(v) for k, v in times.items()}
mid = {k: statistics.median(v) for k, v in times.items()}
floor_best = best["prepend"] + 2 * best["true"]
floor_mid = mid["prepend"] + 2 * mid["true"]
print("| %s | %.2f (%.2f) | %.2f (%.2f) | %.2f (%.2f) | %.2f (%.2f) | %.2f (%.2f) |" % (
    count, best["sorvane"], mid["sorvane"], best["prepend"], mid["prepend"], best["true"], mid["true"],
    floor_best, floor_mid, best["sorvane"] / floor_best, mid["sorvane"] / floor_mid), flush=True)
PY
done
