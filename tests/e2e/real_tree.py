"""Scans a real folder of this machine urgently and compares the list with the independent walk, entry for entry.

By hand:  python3 tests/e2e/real_tree.py build/release/tqfilelist /usr [/more ...]

Each folder is shown, unchanged, as a first-level folder of a volume of a Mac-shaped root in a private mount namespace.
Prints what was compared, the seconds the program took and its peak memory; the status is 1 when anything differs.
Folders that change meanwhile (logs, caches) differ honestly.
"""

import os
import sys
import time

import independent_walk
import mac_root


def scan(root, folders):
    """Scans and compares; gives the differences as texts."""
    volume = root.mount_volume("Real", size="1g")
    for number, folder in enumerate(folders):
        root.bind(folder, f"{volume.mount}tree{number}")
    root.select(volume)
    result = root.run("-urgent_refresh_all", timeout=1800)
    if result.status != 0 or result.err or not root.exists(root.list_path(volume)):
        return [f"the scan ended with status {result.status} and wrote: {result.err}", root.log()]
    began = time.monotonic()
    tree = independent_walk.Tree(root.path(""), volume.mount)
    found = independent_walk.differences(tree, root.path(root.list_path(volume)))
    large = root.read(root.lists + "bigfilelist.dat").splitlines() if tree.big_files else []
    if [line.split(b"\t", 1)[1] for line in large] != [b"%d\t%s" % file for file in tree.big_files]:
        found.append(f"large files: expected {tree.big_files}, listed {large}")
    print(f"{' '.join(folders)}: {tree.entries} entries in {tree.directories} directories, {tree.files} file lines "
          f"({os.path.getsize(root.path(root.list_path(volume))) / 1e6:.1f} MB)\n"
          f"program: {result.seconds:.2f} s in all, {result.seconds - 3.0:.2f} s without the drive ping's own pause, "
          f"peak memory {result.peak_kilobytes / 1024:.1f} MiB\n"
          f"comparison: {time.monotonic() - began:.2f} s, {'DIFFERENCES' if found else 'every entry the same'}",
          flush=True)
    return found


def main():
    mac_root.enter_namespace()
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    found = scan(mac_root.MacRoot(os.path.abspath(sys.argv[1])), [os.path.abspath(folder) for folder in sys.argv[2:]])
    print("\n".join(found))
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
