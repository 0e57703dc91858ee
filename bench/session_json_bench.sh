#!/bin/sh
# Reads a generated session document of 100,000 mails with five aliases each
# into the session object, and the same file with Python's json module, in
# one run; prints wall time, processor time (user + system; the fairer
# figure on a busy machine) and peak resident memory of both.
#
#   bench/session_json_bench.sh <build-dir> [mails]
#
# <build-dir> holds the built session_read_driver (an optimised build is
# meant: cmake -DCMAKE_BUILD_TYPE=Release, target session_read_driver).
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 <build-dir> [mails]" >&2
    exit 2
fi
driver=$1/bench/session_read_driver
mails=${2:-100000}
if [ ! -x "$driver" ]; then
    echo "$0: $driver is not built" >&2
    exit 2
fi
work=$(mktemp -d /tmp/sorvane-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT
document=$work/session.json

python3 - "$mails" "$document" <<'PYTHON'
import json, sys
count, path = int(sys.argv[1]), sys.argv[2]
mails = [{"name": "user%06d" % i, "mbox_quota": 100 + i % 900, "mbox_quota_unit": "MB",
          "aliases": ["alias%d.user%06d" % (a, i) for a in range(5)]} for i in range(count)]
document = {"domain": {"name": "example.test", "dom_aliases": ["alias.example.test"],
                       "maillists": ["list"], "mails": mails},
            "certificates": [{"name": "mail", "certfile": "/etc/certs/mail.pem"}]}
with open(path, "w") as out:
    json.dump(document, out, indent=1)
PYTHON

size=$(stat -c %s "$document")
# Runs a command with the document on standard input under /usr/bin/time;
# prints "<wall seconds> <cpu seconds> <peak KiB>".
measure() {
    /usr/bin/time -v "$@" < "$document" > "$work/out" 2> "$work/time"
    seconds=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$work/time" |
              awk -F: '{ s = 0; for (i = 1; i <= NF; i++) s = s * 60 + $i; print s }')
    user=$(sed -n 's/.*User time (seconds): //p' "$work/time")
    system=$(sed -n 's/.*System time (seconds): //p' "$work/time")
    peak=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/time")
    echo "$seconds $(echo "$user $system" | awk '{ print $1 + $2 }') $peak"
}

set -- $(measure "$driver"); driver_seconds=$1; driver_cpu=$2; driver_peak=$3
cat "$work/out"
set -- $(measure python3 -c 'import json,sys; json.load(sys.stdin)'); python_seconds=$1; python_cpu=$2; python_peak=$3

awk -v size="$size" -v ds="$driver_seconds" -v dc="$driver_cpu" -v dp="$driver_peak" \
    -v ps="$python_seconds" -v pc="$python_cpu" -v pp="$python_peak" \
    -v mails="$mails" 'BEGIN {
    printf "document: %d mails with 5 aliases each, %.1f MiB\n", mails, size / 1048576
    printf "session reader: %.3f s wall, %.3f s cpu, peak %.1f MiB (%.2f x document)\n", ds, dc, dp / 1024, dp * 1024 / size
    printf "python json:    %.3f s wall, %.3f s cpu, peak %.1f MiB (%.2f x document)\n", ps, pc, pp / 1024, pp * 1024 / size
    if (ds > 0) printf "speed-up, wall: %.1f x\n", ps / ds
    if (dc > 0) printf "speed-up, cpu:  %.1f x\n", pc / dc
}'
