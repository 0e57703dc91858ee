#!/bin/bash
# Times the mailbox size calculation of --get-mailbox-size against other ways
# of measuring the same mailbox, on the same tree in the same run, warm cache.
#
#   bench/mailbox_size_bench.sh <build-dir> [message counts...]   (default: 10000 100000 1000000)
#
# For each count two synthetic Maildir++ trees are built, one after the other,
# under $BENCH_DIR (default /tmp/mailbox-size-bench, deleted afterwards):
# messages spread over INBOX and four subfolders (cur and new), and
# "@attachments" with 1% as many files. Variant "sized": every message name
# carries ",S=<size>"; variant "mixed": 10% of the names do not.
# Timed, each as a whole process, in rounds over all tools after one warm-up
# round (wall-clock minimum and median, and CPU time, which load from other
# processes on the machine disturbs least):
#   driver      bench/mailbox_usage_driver (mailbox_disk_usage, recounting:
#               the trees have no maildirsize)
#   du          du -sb <mailbox>
#   find        find <mailbox> -type f -printf '%s\n' | awk (sum)
#   deliverquota  deliverquota recounting the Maildir after its maildirsize
#               was removed (it also delivers one small message, removed
#               again between runs)
#   bare walk   bench/maildir_bare_walk: directory entries only, ",S=" parsed,
#               no stat at all: the floor
# Runs as root: the mailbox is bind-mounted at its configured place inside a
# private mount namespace (a tmpfs over /var there), nothing outside changes.
set -euo pipefail

if [ "$(id -u)" != 0 ]; then
    echo "$0: must run as root (private mount namespace)" >&2
    exit 2
