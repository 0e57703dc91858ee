# Pieces the bench scripts share; sourced by them ("$0" is the script).

# One line and status 2 unless root (the benches take a private mount
# namespace).
bench_require_root() {
    if [ "$(id -u)" != 0 ]; then
        echo "$0: must run as root (private mount namespace)" >&2
        exit 2
    fi
}

# The qmail tree that tests/mailserver/run builds into build directory $1,
# or one line and status 2 when it has not been built.
bench_qmail_tree() {
    local tree="$1/mailserver-cache/tree"
    if [ ! -x "$tree/bin/qmail-newu" ]; then
        echo "$0: no qmail in $tree: run tests/mailserver/run $1 first" >&2
        exit 2
    fi
    printf '%s\n' "$tree"
}

# A tmpfs of size $1 over each directory after it (made when missing).
bench_mount_tmpfs() {
    local size=$1 tree
    shift
    for tree in "$@"; do
        mkdir -p "$tree"
        mount -t tmpfs -o "size=$size" tmpfs "$tree"
    done
}

# passwd and group with the mail owner popuser (2110) and the stores' group
# nofiles (2111), written into directory $1 and bound over the system's
# inside the namespace.
bench_mail_users() {
    grep -v '^popuser:' /etc/passwd > "$1/passwd"
    echo 'popuser:x:2110:2110::/var/qmail/popuser:/bin/false' >> "$1/passwd"
    mount --bind "$1/passwd" /etc/passwd
    grep -v -e '^popuser:' -e '^nofiles:' /etc/group > "$1/group"
    printf 'popuser:x:2110:\nnofiles:x:2111:\n' >> "$1/group"
    mount --bind "$1/group" /etc/group
}
