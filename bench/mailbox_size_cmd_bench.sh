#!/bin/bash
# The whole `sorvane --get-mailbox-size` process against the bare walk
# (bench/maildir_bare_walk: directory entries only, ",S=" sizes parsed, no
# stat at all), both as whole processes, on the same synthetic Maildir++
# tree in the same run, warm cache. Goal: sorvane within 1.2x of the bare
# walk at 100,000 messages and above, process start included.
#
#   bench/mailbox_size_cmd_bench.sh <build-dir> [message counts...]   (default: 10000 100000 1000000)
#
# The trees are those of bench/mailbox_size_bench.sh (messages over INBOX and
# four marked folders, cur and new; "@attachments" with 1% as many files),
# here with ",S=<size>" in every name so that the bare walk's sum is the true
# size too. They are built under $BENCH_DIR (default
# /tmp/mailbox-size-cmd-bench, deleted afterwards). Runs as root: the mailbox
# is bind-mounted at its configured place inside a private mount namespace
# (tmpfs over /var and /etc/qvt there).
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
sorvane=$build/src/sorvane
walker=$build/bench/maildir_bare_walk
for program in "$sorvane" "$walker"; do
    [ -x "$program" ] || { echo "$0: missing $program (build sorvane and maildir_bare_walk)" >&2; exit 2; }
done

work=${BENCH_DIR:-/tmp/mailbox-size-cmd-bench}
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

time_both() {  # <mailbox dir> <count>; runs inside the private mount namespace
    python3 - "$@" "$sorvane" "$walker" <<'PY'
import os, resource, statistics, subprocess, sys, time
source, count, sorvane, walker = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4]
subprocess.run(["mount", "-t", "tmpfs", "bench", "/var"], check=True)
os.makedirs("/etc/qvt", exist_ok=True)
subprocess.run(["mount", "-t", "tmpfs", "bench", "/etc/qvt"], check=True)
open("/etc/qvt/qvt.conf", "w").close()
mailbox = "/var/qmail/mailnames/bench.test/info"
os.makedirs(mailbox)
subprocess.run(["mount", "--bind", source, mailbox], check=True)
tools = [
    ("sorvane", [sorvane, "--get-mailbox-size", "--domain-name=bench.test", "--mailname=info"]),
    ("bare walk", [walker, mailbox]),
]
runs = 7 if count >= 1000000 else 21
times = {name: [] for name, _ in tools}
cpu = {name: [] for name, _ in tools}
outputs = {}

def children_cpu():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime

# Round-robin over both tools, so that load from other processes on the
# machine falls on both alike; the first round warms the cache.
for run in range(runs + 1):
    for name, argv in tools:
        start = time.perf_counter()
        cpu_start = children_cpu()
        done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        elapsed = time.perf_counter() - start
        cpu_used = children_cpu() - cpu_start
        if done.returncode != 0 or done.stderr:
            sys.exit("%s failed (%d): %s" % (name, done.returncode, done.stderr))
        outputs[name] = (done.stdout.split() or ["-"])[0]
        if run > 0:
            times[name].append(elapsed)
            cpu[name].append(cpu_used)
best = {n: min(v) * 1000 for n, v in times.items()}
mid = {n: statistics.median(v) * 1000 for n, v in times.items()}
least_cpu = {n: min(v) * 1000 for n, v in cpu.items()}
print("| %d | %.1f (%.1f) cpu %.1f | %.1f (%.1f) cpu %.1f | %.2f (%.2f) cpu %.2f | %s | %s |" % (
    count, best["sorvane"], mid["sorvane"], least_cpu["sorvane"], best["bare walk"], mid["bare walk"],
    least_cpu["bare walk"], best["sorvane"] / best["bare walk"], mid["sorvane"] / mid["bare walk"],
    least_cpu["sorvane"] / least_cpu["bare walk"], outputs["sorvane"], outputs["bare walk"]), flush=True)
PY
}
export -f time_both
export sorvane walker

echo "Milliseconds per run: wall-clock minimum (median), and the least CPU time (user + system) of a run."
echo "| messages | sorvane --get-mailbox-size | bare walk | ratio wall min (median) cpu | sorvane's size | bare walk's sum |"
echo "|---|---|---|---|---|---|"
for count in "${counts[@]}"; do
    needed=$((count + count / 100 + 1000))
    free=$(df --output=iavail "$work" | tail -1)
    if [ "$free" -lt $((needed * 2)) ]; then
        echo "| $count | skipped: $free free inodes, $needed needed (with a margin of 2x) |"
        continue
    fi
    tree=$work/tree
    rm -rf "$tree"
    mkdir -p "$tree"
    generate_tree "$tree" "$count" 0
    sync
    unshare --mount --propagation private bash -c 'time_both "$@"' _ "$tree" "$count"
    rm -rf "$tree"
done
