#!/bin/bash
# One login by sorvane-auth, as a whole process, against its floor in the
# same run: bench/auth_floor_lookup, the same process start with one indexed
# lookup of the login's row and nothing else. Both run /bin/true in their
# place on success, as sorvane-auth runs Dovecot's reply program. The store
# holds N logins (every one with the same enciphered password, as sorvane
# writes it), spread over N/100 domains, each with its "=" record in
# users/cdb and its domain in virtualdomains. The floor loads the same
# shared libraries at start. Prints each one's CPU time (user + system,
# minimum and median: what a loaded machine moves least) and median
# wall-clock time, and the ratios (goal: at most 1.5 at every size, and flat
# as the store grows).
#
#   bench/auth_bench.sh <release-build-dir> [runs] [login counts...]   (default: 300 10000 100000 1000000)
#
# Runs as root in a private mount namespace: tmpfs over /var/qmail,
# /var/lib/crelm, /etc/qvt and /opt/qvt; passwd and group with popuser and
# nofiles. No system path of the machine is touched.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 <release-build-dir> [runs] [login counts...]" >&2
    exit 2
fi
build="$(cd "$1" && pwd)"
. "$(cd "$(dirname "$0")" && pwd)/lib.sh"
auth="$build/src/sorvane-auth"
floor="$build/bench/auth_floor_lookup"
sorvane="$build/src/sorvane"
stores_setup="$build/tests/mail_stores_setup"
for program in "$auth" "$floor" "$sorvane" "$stores_setup"; do
    [ -x "$program" ] || { echo "$0: $program not built" >&2; exit 2; }
