"""What the end-to-end tests share: a root per test, lists compared with the independent walk, runs met in a pause."""

import contextlib
import os
import sys
import time
import unittest

import independent_walk
import mac_root
import trees
from mac_root import MacRoot, wait_until


def run_tests():
    """The body of a test script: its first argument is the program, the others are unittest's."""
    mac_root.enter_namespace()
    if len(sys.argv) < 2:
        sys.exit("usage: " + sys.argv[0] + " <path of tqfilelist> [unittest arguments]")
    ScanCase.program = os.path.abspath(sys.argv[1])
    unittest.main(module="__main__", argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)


class ScanCase(unittest.TestCase):
    program = None
    maxDiff = 4000

    def new_root(self, **options):
        root = MacRoot(self.program, **options)
        self.addCleanup(root.close)
        return root

    def assert_ran(self, result):
        self.assertEqual((result.status, result.err), (0, ""))
        return result

    def tree(self, root, volume, **options):
        return independent_walk.Tree(root.path(""), volume.mount, mac_root.EXCLUDED_FOLDERS, **options)

    def assert_listed(self, root, *volumes, **options):
        """Each volume's list equals the independent walk of what lies there now; gives the last walk."""
        for volume in volumes:
            tree = self.tree(root, volume, **options)
            self.assertEqual(independent_walk.differences(tree, root.path(root.list_path(volume))), [])
            self.assertGreater(tree.files, 0)
        return tree

    def assert_clean(self, root):
        """Nothing of a run is left but its results."""
        left = [name for name in root.names(root.lists) if name.endswith((".future", "_aside", ".tmp", ".lck"))]
        self.assertEqual(left, [])

    def new_paced_root(self, directories=150, *words, flag="tqfilelistdisablebuffering.txt"):
        """A root after a first scan, with more than 100 directories in one planned one: the next run pauses in it."""
        root = self.new_root()
        photos = root.mount_volume("Photos")
        root.select(root.SYSTEM, photos)
        trees.plant_many(root, photos.mount + "Album/Deep", directories)
        root.write(root.lists + flag)
        first = self.assert_ran(root.run(*words))
        self.assert_listed(root, photos)
        return root, photos, first


def unfinished_list(root, volume):
    """The bytes of the volume's list in the making; empty while there is none."""
    with contextlib.suppress(FileNotFoundError):
        return root.read(root.list_path(volume) + ".future")
    return b""


def wait_for_pause(root, volume):
    """Waits until a paced run stands still in the middle of the volume (its list lines go to disk at once)."""
    content, since = b"", 0.0

    def stands_still():
        nonlocal content, since
        latest = unfinished_list(root, volume)
        if latest != content:
            content, since = latest, time.monotonic()
        return content.count(b"\n# Dir: ") > 50 and time.monotonic() - since > 0.6

    wait_until(stands_still, "the pause of a paced run")
