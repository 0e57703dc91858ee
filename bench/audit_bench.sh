#!/bin/bash
# The whole `sorvane-audit` process on a server of 10,000 domains and N mail
# names with mailboxes, against its floor in the same run, warm cache: the
# reference reader bench/audit_floor_reader, which reads once what the audit
# reads and nothing more (control files and assign whole, every entry of
# the mail names tree and the key directories looked at without following
# links, each dot-qmail and maildirsize file read whole, every row of the
# three stores). Prints the minimum and median milliseconds, the ratio (goal:
# at most 2) and each program's peak resident memory (goal: linear in the
# number of mail names).
#
#   bench/audit_bench.sh <release-build-dir> [runs] [mail name counts...]   (default: 5 10000 100000)
#
# The server: one domain and one mail name with a mailbox made by sorvane
# itself (with two messages delivered by deliverquota), then copied, byte for
# byte with the names replaced, to every other domain and mail name: assign
# with every record, rcpthosts and virtualdomains, the trees with .qmail,
# maildirsize and the messages, a quota row, an authentication row and a
# handler row per mail name, a domain-key directory per domain. The audit
# must find it clean before anything is timed. Mail names are spread evenly
# over the domains (fewer domains when there are fewer mail names).
#
# Each mail name costs about 27 inodes (its Maildir++ tree): 1,000,000 mail
# names need a tmpfs of 27 million inodes (about 25 GB of memory).
#
# Runs as root in private mount and PID namespaces (the commands' reload
# signal reaches no qmail-send of the machine): tmpfs over /var/qmail (a copy
# of the qmail tree that tests/mailserver/run builds into the build tree,
# when there is one, for the real qmail-newu), /var/lib/crelm,
# /etc/domainkeys, /etc/qvt, /opt/qvt and /run/sorvane; passwd and group
# with popuser.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 <release-build-dir> [runs] [mail name counts...]" >&2
    exit 2
fi
build="$(cd "$1" && pwd)"
. "$(cd "$(dirname "$0")" && pwd)/lib.sh"
sorvane="$build/src/sorvane"
audit="$build/src/sorvane-audit"
reader="$build/bench/audit_floor_reader"
stores_setup="$build/tests/mail_stores_setup"
for program in "$sorvane" "$audit" "$reader" "$stores_setup"; do
    [ -x "$program" ] || { echo "$0: $program not built" >&2; exit 2; }