done
runs="${2:-300}"
shift $(($# >= 2 ? 2 : 1))
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(10000 100000 1000000)

if [ -z "${AUTH_BENCH_INSIDE:-}" ]; then
    if [ "$(id -u)" != 0 ]; then
        echo "$0: must run as root (private mount namespace)" >&2
        exit 2
    fi
    AUTH_BENCH_INSIDE=1 exec unshare --mount --propagation private -- bash "$0" "$build" "$runs" "${counts[@]}"
fi

private=$(mktemp -d "${TMPDIR:-/tmp}/auth-bench.XXXXXX")
trap 'rm -rf "$private"' EXIT
bench_mail_users "$private"

fresh_server() {
    for tree in /var/qmail /var/lib/crelm /etc/qvt /opt/qvt /run/sorvane; do
        while mountpoint -q "$tree"; do umount -l "$tree"; done
        mkdir -p "$tree"
        mount -t tmpfs -o "size=50%,mode=0755" tmpfs "$tree"
    done
    chmod 0700 /run/sorvane
    mkdir -p /var/qmail/bin /var/qmail/control /var/qmail/users /var/lib/crelm/mail/userdb \
        /var/lib/crelm/mail/handlers /var/lib/crelm/mail/auth /opt/qvt/admin/sbin
    printf '#!/bin/sh\nexit 0\n' > /var/qmail/bin/qmail-newu
    printf '#!/bin/sh\nexit 0\n' > /opt/qvt/admin/sbin/crelmrc
    chmod 0755 /var/qmail/bin/qmail-newu /opt/qvt/admin/sbin/crelmrc
    printf 'localhost\n' > /var/qmail/control/locals
    : > /var/qmail/control/rcpthosts
    : > /var/qmail/control/virtualdomains
    printf '.\n' > /var/qmail/users/assign
    mkdir -m 0751 /var/qmail/mailnames
    chown popuser:popuser /var/qmail/mailnames
    printf '| /usr/bin/deliverquota ./Maildir\n' > /var/qmail/mailnames/.default_delivery
    printf 'CRELM_MAILNAMES_D /var/qmail/mailnames\n' > /etc/qvt/qvt.conf
    "$stores_setup"
}

echo "Microseconds per login of $runs runs after 20 warm-up runs, warm cache: CPU time (user + system) of the"
echo "process, minimum (median), which a loaded machine barely moves; and the median wall-clock time."
echo "| logins in the store | sorvane-auth CPU | floor CPU | ratio min (median) | sorvane-auth wall | floor wall | ratio |"
echo "|---|---|---|---|---|---|---|"
for count in "${counts[@]}"; do
    fresh_server
    python3 - "$sorvane" "$auth" "$floor" "$runs" "$count" "$private" <<'PY'
import json, os, sqlite3, statistics, struct, subprocess, sys, time

sorvane, auth, floor, runs, count = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4]), int(sys.argv[5])
private = sys.argv[6]
PASSWORD = "Bench-pass 1"
AUTH_DB = "/var/lib/crelm/mail/auth/passwd.db"
domains = max(1, count // 100)


def domain_name(d):
    return "d%05d.bench.test" % d


def mail_name(n):
    return "u%07d" % n


# The enciphered password, as sorvane writes it: one mailbox made by sorvane.
d0 = "--domain-name=" + domain_name(0)
mailbox = [{"name": mail_name(0), "aliases": []}]
for args, mails in ((["--add-domain", d0], []), (["--add-mailname", d0, "--mailname=" + mail_name(0)], []),
                    (["--add-mailbox", d0, "--mailname=" + mail_name(0)], mailbox)):
    document = json.dumps({"domain": {"name": domain_name(0), "dom_aliases": [], "mails": mails}})
    done = subprocess.run([sorvane] + args + ["--wait-stdin"], input=document,
                          env=dict(os.environ, QVT_PASSWORD=PASSWORD),
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit("sorvane %s failed: %s%s" % (" ".join(args), done.stdout, done.stderr))
db = sqlite3.connect(AUTH_DB)
stored = db.execute("SELECT userPassword FROM users").fetchone()[0]
db.execute("DELETE FROM domains")
db.executemany("INSERT INTO domains (id, name, status) VALUES (?, ?, 0)",
               ((d + 1, domain_name(d)) for d in range(domains)))
db.executemany("INSERT INTO users (dom_id, name, userPassword, status) VALUES (?, ?, ?, 0)",
               ((n % domains + 1, mail_name(n), stored) for n in range(count)))
db.commit()
db.close()

with open("/var/qmail/control/virtualdomains", "w") as f:
    f.writelines("%s:%s\n" % (domain_name(d), domain_name(d)) for d in range(domains))


def cdb_hash(key):
    h = 5381
    for byte in key:
        h = ((h << 5) + h) & 0xFFFFFFFF
        h ^= byte
    return h


# users/cdb in qmail-newu's format: "!<domain>-<name>\0" -> user\0uid\0gid\0home\0dash\0ext\0
buckets = [[] for _ in range(256)]
records = bytearray(2048)
for n in range(count):
    domain = domain_name(n % domains)
    key = ("!%s-%s" % (domain, mail_name(n))).encode() + b"\0"
    value = ("popuser\0002110\0002110\0/var/qmail/mailnames/%s/%s\0\0\0" % (domain, mail_name(n))).encode()
    h = cdb_hash(key)
    buckets[h & 255].append((h, len(records)))
    records += struct.pack("<II", len(key), len(value)) + key + value
header = bytearray()
for bucket in buckets:
    slots = len(bucket) * 2
    header += struct.pack("<II", len(records), slots)
    table = [(0, 0)] * slots
    for h, position in bucket:
        slot = (h >> 8) % slots
        while table[slot][1]:
            slot = (slot + 1) % slots
        table[slot] = (h, position)
    records += b"".join(struct.pack("<II", h, p) for h, p in table)
records[:2048] = header
with open("/var/qmail/users/cdb", "wb") as f:
    f.write(records)

login = "%s@%s" % (mail_name(count // 2), domain_name((count // 2) % domains))
with open(private + "/input", "wb") as f:
    f.write(login.encode() + b"\0" + PASSWORD.encode() + b"\0")
fd = os.open(private + "/input", os.O_RDONLY)
if fd != 3:
    os.dup2(fd, 3)
    os.close(fd)


def once(program):
    """Wall-clock and CPU (user + system) microseconds of one whole process,
    /bin/true in its place included."""
    os.lseek(3, 0, os.SEEK_SET)
    started = time.perf_counter()
    child = subprocess.Popen([program, "/bin/true"], pass_fds=(3,), stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    elapsed = time.perf_counter() - started
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit("%s: status %d" % (program, child.returncode))
    return elapsed * 1e6, (usage.ru_utime + usage.ru_stime) * 1e6


for program in (auth, floor):
    for _ in range(20):
        once(program)
wall = {auth: [], floor: []}
cpu = {auth: [], floor: []}
for _ in range(runs):
    # interleaved, so that both meet the same load of the machine
    for program in (auth, floor):
        w, c = once(program)
        wall[program].append(w)
        cpu[program].append(c)
med = statistics.median
print("| %d | %.0f (%.0f) | %.0f (%.0f) | %.2f (%.2f) | %.0f | %.0f | %.2f |" % (
    count, min(cpu[auth]), med(cpu[auth]), min(cpu[floor]), med(cpu[floor]), min(cpu[auth]) / min(cpu[floor]),
    med(cpu[auth]) / med(cpu[floor]), med(wall[auth]), med(wall[floor]), med(wall[auth]) / med(wall[floor])))
PY
done
