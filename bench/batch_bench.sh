#!/bin/bash
# A panel's bulk job in one `sorvane --batch`: N mail names, each with its
# mailbox (an --add-mailname and an --add-mailbox with a password and the
# domain's document), on a server whose user assignment table holds R
# records, with the real qmail-newu (from the qmail tree that
# tests/mailserver/run builds into the build tree). References in the same
# run, from the same files:
#   - the bulk floor: the same end result made the cheapest way, in one
#     process: one rewrite of assign with the N records, one qmail-newu, N
#     bare Maildir++ trees with their .qmail, the N quota rows and the N
#     authentication rows in one transaction per store;
#   - N pairs of single commands, one process each (a sample of them timed,
#     scaled to N).
# Prints wall seconds, the CPU seconds of all the processes, the batch's
# largest resident set (kB) and the ratios (goal: within 2x of the floor,
# memory growing no faster than N).
#
#   bench/batch_bench.sh <release-build-dir> [N...] [-- R...]   (default: 1000 10000 -- 100000 1000000)
#
# BATCH_BENCH_WRAP="perf record -g -o <file> --" (or any such prefix) runs
# each batch under a profiler; the batch's figures then include its cost.
#
# Runs as root in a private mount namespace: tmpfs over /var/qmail (a copy of
# the installed qmail tree), /var/lib/crelm, /run/sorvane, /etc/qvt and
# /opt/qvt, passwd and group with popuser and nofiles, stand-ins for the
# reload signal and the service helper (a private overlay on /usr/bin).
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 <release-build-dir> [N...] [-- R...]" >&2
    exit 2
