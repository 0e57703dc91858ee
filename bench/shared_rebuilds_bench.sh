#!/bin/bash
# Eight panels adding a mail name each at the same moment, on a server whose
# user assignment table holds 100,000 or 1,000,000 records, with the real
# qmail-newu (from the qmail tree that tests/mailserver/run builds into the
# build tree). References in the same run, warm cache, every run from the
# same files:
#   - 8 serialised rebuilds: qmail-newu run 8 times one after another (what
#     the panels cost when every command rebuilds on its own);
#   - 1 rebuild + 8 bare edits: qmail-newu once plus 8 plain prepends of a
#     line to assign (bench/assign_prepend_driver), the floor when all eight
#     edits share one rebuild.
# Prints minimum and median milliseconds, the ratios, and how many rebuilds
# the eight commands ran (goal: at most 0.5 of the serialised rebuilds at 1M).
#
#   bench/shared_rebuilds_bench.sh <release-build-dir> [runs] [record counts...]   (default: 5 100000 1000000)
#
# Runs as root in a private mount namespace: tmpfs over /var/qmail (a copy of
# the installed qmail tree), /var/lib/crelm, /run/sorvane and /etc/qvt,
# passwd and group with popuser.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 <release-build-dir> [runs] [record counts...]" >&2
    exit 2
fi
build="$(cd "$1" && pwd)"
root="$(cd "$(dirname "$0")/.." && pwd)"
. "$root/bench/lib.sh"
sorvane="$build/src/sorvane"
driver="$build/bench/assign_prepend_driver"
for program in "$sorvane" "$driver"; do
    [ -x "$program" ] || { echo "$0: $program not built" >&2; exit 2; }
