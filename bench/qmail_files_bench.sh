#!/bin/bash
# Control-file benchmark: on a user assignment table of 10,000, 100,000 and
# 1,000,000 mail-name records (over 10,000 domains, whose lines fill
# rcpthosts and virtualdomains), in the same run with a warm cache, times
#   add record     a new mail name's record (taken out, put back at the top
#                  of assign)
#   remove domain  a domain with 10 mail names and their aliases (rcpthosts,
#                  virtualdomains, assign, the authentication store, the
#                  domain's directory)
#   rename edits   the line edits of a domain rename, run in process
#                  (rcpthosts, virtualdomains, assign)
# each as a whole run of bench/qmail_files_driver, against a bare copy of the
# same files (read, write, rename) by the same driver: assign alone for the
# record, rcpthosts + virtualdomains + assign for the other two. Prints the
# median wall-clock and CPU milliseconds and the ratios (goal: at most 1.5).
# Every replaced file is flushed before its rename and its directory after
# it, so that a power cut leaves the old or the new content: the same bare
# copy with those two flushes ("synced copy") is the second reference, and
# the third column gives the ratio to it.
#
#   bench/qmail_files_bench.sh [--on-disk <dir>] <release-build-dir> [repetitions] [record counts...]
#
# By default the files live on tmpfs, where a flush costs nothing. With
# --on-disk they live in fresh folders under <dir>, which must be on a disk
# (ext4, say), so that the flushes reach the device and their price shows.
#
# Runs as root in private mount and host-name namespaces: tmpfs (or the
# folders under <dir>) over /var/qmail and /var/lib/crelm, tmpfs over
# /run/sorvane (sorvane makes its lock
# directory there) and /etc/qvt, passwd and group with
# popuser (and nofiles, the authentication store's group)
# and a hosts file that names the host, so that the host is not touched.
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
driver="$build/bench/qmail_files_driver"
if [ ! -x "$driver" ]; then
    echo "$0: $driver not built (cmake --build $1 --target qmail_files_driver)" >&2
    exit 2
