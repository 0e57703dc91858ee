"""Reading the output of "strace -f -y": which files a run renamed into place,
appended to and flushed, in the order it did so."""
import os
import re

LINE = re.compile(r"^(?:(\d+) +)?(\w+)\((.*)\) += (-?\d+|\?)")
FD_ARG = re.compile(r"^(AT_FDCWD|-?\d+)(?:<(.*?)>)?$")

# The system calls the power-loss audit needs.
TRACED = "trace=fsync,fdatasync,rename,renameat,renameat2,write,pwrite64,writev,ftruncate,unlink,unlinkat"


def split_args(text):
    """Splits strace's argument text at top-level commas."""
    args, depth, quoted, current, escape = [], 0, False, "", False
    for char in text:
        if escape:
            current += char
            escape = False
            continue
        if char == "\\" and quoted:
            current += char
            escape = True
            continue
        if char == '"':
            quoted = not quoted
        elif not quoted and char in "[{<":
            depth += 1
        elif not quoted and char in "]}>":
            depth -= 1
        if char == "," and depth == 0 and not quoted:
            args.append(current.strip())
            current = ""
        else:
            current += char
    if current.strip():
        args.append(current.strip())
    return args


def unquote(text):
    text = text.strip()
    if text.startswith('"'):
        text = text[1:]
        if text.endswith('"...'):
            text = text[:-4]
        elif text.endswith('"'):
            text = text[:-1]
    return bytes(text, "utf-8").decode("unicode_escape")


def fd_path(arg):
    m = FD_ARG.match(arg)
    if not m:
        return None
    return m.group(2)


def resolve(dir_arg, name_arg, cwd="/"):
    name = unquote(name_arg)
    if name.startswith("/"):
        return os.path.normpath(name)
    base = fd_path(dir_arg) if dir_arg not in ("AT_FDCWD",) else cwd
    return os.path.normpath(os.path.join(base or cwd, name))


class Event:
    def __init__(self, index, pid, call, args, result):
        self.index, self.pid, self.call, self.args, self.result = index, pid, call, args, result

    def __repr__(self):
        return "%s %s(%s) = %s" % (self.pid, self.call, ", ".join(self.args), self.result)


def events(path):
    found = []
    with open(path, errors="replace") as f:
        for line in f:
            m = LINE.match(line.rstrip("\n"))
            if not m:
                continue
            pid = int(m.group(1)) if m.group(1) else 0
            found.append(Event(len(found), pid, m.group(2), split_args(m.group(3)), m.group(4)))
    return found


def rename_paths(event, cwd="/"):
    """(source, target) of a successful rename, as absolute paths."""
    a = event.args
    if event.call == "rename":
        return resolve("AT_FDCWD", a[0], cwd), resolve("AT_FDCWD", a[1], cwd)
    return resolve(a[0], a[1], cwd), resolve(a[2], a[3], cwd)


def synced_path(event):
    if event.call in ("fsync", "fdatasync") and event.result == "0":
        return fd_path(event.args[0])
    return None


def written_path(event):
    if event.call in ("write", "pwrite64", "writev") and not event.result.startswith("-"):
        return fd_path(event.args[0])
    return None


class Audit:
    """Every file a run renamed into place or appended to, and whether the
    new content was flushed before the rename (or after the append) and the
    directory after it."""

    def __init__(self, trace_path, watched):
        self.events = events(trace_path)
        self.watched = watched  # predicate on a target path: files the check is about
        self.replaced = []  # (target, source, content flushed first, directory flushed after)
        self.appended = []  # (target, flushed after the last write)
        self._audit()

    def _audit(self):
        evs = self.events
        for e in evs:
            if e.call not in ("rename", "renameat", "renameat2") or e.result != "0":
                continue
            source, target = rename_paths(e)
            if not self.watched(target) or os.path.isdir(target):
                continue
            before = any(synced_path(x) == source for x in evs[:e.index] if x.pid == e.pid)
            after = any(synced_path(x) == os.path.dirname(target) for x in evs[e.index + 1:] if x.pid == e.pid)
            self.replaced.append((target, source, before, after))
        last_write = {}
        for e in evs:
            path = written_path(e)
            if path and self.watched(path):
                last_write[(e.pid, path)] = e.index
        for (pid, path), index in sorted(last_write.items()):
            flushed = any(synced_path(x) == path for x in evs[index + 1:] if x.pid == pid)
            self.appended.append((path, flushed))

    def faults(self):
        found = []
        for target, source, before, after in self.replaced:
            if not before:
                found.append("%s replaced by %s without flushing the new content first" % (target, source))
            if not after:
                found.append("%s replaced without flushing its directory afterwards" % target)
        for path, flushed in self.appended:
            if not flushed:
                found.append("%s written in place without a flush" % path)
        return found