done
runs="${2:-5}"
shift $(($# >= 2 ? 2 : 1))
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(10000 100000)

if [ -z "${AUDIT_BENCH_INSIDE:-}" ]; then
    if [ "$(id -u)" != 0 ]; then
        echo "$0: must run as root (private mount namespace)" >&2
        exit 2
    fi
    AUDIT_BENCH_INSIDE=1 exec unshare --mount --pid --fork --mount-proc --propagation private -- \
        bash "$0" "$build" "$runs" "${counts[@]}"
fi

qmail_tree="$build/mailserver-cache/tree"
private=$(mktemp -d "${TMPDIR:-/tmp}/audit-bench.XXXXXX")
trap 'rm -rf "$private"' EXIT
bench_mail_users "$private"

fresh_server() {  # <mail names>
    local inodes=$(($1 * 30 + 100000))
    for tree in /var/qmail /var/lib/crelm /etc/domainkeys /etc/qvt /opt/qvt /run/sorvane; do
        while mountpoint -q "$tree"; do umount -l "$tree"; done
        mkdir -p "$tree"
        mount -t tmpfs -o "size=90%,nr_inodes=$inodes,mode=0755" tmpfs "$tree"
    done
    # The lock directory must be root's alone.
    chmod 0700 /run/sorvane
    if [ -x "$qmail_tree/bin/qmail-newu" ]; then
        cp -a "$qmail_tree/." /var/qmail/
    else
        # no real qmail: a qmail-newu that leaves users/cdb newer than assign
        mkdir -p /var/qmail/bin /var/qmail/users
        printf '#!/bin/sh\n: > /var/qmail/users/cdb\n' > /var/qmail/bin/qmail-newu
        chmod 0755 /var/qmail/bin/qmail-newu
    fi
    mkdir -p /var/qmail/control /var/qmail/users /var/lib/crelm/mail/userdb /var/lib/crelm/mail/handlers \
        /var/lib/crelm/mail/auth /opt/qvt/admin/sbin
    printf 'localhost\nmail.bench.test\n' > /var/qmail/control/locals
    printf 'localhost\nmail.bench.test\n' > /var/qmail/control/rcpthosts
    : > /var/qmail/control/virtualdomains
    printf '.\n' > /var/qmail/users/assign
    chmod 0644 /var/qmail/control/locals /var/qmail/control/rcpthosts /var/qmail/control/virtualdomains \
        /var/qmail/users/assign
    mkdir -m 0751 /var/qmail/mailnames
    chown popuser:popuser /var/qmail/mailnames
    printf '| /usr/bin/deliverquota ./Maildir\n' > /var/qmail/mailnames/.default_delivery
    printf 'CRELM_MAILNAMES_D /var/qmail/mailnames\n' > /etc/qvt/qvt.conf
    # the panel's service helper: the reload and restart only succeed
    printf '#!/bin/sh\nexit 0\n' > /opt/qvt/admin/sbin/crelmrc
    chmod 0755 /opt/qvt/admin/sbin/crelmrc
    "$stores_setup"
}

echo "Milliseconds: minimum (median) of $runs runs after one warm-up run; peak resident memory in MiB."
echo "| domains | mail names | sorvane-audit | reference reader (audit_floor_reader) | ratio min (median) | audit peak RSS | reader peak RSS | generated in |"
echo "|---|---|---|---|---|---|---|---|"
for count in "${counts[@]}"; do
    fresh_server "$count"
    python3 - "$sorvane" "$audit" "$reader" "$runs" "$count" <<'PY'
import json, os, sqlite3, statistics, subprocess, sys, time

sorvane, audit, reader, runs, count = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4]), int(sys.argv[5])
domains = min(10000, count)
MAILNAMES = "/var/qmail/mailnames"
KEYS = "/etc/domainkeys"
QUOTA_DB = "/var/lib/crelm/mail/userdb/userdb.db"
HANDLERS_DB = "/var/lib/crelm/mail/handlers/handlers.db"
AUTH_DB = "/var/lib/crelm/mail/auth/passwd.db"
POPUSER = 2110
# The template: the first domain and its first mail name, made by sorvane.
TD, TN = "d00000.bench.test", "u0000000"
QUOTA = 104857600
MESSAGE = "From: someone@mail.bench.test\nSubject: hello\n\n" + "hello\n" * 40


def domain_name(d):
    return "d%05d.bench.test" % d


def mail_name(n):
    return "u%07d" % n


def names_of(d):
    """The mail names of domain d: every domains-th mail name."""
    return range(d, count, domains)


def run(argv, stdin="", env=None, cwd=None, user=None):
    environment = dict(os.environ)
    environment.update(env or {})
    prefix = ["setpriv", "--reuid=%d" % POPUSER, "--regid=%d" % POPUSER, "--clear-groups"] if user else []
    done = subprocess.run(prefix + argv, input=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          env=environment, cwd=cwd)
    if done.returncode != 0:
        sys.exit("%s failed (%d): %s%s" % (" ".join(argv), done.returncode, done.stdout, done.stderr))
    return done


def make_template():
    """One domain and one mail name with a mailbox, as the panel makes
    them, and two messages delivered into it."""
    def document(mails):
        return json.dumps({"domain": {"name": TD, "dom_aliases": [], "mails": mails}})
    # the mailbox's command gets the panel's picture with the mailbox and
    # its quota, which it writes to the quota store
    mailbox = [{"name": TN, "mbox_quota": QUOTA, "aliases": []}]
    d = "--domain-name=" + TD
    for args, mails in ((["--add-domain", d], []), (["--turn-on-domain", d, "--set-bounce"], []),
                        (["--add-mailname", d, "--mailname=" + TN, "--disk-quota=%d" % QUOTA], []),
                        (["--add-mailbox", d, "--mailname=" + TN], mailbox)):
        run([sorvane] + args + ["--wait-stdin"], stdin=document(mails), env={"QVT_PASSWORD": "Bench-pass 1"})
    home = "%s/%s/%s" % (MAILNAMES, TD, TN)
    for _ in range(2):
        run(["/usr/sbin/deliverquota", "./Maildir"], stdin=MESSAGE, cwd=home, user=True)