fi
repetitions="${2:-7}"
shift $(($# >= 2 ? 2 : 1))
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(10000 100000 1000000)

if [ -z "${QMAIL_FILES_BENCH_INSIDE:-}" ]; then
    if [ "$(id -u)" != 0 ]; then
        echo "$0: must run as root (private mount namespace)" >&2
        exit 2
    fi
    QMAIL_FILES_BENCH_INSIDE=1 exec unshare --mount --uts --propagation private -- \
        bash "$0" ${on_disk:+--on-disk "$on_disk"} "$build" "$repetitions" "${counts[@]}"
fi

disk_trees=
if [ -n "$on_disk" ]; then
    disk_trees=$(mktemp -d "$on_disk/qmail-files-bench.XXXXXX")
    trap 'rm -rf "$disk_trees"' EXIT
fi
for tree in /var/qmail /var/lib/crelm /run/sorvane /etc/qvt; do
    mkdir -p "$tree"
    if [ -n "$disk_trees" ] && { [ "$tree" = /var/qmail ] || [ "$tree" = /var/lib/crelm ]; }; then
        mkdir -p "$disk_trees$tree"
        mount --bind "$disk_trees$tree" "$tree"
    else
        mount -t tmpfs -o size=2g tmpfs "$tree"
    fi
done
# The lock directory must be root's alone (a tmpfs starts world-writable).
chmod 0700 /run/sorvane
echo "files on $(findmnt -n -o FSTYPE --target /var/qmail) ($(findmnt -n -o SOURCE --target /var/qmail))"
mkdir -m 0755 /var/qmail/control /var/qmail/users /var/qmail/mailnames
private=$(mktemp -d "${TMPDIR:-/tmp}/qmail-files-bench.XXXXXX")
trap 'rm -rf "$private" ${disk_trees:+"$disk_trees"}' EXIT
grep -v '^popuser:' /etc/passwd > "$private/passwd"
echo 'popuser:x:2110:2110::/var/qmail/popuser:/bin/false' >> "$private/passwd"
mount --bind "$private/passwd" /etc/passwd
grep -v -e '^popuser:' -e '^nofiles:' /etc/group > "$private/group"
printf 'popuser:x:2110:\nnofiles:x:2111:\n' >> "$private/group"
mount --bind "$private/group" /etc/group
hostname bench
printf '127.0.0.1 localhost\n192.0.2.7 bench.example bench\n' > "$private/hosts"
mount --bind "$private/hosts" /etc/hosts

domains=10000
target=bench-target.example
mailnames=/var/qmail/mailnames

# "<wall> <cpu>" milliseconds of one run of the command: the CPU time (user
# + system) is what load from other processes on the machine disturbs least.
TIMEFORMAT='%R %U %S'
elapsed_ms() {
    local times
    times=$( { time "$@" > /dev/null; } 2>&1 )
    echo "$times" | awk '{ printf "%.3f %.3f\n", $1 * 1000, ($2 + $3) * 1000 }'
}

median() {
    sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

check() {
    if ! "$@"; then
        echo "$0: check failed: $*" >&2
        exit 1
    fi
}

# The files of a server with <records> mail names over 10,000 domains, plus
# the target domain with 10 mail names and an alias each; saved beside
# them so that every run starts from the same content.
make_files() {
    awk -v n="$1" -v d="$domains" -v t="$target" -v m="$mailnames" '
    BEGIN {
        ids = "popuser:2110:2110:"
        for (i = 0; i < 10; i++) {
            printf "=%s-alias%d:%s%s/%s/name%d:::\n", t, i, ids, m, t, i
            printf "=%s-name%d:%s%s/%s/name%d:::\n", t, i, ids, m, t, i
        }
        printf "+%s:%s%s/%s:::\n", t, ids, m, t
        for (i = 0; i < n; i++)
            printf "=domain%05d.example-user%07d:%s%s/domain%05d.example/user%07d:::\n", i % d, i, ids, m, i % d, i
        for (i = 0; i < d; i++)
            printf "+domain%05d.example:%s%s/domain%05d.example:::\n", i, ids, m, i
        print "."
    }' > /var/qmail/users/assign
    {
        echo localhost
        awk -v d="$domains" 'BEGIN { for (i = 0; i < d; i++) printf "domain%05d.example\n", i }'
        echo "$target"
    } > /var/qmail/control/rcpthosts
    {
        awk -v d="$domains" 'BEGIN { for (i = 0; i < d; i++) printf "domain%05d.example:domain%05d.example\n", i, i }'
        echo "$target:$target"
    } > /var/qmail/control/virtualdomains
    echo localhost > /var/qmail/control/locals
    chmod 0644 /var/qmail/users/assign /var/qmail/control/*
    mkdir -p /var/qmail/saved
    cp -p /var/qmail/users/assign /var/qmail/control/rcpthosts /var/qmail/control/virtualdomains \
        /var/qmail/control/locals /var/qmail/saved/
}

restore_files() {
    cp -p /var/qmail/saved/assign /var/qmail/users/assign
    cp -p /var/qmail/saved/rcpthosts /var/qmail/saved/virtualdomains /var/qmail/saved/locals /var/qmail/control/
    rm -rf "$mailnames/$target" "$mailnames/renamed-target.example"
    mkdir -p "$mailnames/$target"
    for i in 0 1 2 3 4 5 6 7 8 9; do mkdir -p "$mailnames/$target/name$i/Maildir"; done
}

bench_size() {
    local records=$1
    make_files "$records"
    restore_files
    local control=/var/qmail/control
    local -a copy_assign=() synced_assign=() add=() copy_three=() synced_three=() remove=() rename=()
    local r
    for ((r = 0; r < repetitions; r++)); do
        copy_assign+=("$(elapsed_ms "$driver" copy /var/qmail/users/assign)")
        synced_assign+=("$(elapsed_ms "$driver" synced-copy /var/qmail/users/assign)")
        add+=("$(elapsed_ms "$driver" add-record newname "$target")")
        check test "$(head -n 1 /var/qmail/users/assign)" = \
            "=$target-newname:popuser:2110:2110:$mailnames/$target/newname:::"
        check test "$(tail -n 1 /var/qmail/users/assign)" = "."
        restore_files
        copy_three+=("$(elapsed_ms "$driver" copy $control/rcpthosts $control/virtualdomains /var/qmail/users/assign)")
        synced_three+=("$(elapsed_ms "$driver" synced-copy $control/rcpthosts $control/virtualdomains \
            /var/qmail/users/assign)")
        remove+=("$(elapsed_ms "$driver" remove-domain "$target")")
        check test "$(grep -c "$target" /var/qmail/users/assign $control/rcpthosts $control/virtualdomains | \
            awk -F: '{ s += $2 } END { print s }')" = 0
        check test ! -e "$mailnames/$target"
        restore_files
        rename+=("$(elapsed_ms "$driver" rename-edits "$target" renamed-target.example)")
        check test "$(grep -c "$target" /var/qmail/users/assign $control/rcpthosts $control/virtualdomains | \
            awk -F: '{ s += $2 } END { print s }')" = 0
        check test "$(grep -c 'renamed-target' /var/qmail/users/assign)" = 21
        restore_files
    done
    report "$records" "${copy_assign[*]}" "${synced_assign[*]}" "${add[*]}" "${copy_three[*]}" "${synced_three[*]}" \
        "${remove[*]}" "${rename[*]}"
}

# Medians of the wall and CPU times of each kind of run, and their ratios to
# the bare copy of the files that the run rewrites.
report() {
    local records=$1
    shift
    local -a wall=() cpu=()
    local series
    for series in "$@"; do
        wall+=("$(printf '%s %s\n' $series | awk '{ print $1 }' | median)")
        cpu+=("$(printf '%s %s\n' $series | awk '{ print $2 }' | median)")
    done
    awk -v n="$records" -v bytes="$(stat -c %s /var/qmail/users/assign)" -v reps="$repetitions" \
        -v w="${wall[*]}" -v c="${cpu[*]}" 'BEGIN {
        split(w, W, " "); split(c, C, " ")
        printf "%d records (assign %d bytes), median of %d runs\n", n, bytes, reps
        printf "  %-46s %8s %6s %6s  %8s %6s %6s\n", "", "wall ms", "/copy", "/sync", "cpu ms", "/copy", "/sync"
        line("bare copy of assign", 1, 1, 2)
        line("synced copy of assign", 2, 1, 2)
        line("add record", 3, 1, 2)
        line("bare copy of rcpthosts+virtualdomains+assign", 4, 4, 5)
        line("synced copy of the three", 5, 4, 5)
        line("remove domain (10 mail names)", 6, 4, 5)
        line("rename edits (in-process line editor)", 7, 4, 5)
    }
    function line(name, i, base, synced) {
        printf "  %-46s %8.1f %5.2fx %5.2fx  %8.1f %5.2fx %5.2fx\n", name, W[i], W[i] / W[base], W[i] / W[synced],
               C[i], C[i] / C[base], C[i] / C[synced]
    }'
}

"$driver" init-stores
for count in "${counts[@]}"; do
    bench_size "$count"
done
