#!/usr/bin/env python3
"""Builds and installs qmail once into a cache directory of the build tree.

    build_qmail.py <qmail-source-dir> <cache-dir>

The installed tree goes to <cache>/tree (laid out for /var/qmail). qmail
compiles its users' ids into its programs, and its installer creates the
users when they are missing: it runs here with a private, writable /etc (an
overlay), so the machine's own user database is left alone, and the users it
made are kept in <cache>/passwd and <cache>/group for the suite's namespace.
A stamp of the source's checksum makes later runs reuse the tree.
"""
import hashlib
import os
import shutil
import subprocess
import sys
import tempfile

QMAIL_USERS = ("alias", "qmaild", "qmaill", "qmailp", "qmailq", "qmailr", "qmails")
QMAIL_GROUPS = ("nofiles", "qmail")


def checksum(source):
    digest = hashlib.sha256()
    for name in ("install-qmail", "notqmail.tar.gz"):
        with open(os.path.join(source, name), "rb") as f:
            digest.update(f.read())
    return digest.hexdigest()


# Runs in a private mount namespace: an overlay makes /etc writable without
# changing it, install-qmail builds and installs, and the qmail users' lines
# are copied out.
INSIDE = r'''
set -eu
state=$1 source=$2 dest=$3 cache=$4
mkdir -p "$state/upper" "$state/work"
mount -t overlay overlay -o "lowerdir=/etc,upperdir=$state/upper,workdir=$state/work" /etc
"$source/install-qmail" "$dest" > "$state/install.log" 2>&1 || { cat "$state/install.log" >&2; exit 1; }
users='^(alias|qmaild|qmaill|qmailp|qmailq|qmailr|qmails):'
groups='^(nofiles|qmail):'
grep -E "$users" /etc/passwd > "$cache/passwd.new"
grep -E "$groups" /etc/group > "$cache/group.new"
'''


def main():
    source, cache = sys.argv[1], sys.argv[2]
    os.makedirs(cache, exist_ok=True)
    stamp_path = os.path.join(cache, "stamp")
    wanted = checksum(source)
    tree = os.path.join(cache, "tree")
    if os.path.isdir(tree) and os.path.exists(stamp_path):
        with open(stamp_path) as f:
            if f.read().strip() == wanted:
                return 0
    print("mailserver: building qmail into %s" % tree, flush=True)
    for old in (tree, tree + ".new"):
        shutil.rmtree(old, ignore_errors=True)
    with tempfile.TemporaryDirectory(prefix="qmail-etc.") as state:
        subprocess.run(["unshare", "--mount", "--propagation", "private", "sh", "-c", INSIDE, "build-qmail",
                        state, source, tree + ".new", cache], check=True)
    for name, wanted_names in (("passwd", QMAIL_USERS), ("group", QMAIL_GROUPS)):
        with open(os.path.join(cache, name + ".new")) as f:
            found = {line.split(":")[0] for line in f if line.strip()}
        if found != set(wanted_names):
            sys.exit("mailserver: qmail's installer did not leave the %s entries %s (found %s)"
                     % (name, sorted(wanted_names), sorted(found)))
        os.replace(os.path.join(cache, name + ".new"), os.path.join(cache, name))
    os.rename(tree + ".new", tree)
    with open(stamp_path, "w") as f:
        f.write(wanted + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