fi
if [ $# -lt 1 ]; then
    echo "usage: $0 <build-dir> [message counts...]" >&2
    exit 2
fi
build=$(cd "$1" && pwd)
shift
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(10000 100000 1000000)
driver=$build/bench/mailbox_usage_driver
walker=$build/bench/maildir_bare_walk
deliverquota=/usr/sbin/deliverquota
for program in "$driver" "$walker" "$deliverquota"; do
    [ -x "$program" ] || { echo "$0: missing $program (build the bench targets)" >&2; exit 2; }
done

work=${BENCH_DIR:-/tmp/mailbox-size-bench}
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

generate_tree() {  # <mailbox dir> <messages> <percent of names without a size>
    python3 - "$@" <<'PY'
import os, random, sys
mailbox, total, unsized_percent = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
random.seed(total * 100 + unsized_percent)
folders = [("", 60), (".Sent", 10), (".Drafts", 10), (".Trash", 10), (".Spam", 10)]
maildir = os.path.join(mailbox, "Maildir")
for folder, _ in folders:
    for sub in ("tmp", "new", "cur"):
        os.makedirs(os.path.join(maildir, folder, sub), exist_ok=True)
    if folder:
        open(os.path.join(maildir, folder, "maildirfolder"), "w").close()
flags = os.O_WRONLY | os.O_CREAT | os.O_EXCL
number = 0
for folder, weight in folders:
    for index in range(total * weight // 100):
        number += 1
        sub = "new" if index % 10 == 0 else "cur"
        name = "%d.M%dP4242.bench.example" % (1700000000 + number, number)
        if random.randrange(100) >= unsized_percent:
            name += ",S=%d" % random.randrange(1000, 100000)
        if sub == "cur":
            name += ":2,S"
        os.close(os.open(os.path.join(maildir, folder, sub, name), flags, 0o600))
attachments = os.path.join(mailbox, "@attachments")
payload = b"a" * 100
for index in range(max(1, total // 100)):
    directory = os.path.join(attachments, "%03d" % (index // 100))
    if index % 100 == 0:
        os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, "part-%d,S=100" % index), "wb") as part:
        part.write(payload)
PY
}

time_tools() {  # <mailbox dir> <label>; runs inside the private mount namespace
    python3 - "$@" "$driver" "$walker" "$deliverquota" <<'PY'
import glob, os, resource, statistics, subprocess, sys, time
source, label, driver, walker, deliverquota = sys.argv[1:6]
subprocess.run(["mount", "-t", "tmpfs", "bench", "/var"], check=True)
mailbox = "/var/qmail/mailnames/bench.test/info"
os.makedirs(mailbox)
subprocess.run(["mount", "--bind", source, mailbox], check=True)
maildir = mailbox + "/Maildir"
message = "/var/bench-message"
with open(message, "w") as m:
    m.write("From: a@bench.test\nSubject: bench\n\nhello\n")

def clean_deliverquota():
    for path in [maildir + "/maildirsize"] + glob.glob(maildir + "/new/*.vm*") + glob.glob(maildir + "/new/*bench-host*"):
        if os.path.exists(path):
            os.unlink(path)

new_before = set(os.listdir(maildir + "/new"))
def clean_delivered():
    clean_deliverquota()
    for name in set(os.listdir(maildir + "/new")) - new_before:
        os.unlink(os.path.join(maildir + "/new", name))

tools = [
    ("driver", [driver, "bench.test", "info"], None, clean_delivered),
    ("du -sb", ["du", "-sb", mailbox], None, None),
    ("find+awk", ["sh", "-c", "find %s -type f -printf '%%s\\n' | awk '{s+=$1} END {print s}'" % mailbox], None, None),
    ("deliverquota", [deliverquota, maildir, "1000000000000S"], message, clean_delivered),
    ("bare walk", [walker, mailbox], None, None),
]
size = int(label.split("/")[0])
runs = 7 if size >= 1000000 else 21
# Runs go round-robin over the tools, so that load from other processes on
# the machine falls on all of them alike; the minimum is the figure least
# disturbed by it, the median is shown beside it.
times = {name: [] for name, *_ in tools}
cpu = {name: [] for name, *_ in tools}

def children_cpu():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime

outputs = {}
for run in range(runs + 1):
    for name, argv, stdin_path, before in tools:
        if before:
            before()
        stdin = open(stdin_path) if stdin_path else subprocess.DEVNULL
        start = time.perf_counter()
        cpu_start = children_cpu()
        done = subprocess.run(argv, stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        elapsed = time.perf_counter() - start
        cpu_used = children_cpu() - cpu_start
        if stdin_path:
            stdin.close()
        if done.returncode != 0:
            sys.exit("%s failed (%d): %s" % (name, done.returncode, done.stderr))
        outputs[name] = (done.stdout.split() or ["-"])[0]
        if run > 0:  # the first round warms the cache
            times[name].append(elapsed)
            cpu[name].append(cpu_used)
clean_delivered()
best = {name: min(values) for name, values in times.items()}
middle = {name: statistics.median(values) for name, values in times.items()}
least_cpu = {name: min(values) for name, values in cpu.items()}
names = [name for name, *_ in tools]
print("| %s | %s |" % (label, " | ".join("%.1f (%.1f) cpu %.1f" % (best[n] * 1000, middle[n] * 1000, least_cpu[n] * 1000)
                                         for n in names)))
print("| ratios %s | driver/bare wall %.2f (median %.2f) cpu %.2f | du/driver wall %.2f (median %.2f) cpu %.2f"
      " | find/driver wall %.2f | deliverquota/driver wall %.2f | |" % (
    label, best["driver"] / best["bare walk"], middle["driver"] / middle["bare walk"],
    least_cpu["driver"] / least_cpu["bare walk"],
    best["du -sb"] / best["driver"], middle["du -sb"] / middle["driver"], least_cpu["du -sb"] / least_cpu["driver"],
    best["find+awk"] / best["driver"], best["deliverquota"] / best["driver"]))
print("| sums %s | driver %s | du %s | find %s | | bare %s |" % (
    label, outputs["driver"], outputs["du -sb"], outputs["find+awk"], outputs["bare walk"]), flush=True)
PY
}
export -f time_tools
export driver walker deliverquota

echo "Milliseconds per run: wall-clock minimum (median), and the least CPU time (user + system) of a run."
echo "| messages/variant | driver | du -sb | find+awk | deliverquota | bare walk |"
echo "|---|---|---|---|---|---|"
for count in "${counts[@]}"; do
    needed=$((count + count / 100 + 1000))
    free=$(df --output=iavail "$work" | tail -1)
    if [ "$free" -lt $((needed * 2)) ]; then
        echo "| $count | skipped: $free free inodes, $needed needed (with a margin of 2x) |"
        continue
    fi
    for variant in sized:0 mixed:10; do
        tree=$work/tree
        rm -rf "$tree"
        mkdir -p "$tree"
        generate_tree "$tree" "$count" "${variant#*:}"
        sync
        unshare --mount --propagation private bash -c 'time_tools "$@"' _ "$tree" "$count/${variant%%:*}"
        rm -rf "$tree"
    done
done
