#!/bin/bash
# Control-file benchmark: on a user assignment table of 10,000, 100,000 and
# 1,000,000 mail-name records (over 10,000 domains, whose lines fill
# rcpthosts and virtualdomains), in the same run with a warm cache, times
# every edit that the commands make of assign and the control files, each
# as a whole run of bench/qmail_files_driver calling the function that the
# command calls:
#   add record / add mail alias record   a record taken out and put back at
#                                        the top of assign
#   remove mail alias record             a record taken out of assign
#   remove mail name record              the record, the authentication row
#                                        and the mail name's directory
#   rename mail name                     the record, the directory and the
#                                        aliases' records
#   add domain / remove domain           rcpthosts, virtualdomains, assign
#                                        (remove: a domain with 10 mail
#                                        names and their aliases, the
#                                        authentication store, the tree)
#   domain off / domain on               rcpthosts, virtualdomains
#   add / remove domain alias            rcpthosts, virtualdomains, locals
#   rename edits                         the line edits of a domain rename,
#                                        run in process
# against a bare copy of the files the edit rewrites (read, write, rename)
# by the same driver, timed in the same run: assign alone, rcpthosts +
# virtualdomains, or those two and assign. Prints the median wall-clock and
# CPU milliseconds and the ratios (goal: at most 1.2).
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
    if ! times=$( { time "$@" > /dev/null 2> "$private/driver.err"; } 2>&1 ); then
        echo "$0: $* failed: $(cat "$private/driver.err")" >&2
        return 1
    fi
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
    rm -rf "$mailnames/$target" "$mailnames/renamed-target.example" "$mailnames/$new_domain"
    mkdir -p "$mailnames/$target"
    for i in 0 1 2 3 4 5 6 7 8 9; do mkdir -p "$mailnames/$target/name$i/Maildir"; done
}

# Each edit: its label, the set of files its bare copy copies (assign;
# rcpthosts + virtualdomains; or those two and assign), and the check of
# its result. A function "prepare_<name>" (if any) runs before each timed
# run, untimed.
edit_names=(add-record add-alias remove-alias remove-record rename-mailname add-domain remove-domain
            domain-off domain-on add-domain-alias remove-domain-alias rename-edits)
declare -A edit_label=(
    [add-record]="add record (mail name)"
    [add-alias]="add mail alias record"
    [remove-alias]="remove mail alias record"
    [remove-record]="remove mail name record"
    [rename-mailname]="rename mail name"
    [add-domain]="add domain"
    [remove-domain]="remove domain (10 mail names)"
    [domain-off]="domain off"
    [domain-on]="domain on"
    [add-domain-alias]="add domain alias"
    [remove-domain-alias]="remove domain alias"
    [rename-edits]="rename edits (in-process line editor)"
)
declare -A edit_files=(
    [add-record]=assign [add-alias]=assign [remove-alias]=assign [remove-record]=assign
    [rename-mailname]=assign [add-domain]=three [remove-domain]=three [domain-off]=two [domain-on]=two
    [add-domain-alias]=two [remove-domain-alias]=two [rename-edits]=three
)
ids=popuser:2110:2110
new_domain=bench-new.example
domain_alias=bench-alias.example

edit_args() {
    case $1 in
    add-record) echo add-record newname "$target" ;;
    add-alias) echo add-alias name0 "$target" newalias ;;
    remove-alias) echo remove-alias name0 "$target" alias0 ;;
    remove-record) echo remove-record name1 "$target" ;;
    rename-mailname) echo rename-mailname name2 "$target" renamed2 ;;
    add-domain) echo add-domain "$new_domain" ;;
    remove-domain) echo remove-domain "$target" ;;
    domain-off) echo domain-off "$target" ;;
    domain-on) echo domain-on "$target" ;;
    add-domain-alias) echo add-domain-alias "$target" "$domain_alias" ;;
    remove-domain-alias) echo remove-domain-alias "$target" "$domain_alias" ;;
    rename-edits) echo rename-edits "$target" renamed-target.example ;;
    esac
}

prepare_remove-domain-alias() {
    "$driver" add-domain-alias "$target" "$domain_alias" > /dev/null
}

# How many lines of the file are exactly the text.
lines_equal() {
    grep -cxF -- "$2" "$1" || true
}