def tree_entries(root, skip=None):
    """Every entry below root (top-down, each directory before what it
    holds): (relative path, is a directory, mode, uid, gid, content)."""
    entries = []
    for directory, dirs, files in os.walk(root):
        if skip is not None and directory == root:
            dirs[:] = [x for x in dirs if x != skip]
        dirs.sort()
        for name in sorted(dirs) + sorted(files):
            path = os.path.join(directory, name)
            info = os.lstat(path)
            content = None
            if not os.path.isdir(path):
                with open(path, "rb") as f:
                    content = f.read()
            entries.append((os.path.relpath(path, root), content is None, info.st_mode & 0o7777, info.st_uid,
                            info.st_gid, content))
    return entries


def put(path, entry, domain, name):
    _, is_dir, mode, uid, gid, content = entry
    if is_dir:
        os.mkdir(path, mode)
        os.chown(path, uid, gid)
        return
    fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, mode)
    os.write(fd, content.replace(TD.encode(), domain.encode()).replace(TN.encode(), name.encode()))
    os.fchown(fd, uid, gid)
    os.close(fd)


def copy_trees():
    domain_entries = tree_entries("%s/%s" % (MAILNAMES, TD), skip=TN)
    home = tree_entries("%s/%s/%s" % (MAILNAMES, TD, TN))
    top = os.lstat("%s/%s" % (MAILNAMES, TD))
    top_home = os.lstat("%s/%s/%s" % (MAILNAMES, TD, TN))
    top_entry = ("", True, top.st_mode & 0o7777, top.st_uid, top.st_gid, None)
    home_entry = ("", True, top_home.st_mode & 0o7777, top_home.st_uid, top_home.st_gid, None)
    for d in range(domains):
        domain = domain_name(d)
        root = "%s/%s" % (MAILNAMES, domain)
        if d != 0:
            put(root, top_entry, domain, "")
            for entry in domain_entries:
                put(os.path.join(root, entry[0]), entry, domain, "")
        for n in names_of(d):
            if d == 0 and n == 0:
                continue
            name = mail_name(n)
            put(os.path.join(root, name), home_entry, domain, name)
            for entry in home:
                put(os.path.join(root, name, entry[0]), entry, domain, name)
        keys = "%s/%s" % (KEYS, domain)
        os.mkdir(keys, 0o750)
        fd = os.open(keys + "/default", os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
        os.write(fd, ("private key of %s\n" % domain).encode())
        os.close(fd)


def copy_lines(path):
    """Writes path again with each line of the template domain given for
    every domain (a line that names the template mail name for every mail
    name of the domain), in the template line's place."""
    with open(path) as f:
        lines = f.read().splitlines(True)
    out = []
    generated = False
    for line in lines:
        if TD not in line:
            out.append(line)
            continue
        if generated:
            continue
        generated = True
        own = [x for x in lines if TD in x]
        for d in range(domains):
            domain = domain_name(d)
            for template in own:
                if TN in template:
                    out.extend(template.replace(TD, domain).replace(TN, mail_name(n)) for n in names_of(d))
                else:
                    out.append(template.replace(TD, domain))
    info = os.stat(path)
    with open(path + ".bench", "w") as f:
        f.writelines(out)
    os.chmod(path + ".bench", info.st_mode & 0o7777)
    os.chown(path + ".bench", info.st_uid, info.st_gid)
    os.rename(path + ".bench", path)


def fill_stores():
    quotas = sqlite3.connect(QUOTA_DB)
    ((quota,),) = quotas.execute("SELECT quota FROM mailbox_quota WHERE domain_name=? AND mailbox_name=?", (TD, TN))
    quotas.executemany("INSERT INTO mailbox_quota (domain_name, mailbox_name, quota) VALUES (?, ?, ?)",
                       ((domain_name(d), mail_name(n), quota) for d in range(domains) for n in names_of(d)
                        if n != 0))
    quotas.commit()
    quotas.close()
    auth = sqlite3.connect(AUTH_DB)
    ((status,),) = auth.execute("SELECT status FROM domains WHERE name=?", (TD,))
    auth.executemany("INSERT INTO domains (name, status) VALUES (?, ?)",
                     ((domain_name(d), status) for d in range(1, domains)))
    ids = dict(auth.execute("SELECT name, id FROM domains"))
    ((password, plain, user_status),) = auth.execute(
        "SELECT userPassword, cmusaslsecretPLAIN, status FROM users WHERE name=?", (TN,))
    auth.executemany("INSERT INTO users (dom_id, name, userPassword, cmusaslsecretPLAIN, status) "
                     "VALUES (?, ?, ?, ?, ?)",
                     ((ids[domain_name(d)], mail_name(n), password, plain, user_status)
                      for d in range(domains) for n in names_of(d) if n != 0))
    auth.commit()
    auth.close()
    # a spam filter for every address, as the panel's handlers have them
    handlers = sqlite3.connect(HANDLERS_DB)
    handlers.executemany(
        "INSERT OR REPLACE INTO handlers(priority, name, type, address, queue, executable, context, protected, "
        "enabled) VALUES(10, 'spam-filter', 2, LOWER(?), 1, '/usr/lib/crelm-9.0/handlers/spam-filter', "
        "'level=5', 0, 1)",
        (("%s@%s" % (mail_name(n), domain_name(d)),) for d in range(domains) for n in names_of(d)))
    handlers.commit()
    handlers.close()


def timed(argv):
    """(milliseconds, status, standard output, standard error) of one run."""
    start = time.perf_counter()
    child = subprocess.Popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out, err = child.communicate()
    elapsed = (time.perf_counter() - start) * 1000
    return elapsed, child.returncode, out.decode(), err.decode()


started = time.monotonic()
make_template()
copy_trees()
for path in ("/var/qmail/control/rcpthosts", "/var/qmail/control/virtualdomains", "/var/qmail/control/locals",
             "/var/qmail/users/assign") + (("/var/qmail/control/rejectnonexist",)
                                           if os.path.exists("/var/qmail/control/rejectnonexist") else ()):
    copy_lines(path)
fill_stores()
run(["/var/qmail/bin/qmail-newu"])
generated = time.monotonic() - started

# The audit must find the server clean; a finding means the copy is not in
# sorvane's forms (or the audit is wrong), and nothing is timed.
_, status, out, err = timed([audit])
if status != 0:
    sys.exit("sorvane-audit does not find the generated server clean (status %d):\n%s%s"
             % (status, "\n".join(out.splitlines()[:20]), err))


def peak(argv):
    """The peak resident memory of one run of argv alone, in KiB: measured
    in a child of its own, so that no other run's peak counts."""
    probe = ("import resource, subprocess, sys; subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, "
             "stderr=subprocess.DEVNULL, check=True); "
             "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
    return int(subprocess.run([sys.executable, "-c", probe] + argv, stdout=subprocess.PIPE, check=True,
                              text=True).stdout)


times = {"audit": [], "reader": []}
reader_said = ""
for number in range(runs + 1):
    audit_ms, status, out, err = timed([audit])
    if status != 0:
        sys.exit("sorvane-audit: status %d: %s%s" % (status, out[-2000:], err))
    reader_ms, status, reader_said, err = timed([reader])
    if status != 0:
        sys.exit("audit_floor_reader: status %d: %s" % (status, err))
    if number > 0:
        times["audit"].append(audit_ms)
        times["reader"].append(reader_ms)
best = {k: min(v) for k, v in times.items()}
mid = {k: statistics.median(v) for k, v in times.items()}
print("| %d | %d | %.0f (%.0f) | %.0f (%.0f) | %.2f (%.2f) | %.1f | %.1f | %.0f s |" % (
    domains, count, best["audit"], mid["audit"], best["reader"], mid["reader"], best["audit"] / best["reader"],
    mid["audit"] / mid["reader"], peak([audit]) / 1024.0, peak([reader]) / 1024.0, generated), flush=True)
print("  audit: %s  reader: %s" % (out.strip().splitlines()[-1], reader_said.strip()), file=sys.stderr, flush=True)
PY
done