fi
build="$(cd "$1" && pwd)"
root="$(cd "$(dirname "$0")/.." && pwd)"
shift
sizes=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do sizes+=("$1"); shift; done
[ $# -gt 0 ] && shift
records=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(1000 10000)
[ ${#records[@]} -gt 0 ] || records=(100000 1000000)
. "$root/bench/lib.sh"
sorvane="$build/src/sorvane"
[ -x "$sorvane" ] || { echo "$0: $sorvane not built" >&2; exit 2; }

if [ -z "${BATCH_BENCH_INSIDE:-}" ]; then
    bench_require_root
    qmail_tree=$(bench_qmail_tree "$build")
    BATCH_BENCH_INSIDE=1 QMAIL_TREE="$qmail_tree" \
        exec unshare --mount --propagation private -- bash "$0" "$build" "${sizes[@]}" -- "${records[@]}"
fi

bench_mount_tmpfs 6g /var/qmail /var/lib/crelm /run/sorvane /etc/qvt /opt/qvt
chmod 0700 /run/sorvane
cp -a "$QMAIL_TREE/." /var/qmail/
mkdir -p /var/qmail/control /var/qmail/users /var/qmail/mailnames /var/qmail/saved /opt/qvt/admin/sbin
private=$(mktemp -d "${TMPDIR:-/tmp}/batch-bench.XXXXXX")
trap 'rm -rf "$private"' EXIT
bench_mail_users "$private"
echo 'CRELM_MAILNAMES_D /var/qmail/mailnames' > /etc/qvt/qvt.conf
printf '| /usr/bin/deliverquota ./Maildir\n' > /var/qmail/mailnames/.default_delivery
# The reload signal and the service helper succeed without acting: no
# qmail-send runs here.
mkdir -p "$private/usrbin/upper" "$private/usrbin/work"
mount -t overlay overlay -o "lowerdir=/usr/bin,upperdir=$private/usrbin/upper,workdir=$private/usrbin/work" /usr/bin
printf '#!/bin/sh\nexit 0\n' > /usr/bin/killall
printf '#!/bin/sh\nexit 0\n' > /opt/qvt/admin/sbin/crelmrc
chmod 0755 /usr/bin/killall /opt/qvt/admin/sbin/crelmrc
[ -e /usr/bin/deliverquota ] || ln -s /usr/sbin/deliverquota /usr/bin/deliverquota
mkdir -p /var/lib/crelm/mail/userdb /var/lib/crelm/mail/handlers /var/lib/crelm/mail/auth
sqlite3 /var/lib/crelm/mail/saved-userdb.db "CREATE TABLE IF NOT EXISTS mailbox_quota (domain_name TEXT NOT NULL,mailbox_name TEXT NOT NULL,quota TEXT NOT NULL,PRIMARY KEY (domain_name, mailbox_name));"
sqlite3 /var/lib/crelm/mail/saved-handlers.db "CREATE TABLE handlers (queue INTEGER, type INTEGER, enabled BOOLEAN, priority INTEGER, name VARCHAR(255) NOT NULL, address VARCHAR(2048) NOT NULL, executable VARCHAR(2048) NOT NULL, context VARCHAR(2048) NOT NULL, protected BOOLEAN NOT NULL default 0, CONSTRAINT uniq_entries_constaraint PRIMARY KEY (queue, type, name, address));CREATE INDEX idx1 ON handlers(queue, type, enabled, address);CREATE INDEX idx2 ON handlers(queue, type, enabled, address, priority);CREATE INDEX idx3 ON handlers(name, queue, type, address);CREATE INDEX idx4 ON handlers(name, queue, type);"
sqlite3 /var/lib/crelm/mail/saved-passwd.db "CREATE TABLE domains (  id     INTEGER PRIMARY KEY AUTOINCREMENT, name   VARCHAR(255) UNIQUE, status INTEGER NOT NULL DEFAULT 0);CREATE INDEX domains_name ON domains(name);CREATE TRIGGER fkd_users_domains_id  BEFORE DELETE ON domains  FOR EACH ROW BEGIN    DELETE FROM users WHERE dom_id = OLD.id;  END;CREATE TABLE users(  id           INTEGER PRIMARY KEY AUTOINCREMENT, dom_id       INTEGER NOT NULL, name         VARCHAR(255) NOT NULL, userPassword VARCHAR(255), cmusaslsecretPLAIN VARCHAR(255), status INT NOT NULL DEFAULT 0, UNIQUE(name, dom_id));CREATE INDEX users_name ON users(name);CREATE INDEX users_dom_id ON users(dom_id);CREATE TRIGGER fki_users_domains_id  BEFORE INSERT ON users  FOR EACH ROW BEGIN    SELECT RAISE(ROLLBACK, 'insert on table \"users\" violates foreign key constraint \"fk_domains_id\"')    WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END;CREATE TRIGGER fku_users_domains_id  BEFORE UPDATE ON users  FOR EACH ROW BEGIN    SELECT RAISE(ROLLBACK, 'update on table \"users\" violates foreign key constraint \"fk_domains_id\"')    WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END;"
head -c 32 /dev/urandom > /var/lib/crelm/mail/auth/passwd_db_key
chown root:nofiles /var/lib/crelm/mail/auth /var/lib/crelm/mail/auth/passwd_db_key
chmod 0750 /var/lib/crelm/mail/auth
chmod 0440 /var/lib/crelm/mail/auth/passwd_db_key

make_assign() {  # <records>: R mail-name records over 10,000 domains
    awk -v n="$1" -v m=/var/qmail/mailnames 'BEGIN {
        ids = "popuser:2110:2110:"
        for (i = 0; i < n; i++)
            printf "=domain%05d.example-user%07d:%s%s/domain%05d.example/user%07d:::\n", i % 10000, i, ids, m, i % 10000, i
        print "."
    }' > /var/qmail/saved/assign
    : > /var/qmail/saved/rcpthosts
    : > /var/qmail/saved/virtualdomains
    printf 'localhost\n' > /var/qmail/saved/locals
}

echo "Seconds (wall / CPU of every process), largest resident set of the batch's processes in kB."
echo "| assign records | N | sorvane --batch wall (CPU) | bulk floor wall (CPU) | N single pairs, scaled wall (CPU) | batch / floor wall (CPU) | batch / singles wall (CPU) | batch max RSS kB |"
echo "|---|---|---|---|---|---|---|---|"
for count in "${records[@]}"; do
    make_assign "$count"
    for n in "${sizes[@]}"; do
        python3 "$root/bench/batch_bench_run.py" "$sorvane" "$count" "$n" "$root/tests/mailserver"
    done
done
