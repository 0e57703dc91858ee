#!/bin/sh
# Quota store benchmark: the quotas of 100,000 mailboxes written into a fresh
# database by MailboxQuotaDb::setQuotas (one call), by a minimal C++ loop
# reusing one prepared REPLACE, and by the sqlite3 program (one transaction),
# in the same run, each on a fresh file. Prints the figures and the ratios.
#
#   bench/quota_store_bench.sh <build-dir> [work-dir] [repetitions]
#
# Use a Release build. The database files go to work-dir (default: a new
# directory under ${TMPDIR:-/tmp}, removed afterwards); no system path is
# touched.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 <build-dir> [work-dir] [repetitions]" >&2
    exit 2
fi
driver="$1/bench/quota_store_driver"
if [ ! -x "$driver" ]; then
    echo "$0: $driver not built (cmake --build $1 --target quota_store_driver)" >&2
    exit 2
fi
if [ -n "${2:-}" ]; then
    work="$2"
    mkdir -p "$work"
else
    work=$(mktemp -d "${TMPDIR:-/tmp}/quota-bench.XXXXXX")
    trap 'rm -rf "$work"' EXIT
fi
repetitions="${3:-5}"

csv="$work/results.csv"
"$driver" --dir="$work" --benchmark_repetitions="$repetitions" \
    --benchmark_report_aggregates_only=true --benchmark_format=csv > "$csv"

# Median wall-clock milliseconds of each way, then the ratios.
awk -F, '
    /_median"?,/ {
        name = $1; gsub(/"/, "", name); sub(/\/.*/, "", name); sub(/_median$/, "", name)
        ms[name] = $3
        printf "%-16s %10.1f ms (median of %s runs, 100000 rows)\n", name, $3, "'"$repetitions"'"
    }
    END {
        if (ms["BM_MinimalLoop"] > 0 && ms["BM_SqliteCli"] > 0) {
            printf "setQuotas / minimal loop: %.2f (goal: at most 1.5)\n", ms["BM_SetQuotas"] / ms["BM_MinimalLoop"]
            printf "setQuotas / sqlite3 CLI:  %.2f (goal: below 1)\n", ms["BM_SetQuotas"] / ms["BM_SqliteCli"]
        }
    }' "$csv"
