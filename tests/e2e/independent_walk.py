"""What a file list must hold, found by walking the same tree with Python alone.

The order of entries is the order in which the file system returns them, so a tree must not change between the program's
walk and this one. `root` is where the program's "/" lies for this process; paths are bytes as the program sees them.
"""

import os
import stat
from itertools import zip_longest

MAX_DEPTH = 1000
BIG_FILE = 524_288_000
_PSEUDO = set("proc sysfs devtmpfs devpts cgroup cgroup2 securityfs debugfs tracefs configfs bpf pstore mqueue "
              "hugetlbfs fusectl binfmt_misc autofs nsfs rpc_pipefs efivarfs selinuxfs".split())
_NEVER_PLANNED = (b"/Volumes/", b"/net/", b"/automount/", b"/Backups.backupdb/", b"/.MobileBackups/",
                  b"/.PKInstallSandboxManager-SystemSoftware/", b"/Windows/", b"/Program Files/",
                  b"/Program Files (x86)/")
_NEVER_PLANNED_ANY_CASE = (b"/private/", b"/network/", b"/system/", b"/bin/", b"/dev/", b"/etc/", b"/net/", b"/opt/",
                           b"/sbin/", b"/usr/", b".com.apple.netbootx/", b"/.documentrevisions-v100/",
                           b"/.spotlight-v100/", b"/.fseventsd/", b"/afs/", b"/backups.backupdb/", b"/.mobilebackups/")


class Tree:
    """One volume's tree: `mount` ends in "/"; `excluded` are its first-level folders that the settings leave out."""

    def __init__(self, root, mount, excluded=(), unreadable=()):
        self.root, self.mount = os.fsencode(root), os.fsencode(mount)
        self.excluded = {self.mount.lower() + os.fsencode(name).lower() for name in excluded}
        self.unreadable = {os.fsencode(path) for path in unreadable}
        self.pseudo = self._pseudo_mounts()
        self.entries = self.directories = self.files = 0
        self.big_files = []

    def _pseudo_mounts(self):
        found = set()
        with open("/proc/self/mountinfo", "rb") as table:
            for line in table:
                left, right = line.split(b" - ", 1)
                if right.split()[0].decode() in _PSEUDO:
                    point = left.split()[4]
                    if point.startswith(self.root + b"/"):
                        found.add(point[len(self.root):])
        return found

    def _entries(self, directory):
        """(path, lstat) of each entry in directory order, or None when the directory cannot be listed."""
        if directory.rstrip(b"/") in self.unreadable:
            return None
        try:
            descriptor = os.open(self.root + directory, os.O_RDONLY | os.O_DIRECTORY)
        except OSError:
            return None
        try:
            with os.scandir(descriptor) as scan:  # by descriptor: the entries' own paths may be too long to be queried
                found = [(directory.rstrip(b"/") + b"/" + os.fsencode(entry.name), entry) for entry in scan]
            return [(path, entry.stat(follow_symlinks=False)) for path, entry in found if path not in self.pseudo]
        finally:
            os.close(descriptor)

    def plan(self):
        """The top directories in walking order: (mode, path ending in "/")."""
        found = [("0", self.mount)]
        for first in self._folders(self.mount):
            if not self._is_left_out(first):
                found += [("1", first), *(("2", second) for second in self._folders(first)
                                          if not second.startswith(b"/library/printers"))]
        return sorted(found, key=lambda entry: [byte if byte < 128 else byte - 256 for byte in entry[1]])

    def _folders(self, directory):
        return [path + b"/" for path, facts in self._entries(directory) or [] if stat.S_ISDIR(facts.st_mode)]

    def _is_left_out(self, first):
        return (first.endswith(_NEVER_PLANNED) or b".com.apple.NetBootX/" in first
                or first.lower().endswith(_NEVER_PLANNED_ANY_CASE) or first.lower() in self.excluded)

    def lines(self):
        """The list's lines after its start line, without line ends."""
        for mode, top in self.plan():
            directory = top if top == b"/" else top[:-1]
            if mode == "2":
                yield from self._walk(directory)
            else:
                listed = self._entries(directory)
                if listed is not None:
                    yield from self._block(directory, listed, is_walk=False)

    def _walk(self, top):
        pending = [(top, 1)]
        while pending:
            directory, depth = pending.pop()
            listed = self._entries(directory) if depth <= MAX_DEPTH else None
            if listed is None:
                continue
            yield from self._block(directory, listed, is_walk=True)
            folders = [path for path, facts in listed if stat.S_ISDIR(facts.st_mode)]
            pending += [(path, depth + 1) for path in reversed(folders) if not _is_never_entered(path)]

    def _block(self, directory, listed, is_walk):
        self.directories += 1
        self.entries += len(listed)
        others = [(path, facts) for path, facts in listed if not stat.S_ISDIR(facts.st_mode)]
        header = directory.replace(b"\r", b"__\\r__").replace(b"\n", b"__\\n__")
        yield b"#"
        yield b"# Dir: " + _without_backslashes(header)
        yield b"# Files: %d" % len(others)
        for path, facts in others:
            if b"\r" in path or b"\n" in path:
                continue
            path = _without_backslashes(path)
            if is_walk and (b"/users/shared/." in path.lower() or (b"/." in path and b"././." in path)):
                continue
            self.files += 1
            kind = b"f" if stat.S_ISREG(facts.st_mode) else b"s"
            millis = facts.st_mtime_ns // 1_000_000_000 * 1000 & 0xFFFF_FFFF_FFFF_FFFF
            if facts.st_size >= BIG_FILE:
                self.big_files.append((facts.st_size, path))
            yield b"%s\t%016x\t%d\t%s" % (kind, millis, facts.st_size, path)


def _without_backslashes(path):
    return path.replace(b"\\", b"_-backslash-_")


def _is_never_entered(path):
    lower = path.lower()
    doubled = any(path[i] in b"/\\" and path[i - 1] in b"/\\" for i in range(2, len(path)))
    drive = b".swstor" in path and any(name in lower for name in (b"wd smartware.swstor", b"wdsmartware.swstor",
                                                                 b"wdbackup.swstor"))
    return doubled or path.endswith((b"/", b"\\")) or b"Backups.backupdb" in path or drive or b".MobileBackups" in path


def differences(tree, list_file, limit=10):
    """Compares a list file with the tree, line by line; gives the first differences as texts."""
    found = []
    with open(list_file, "rb") as source:
        source.readline()
        for number, (wanted, got) in enumerate(zip_longest(tree.lines(), source), start=2):
            if (wanted is None or got != wanted + b"\n") and len(found) < limit:
                found.append(f"line {number}: expected {wanted!r}, listed {got!r}")
    return found
