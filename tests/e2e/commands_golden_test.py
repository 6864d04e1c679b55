"""Every command of the table from end to end: whole answers, and what a call leaves behind."""

import os
import platform
import socket
import struct

import golden
import mac_root
import scan_case
from scan_case import ScanCase

STAMP = 1_700_000_000  # 2023-11-14 22:13:20 GMT
ARCHITECTURES = {"x86_64": "x86_64", "aarch64": "arm64"}


def windows_library():
    header = struct.pack("<4sHHIIIHH", b"PE\0\0", 0x8664, 1, 0, 0, 0, 240, 0x2022)
    return (b"MZ".ljust(0x3C, b"\0") + struct.pack("<I", 0x80)).ljust(0x80, b"\0") + header + b"\x0b\x02" + bytes(4000)


class GoldenAnswers(ScanCase):
    def compare(self, root, name, texts=None, section="", **options):
        texts = {"data": root.data, "host": mac_root.HOST_GUID, "system": root.SYSTEM.vguid, **(texts or {})}
        golden.compare(self, root, golden.read(name, texts)[section], texts, **options)

    def test_files(self):
        root = self.new_root()
        root.select(root.SYSTEM)
        root.bind("/dev", "/dev")
        root.write("/etc/passwd", "root:x:0:0::/:/bin/sh\ncarol:x:777:777::/:/bin/sh\n")
        root.write("/etc/group", "wheel:x:0:root\nstaff:x:777:\n")
        root.write("/Users/bob/a.txt", "one\na needle here\nNeedle", seconds=STAMP)
        root.write("/Users/bob/zero.txt")
        root.write("/Users/bob/bytes", b"\xff\xfe")
        root.write("/Users/bob/good.dll", windows_library())
        root.write(b"/Users/\xff/\xfe.txt", "x", seconds=STAMP)
        root.write("/Users/bob/secret.txt", "abc")
        os.chmod(root.path("/Users/bob/secret.txt"), 0)
        os.link(root.path("/Users/bob/secret.txt"), root.path("/Users/bob/hard link"))
        for folder in ("empty", "locked", "bob/Tool.app", *(f"Eleven/{i}" for i in range(11))):
            root.mkdir("/Users/" + folder)
        os.chmod(root.path("/Users/locked"), 0)
        for link, target in (("dangling", "nowhere"), ("loop", "loop"), ("linked_folder", "/Users")):
            os.symlink(target, root.path("/Users/bob/" + link))
        os.mkfifo(root.path("/Users/bob/fifo"))
        self.compare(root, "files.txt", may_read_anything=False)
        root.write(root.reports + "tqserv_runs_as.txt", "carol\n")
        self.compare(root, "files.txt", section="with a service login", may_read_anything=False)
        self.assertFalse(root.exists("/tmp/fork"))

    def test_system(self):
        root = self.new_root()
        root.select(root.SYSTEM)
        self.compare(root, "system.txt", {"architecture": ARCHITECTURES.get(platform.machine(), "UNKNOWN")})

    def test_volumes(self):
        root = self.new_root()
        photos, away = root.mount_volume("Photos", size="3g"), mac_root.Volume("/Volumes/Away/", "v0aa" + "a" * 24)
        root.mount_volume("Empty", visible=False, identity=False)
        root.write("/Volumes/Leftover/file", "x")
        root.write("/Users/bob/a.txt", "x")
        root.select(root.SYSTEM, photos, away)
        root.write_registry((root.SYSTEM, 0), (photos, 3), (away, 9))
        texts = {"photos": photos.vguid, "away": away.vguid}
        self.compare(root, "volumes.txt", texts)
        root.unmount("/Volumes/Empty/")
        root.mount_volume("Copy", vguid=photos.vguid)
        self.compare(root, "volumes.txt", texts, "with a copied drive")


if __name__ == "__main__":
    scan_case.run_tests()