done
runs="${2:-5}"
shift $(($# >= 2 ? 2 : 1))
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(100000 1000000)

if [ -z "${SHARED_REBUILDS_BENCH_INSIDE:-}" ]; then
    bench_require_root
    # The qmail tree that the mail-server suite built into the build tree.
    qmail_tree=$(bench_qmail_tree "$build")
    SHARED_REBUILDS_BENCH_INSIDE=1 QMAIL_TREE="$qmail_tree" \
        exec unshare --mount --propagation private -- bash "$0" "$build" "$runs" "${counts[@]}"
fi

bench_mount_tmpfs 3g /var/qmail /var/lib/crelm /run/sorvane /etc/qvt
# The lock directory must be root's alone (a tmpfs starts world-writable).
chmod 0700 /run/sorvane
cp -a "$QMAIL_TREE/." /var/qmail/
mkdir -p /var/qmail/control /var/qmail/users /var/qmail/mailnames /var/qmail/saved
# qmail-newu notes each run (a word in a counter file) and runs the real one,
# for the panels and the references alike.
mv /var/qmail/bin/qmail-newu /var/qmail/bin/qmail-newu.real
printf '#!/bin/sh
echo x >> /var/qmail/saved/rebuilds
exec /var/qmail/bin/qmail-newu.real "$@"
' \
    > /var/qmail/bin/qmail-newu
chmod 0755 /var/qmail/bin/qmail-newu
private=$(mktemp -d "${TMPDIR:-/tmp}/shared-rebuilds-bench.XXXXXX")
trap 'rm -rf "$private"' EXIT
bench_mail_users "$private"
: > /etc/qvt/qvt.conf
mkdir -p /var/lib/crelm/mail/userdb
sqlite3 /var/lib/crelm/mail/userdb/userdb.db "BEGIN TRANSACTION;CREATE TABLE IF NOT EXISTS mailbox_quota (domain_name TEXT NOT NULL,mailbox_name TEXT NOT NULL,quota TEXT NOT NULL,PRIMARY KEY (domain_name, mailbox_name));COMMIT;"
mkdir -m 0700 /var/qmail/mailnames/bench.test
chown popuser:popuser /var/qmail/mailnames/bench.test

make_files() {  # <records>
    awk -v n="$1" -v m=/var/qmail/mailnames 'BEGIN {
        ids = "popuser:2110:2110:"
        printf "+bench.test-:%s%s/bench.test:::\n", ids, m
        for (i = 0; i < n; i++)
            printf "=domain%05d.example-user%07d:%s%s/domain%05d.example/user%07d:::\n", i % 10000, i, ids, m, i % 10000, i
        print "."
    }' > /var/qmail/saved/assign
    printf 'bench.test\n' > /var/qmail/control/rcpthosts
    printf 'bench.test:bench.test\n' > /var/qmail/control/virtualdomains
    chmod 0644 /var/qmail/saved/assign /var/qmail/control/*
}

echo "Milliseconds: minimum (median) of $runs runs after one warm-up run."
echo "| assign records | 8 concurrent --add-mailname | rebuilds they ran | 8 serialised rebuilds | 1 rebuild + 8 edits | ratio to serialised | ratio to 1 rebuild + 8 edits |"
echo "|---|---|---|---|---|---|---|"
for count in "${counts[@]}"; do
    make_files "$count"
    python3 - "$sorvane" "$driver" "$runs" "$count" "$root/tests/mailserver" <<'PY'
import os, shutil, statistics, subprocess, sys, time
sorvane, driver, runs, count = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
# The mail-server suite's reader of qmail's compiled table.
sys.path.insert(0, sys.argv[5])
from mailserver import cdb_get
assign = "/var/qmail/users/assign"
newu = "/var/qmail/bin/qmail-newu"
counter = "/var/qmail/saved/rebuilds"
names = ["name%d" % i for i in range(8)]

def fresh():
    shutil.copyfile("/var/qmail/saved/assign", assign)
    os.chmod(assign, 0o644)
    for name in names:
        shutil.rmtree("/var/qmail/mailnames/bench.test/" + name, ignore_errors=True)
    subprocess.run(["sqlite3", "/var/lib/crelm/mail/userdb/userdb.db", "DELETE FROM mailbox_quota;"], check=True)
    open(counter, "w").close()

def rebuilds_run():
    with open(counter) as f:
        return len(f.read().split())

def concurrent():
    fresh()
    start = time.perf_counter()
    panels = [subprocess.Popen([sorvane, "--add-mailname", "--domain-name=bench.test", "--mailname=" + name],
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) for name in names]
    for panel in panels:
        _, err = panel.communicate()
        if panel.returncode != 0:
            sys.exit("sorvane failed (%d): %s" % (panel.returncode, err.decode()))
    elapsed = (time.perf_counter() - start) * 1000
    # Every name is in the compiled table once the commands are done.
    for name in names:
        value = cdb_get("/var/qmail/users/cdb", b"!bench.test-" + name.encode() + b"\0")
        if value is None or value.split(b"\0")[3] != b"/var/qmail/mailnames/bench.test/" + name.encode():
            sys.exit("bench.test-%s is not in the compiled table" % name)
    return elapsed, rebuilds_run()

def serialised():
    fresh()
    start = time.perf_counter()
    for _ in names:
        subprocess.run([newu], check=True)
    return (time.perf_counter() - start) * 1000

def shared_floor():
    fresh()
    start = time.perf_counter()
    for name in names:
        subprocess.run([driver, assign, "=bench.test-%s:popuser:2110:2110:/var/qmail/mailnames/bench.test/%s:::" %
                        (name, name)], check=True, stdout=subprocess.DEVNULL)
    subprocess.run([newu], check=True)
    return (time.perf_counter() - start) * 1000

times = {"concurrent": [], "serialised": [], "floor": []}
rebuilds = []
for run in range(runs + 1):
    elapsed, ran = concurrent()
    s = serialised()
    f = shared_floor()
    if run > 0:
        times["concurrent"].append(elapsed)
        times["serialised"].append(s)
        times["floor"].append(f)
        rebuilds.append(ran)
best = {k: min(v) for k, v in times.items()}
mid = {k: statistics.median(v) for k, v in times.items()}
print("| %s | %.0f (%.0f) | %s | %.0f (%.0f) | %.0f (%.0f) | %.2f (%.2f) | %.2f (%.2f) |" % (
    count, best["concurrent"], mid["concurrent"], "-".join(str(r) for r in sorted(set(rebuilds))),
    best["serialised"], mid["serialised"], best["floor"], mid["floor"],
    best["concurrent"] / best["serialised"], mid["concurrent"] / mid["serialised"],
    best["concurrent"] / best["floor"], mid["concurrent"] / mid["floor"]), flush=True)
PY
done
