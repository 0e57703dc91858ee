#!/bin/bash
# Locked line editor benchmark: one line added at the top of, and the same
# line removed again from, a user assignment table of 100,000 and 1,000,000
# lines of about 80 bytes, by file_str (bench/file_str_driver), by sed -i, and
# a bare copy of the file through a temporary file and rename (the limit), in
# the same run. Every edit is one whole process run, timed the same way.
# Prints the median milliseconds and the ratios to the bare copy.
#
#   bench/file_str_bench.sh <release-build-dir> [repetitions]
#
# Runs as root in a private mount namespace: a tmpfs on /run/sorvane (where
# the lock directory is made) and a tmpfs for the data files, so that the
# host is not touched.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 <release-build-dir> [repetitions]" >&2
    exit 2
fi
driver="$(cd "$1" && pwd)/bench/file_str_driver"
if [ ! -x "$driver" ]; then
    echo "$0: $driver not built (cmake --build $1 --target file_str_driver)" >&2
    exit 2
fi
repetitions="${2:-7}"

if [ -z "${FILE_STR_BENCH_INSIDE:-}" ]; then
    if [ "$(id -u)" != 0 ]; then
        echo "$0: must run as root (private mount namespace)" >&2
        exit 2
    fi
    FILE_STR_BENCH_INSIDE=1 exec unshare --mount --propagation private -- bash "$0" "$@"
fi

mkdir -p /run/sorvane && mount -t tmpfs -o size=16m,mode=0700 tmpfs /run/sorvane
work=$(mktemp -d "${TMPDIR:-/tmp}/file-str-bench.XXXXXX")
trap 'umount "$work" 2>/dev/null; rmdir "$work"' EXIT
mount -t tmpfs -o size=1g tmpfs "$work"

line='+benchmark-added-at-top:popuser:2110:2110:/var/qmail/mailnames/bench/added:-::'

# Milliseconds taken by one run of the command.
elapsed_ms() {
    local start=$EPOCHREALTIME
    "$@" > /dev/null
    local end=$EPOCHREALTIME
    echo "$start $end" | awk '{ printf "%.3f\n", ($2 - $1) * 1000 }'
}

median() {
    sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

make_table() {
    awk -v n="$1" 'BEGIN {
        for (i = 0; i < n; i++)
            printf "=u%07d.example-%04d.com:popuser:2110:2110:/var/qmail/mailnames/d%04d/u%07d:::\n", i, i % 9973, i % 9973, i
        print "."
    }' > "$2"
}

check() {
    if ! "$@"; then
        echo "$0: check failed: $*" >&2
        exit 1
    fi
}

bench_size() {
    local lines=$1 file="$work/assign"
    make_table "$lines" "$file"
    local original
    original=$(md5sum < "$file")
    local -a copy=() fs_add=() fs_remove=() sed_add=() sed_remove=()
    for ((r = 0; r < repetitions; r++)); do
        copy+=("$(elapsed_ms "$driver" copy "$file")")
        fs_add+=("$(elapsed_ms "$driver" add-top "$file" "$line")")
        check test "$(head -n 1 "$file")" = "$line"
        fs_remove+=("$(elapsed_ms "$driver" remove "$file" "$line")")
        check test "$(md5sum < "$file")" = "$original"
        sed_add+=("$(elapsed_ms sed -i "1i\\$line" "$file")")
        check test "$(head -n 1 "$file")" = "$line"
        sed_remove+=("$(elapsed_ms sed -i "\\%^$line\$%d" "$file")")
        check test "$(md5sum < "$file")" = "$original"
    done
    local m_copy m_fs_add m_fs_remove m_sed_add m_sed_remove
    m_copy=$(printf '%s\n' "${copy[@]}" | median)
    m_fs_add=$(printf '%s\n' "${fs_add[@]}" | median)
    m_fs_remove=$(printf '%s\n' "${fs_remove[@]}" | median)
    m_sed_add=$(printf '%s\n' "${sed_add[@]}" | median)
    m_sed_remove=$(printf '%s\n' "${sed_remove[@]}" | median)
    awk -v n="$lines" -v bytes="$(stat -c %s "$file")" -v c="$m_copy" -v fa="$m_fs_add" -v fr="$m_fs_remove" \
        -v sa="$m_sed_add" -v sr="$m_sed_remove" 'BEGIN {
        printf "%d lines (%d bytes), median of '"$repetitions"' runs:\n", n, bytes
        printf "  %-26s %9.1f ms\n", "bare copy + rename", c
        printf "  %-26s %9.1f ms  %5.2fx copy (goal: at most 1.5)\n", "file_str add at top", fa, fa / c
        printf "  %-26s %9.1f ms  %5.2fx copy (goal: at most 1.5)\n", "file_str remove exact", fr, fr / c
        printf "  %-26s %9.1f ms  %5.2fx copy\n", "sed -i add at top", sa, sa / c
        printf "  %-26s %9.1f ms  %5.2fx copy\n", "sed -i remove line", sr, sr / c
    }'
    rm -f "$file"
}

bench_size 100000
bench_size 1000000