check_edit() {
    local assign=/var/qmail/users/assign control=/var/qmail/control
    case $1 in
    add-record)
        check test "$(head -n 1 $assign)" = "=$target-newname:$ids:$mailnames/$target/newname:::" ;;
    add-alias)
        check test "$(head -n 1 $assign)" = "=$target-newalias:$ids:$mailnames/$target/name0:::" ;;
    remove-alias)
        check test "$(lines_equal $assign "=$target-alias0:$ids:$mailnames/$target/name0:::")" = 0 ;;
    remove-record)
        check test "$(lines_equal $assign "=$target-name1:$ids:$mailnames/$target/name1:::")" = 0
        check test ! -e "$mailnames/$target/name1" ;;
    rename-mailname)
        check test "$(head -n 1 $assign)" = "=$target-renamed2:$ids:$mailnames/$target/renamed2:::"
        check test "$(lines_equal $assign "=$target-name2:$ids:$mailnames/$target/name2:::")" = 0
        check test "$(lines_equal $assign "=$target-alias2:$ids:$mailnames/$target/renamed2:::")" = 1 ;;
    add-domain)
        check test "$(head -n 1 $assign)" = "+$new_domain:$ids:$mailnames/$new_domain:::"
        check test "$(tail -n 1 $control/rcpthosts)" = "$new_domain"
        check test "$(tail -n 1 $control/virtualdomains)" = "$new_domain:$new_domain" ;;
    remove-domain)
        check test "$(grep -c "$target" $assign $control/rcpthosts $control/virtualdomains | \
            awk -F: '{ s += $2 } END { print s }')" = 0
        check test ! -e "$mailnames/$target" ;;
    domain-off)
        check test "$(lines_equal $control/rcpthosts "$target")" = 0
        check test "$(lines_equal $control/virtualdomains "$target:$target")" = 0 ;;
    domain-on)
        # The domain's lines are taken out and put back at the end, where
        # they were.
        check cmp -s $control/rcpthosts /var/qmail/saved/rcpthosts
        check cmp -s $control/virtualdomains /var/qmail/saved/virtualdomains ;;
    add-domain-alias)
        check test "$(tail -n 1 $control/rcpthosts)" = "$domain_alias"
        check test "$(tail -n 1 $control/virtualdomains)" = "$domain_alias:$target" ;;
    remove-domain-alias)
        check cmp -s $control/rcpthosts /var/qmail/saved/rcpthosts
        check cmp -s $control/virtualdomains /var/qmail/saved/virtualdomains ;;
    rename-edits)
        check test "$(grep -c "$target" $assign $control/rcpthosts $control/virtualdomains | \
            awk -F: '{ s += $2 } END { print s }')" = 0
        check test "$(grep -c 'renamed-target' $assign)" = 21 ;;
    esac
}

files_of_set() {
    local control=/var/qmail/control
    case $1 in
    assign) echo /var/qmail/users/assign ;;
    two) echo $control/rcpthosts $control/virtualdomains ;;
    three) echo $control/rcpthosts $control/virtualdomains /var/qmail/users/assign ;;
    esac
}

bench_size() {
    local records=$1
    make_files "$records"
    restore_files
    local -A series=()
    local r set name
    for ((r = 0; r < repetitions; r++)); do
        for set in assign two three; do
            series[copy-$set]+="$(elapsed_ms "$driver" copy $(files_of_set $set)) "
            series[synced-$set]+="$(elapsed_ms "$driver" synced-copy $(files_of_set $set)) "
        done
        for name in "${edit_names[@]}"; do
            if declare -F "prepare_$name" > /dev/null; then
                "prepare_$name"
            fi
            series[$name]+="$(elapsed_ms "$driver" $(edit_args "$name")) "
            check_edit "$name"
            restore_files
        done
    done
    report "$records" series
}

# The median of every other field, from the first given.
median_of() {
    printf '%s\n' $1 | awk -v field="$2" 'NR % 2 == field' | median
}

# Medians of the wall and CPU times of each kind of run, and their ratios to
# the bare copy (and the synced copy) of the files that the run rewrites.
report() {
    local records=$1
    local -n runs=$2
    printf '%d records (assign %d bytes), median of %d runs\n' "$records" "$(stat -c %s /var/qmail/users/assign)" \
        "$repetitions"
    printf '  %-46s %8s %6s %6s  %8s %6s %6s\n' "" "wall ms" "/copy" "/sync" "cpu ms" "/copy" "/sync"
    local set name
    for set in assign two three; do
        line "bare copy of $(set_label $set)" "${runs[copy-$set]}" "${runs[copy-$set]}" "${runs[synced-$set]}"
        line "synced copy of $(set_label $set)" "${runs[synced-$set]}" "${runs[copy-$set]}" "${runs[synced-$set]}"
        for name in "${edit_names[@]}"; do
            [ "${edit_files[$name]}" = "$set" ] || continue
            line "${edit_label[$name]}" "${runs[$name]}" "${runs[copy-$set]}" "${runs[synced-$set]}"
        done
    done
}

set_label() {
    case $1 in
    assign) echo assign ;;
    two) echo rcpthosts+virtualdomains ;;
    three) echo rcpthosts+virtualdomains+assign ;;
    esac
}

# One row: the medians of a series and their ratios to the two copies.
line() {
    local name=$1 run=$2 copy=$3 synced=$4
    awk -v name="$name" -v w="$(median_of "$run" 1)" -v c="$(median_of "$run" 0)" \
        -v cw="$(median_of "$copy" 1)" -v cc="$(median_of "$copy" 0)" \
        -v sw="$(median_of "$synced" 1)" -v sc="$(median_of "$synced" 0)" 'BEGIN {
        printf "  %-46s %8.1f %5.2fx %5.2fx  %8.1f %5.2fx %5.2fx\n", name, w, w / cw, w / sw, c, c / cc, c / sc
    }'
}

"$driver" init-stores
for count in "${counts[@]}"; do
    bench_size "$count"
done
