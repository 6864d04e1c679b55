"""Every command of the table from end to end: whole answers, and what a call leaves behind."""

import os
import platform
import struct
import xml.etree.ElementTree as ElementTree

import golden
import mac_root
import scan_case
from commands_states_test import SCANS, every_command
from scan_case import ScanCase

STAMP = 1_700_000_000  # 2023-11-14 22:13:20 GMT
ARCHITECTURES = {"x86_64": "x86_64", "aarch64": "arm64"}


def windows_library():
    header = struct.pack("<4sHHIIIHH", b"PE\0\0", 0x8664, 1, 0, 0, 0, 240, 0x2022)
    return (b"MZ".ljust(0x3C, b"\0") + struct.pack("<I", 0x80)).ljust(0x80, b"\0") + header + b"\x0b\x02" + bytes(4000)


class Coverage(ScanCase):
    def test_every_command_has_a_golden_answer(self):
        texts = dict.fromkeys(("data", "host", "system", "photos", "away", "architecture"), "/")
        called = {os.fsdecode(case.words[0]) for name in os.listdir(golden.FOLDER)
                  for cases in golden.read(name, texts).values() for case in cases}
        self.assertEqual({word for word, *_ in every_command()} - called - {"-h", *SCANS}, set())


class GoldenAnswers(ScanCase):
    def compare(self, root, name, section="", texts=(), **options):
        texts = {"data": root.data, "host": mac_root.HOST_GUID, "system": root.SYSTEM.vguid, **dict(texts)}
        golden.compare(self, root, golden.read(name, texts)[section], **options)

    def test_files(self):
        root = self.new_root()
        root.select(root.SYSTEM)
        root.bind("/dev", "/dev")
        for file, content in (
                ("/etc/passwd", "root:x:0:0::/:/bin/sh\ncarol:x:777:777::/:/bin/sh\n"),
                ("/etc/group", "wheel:x:0:root\nstaff:x:777:\n"), ("/Users/bob/zero.txt", b""),
                ("/Users/bob/a.txt", "one\na needle here\nNeedle"), ("/Users/bob/bytes", b"\xff\xfe"),
                ("/Users/bob/good.dll", windows_library()), (b"/Users/\xff/\xfe.txt", "x"),
                ("/Users/bob/secret.txt", "abc")):
            root.write(file, content, seconds=STAMP)
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
        self.compare(root, "files.txt", "with a service login", may_read_anything=False)
        self.assertFalse(root.exists("/tmp/fork"))

    def test_system(self):
        root = self.new_root()
        root.select(root.SYSTEM)
        self.compare(root, "system.txt", texts={"architecture": ARCHITECTURES.get(platform.machine(), "UNKNOWN")})

    def test_volumes(self):
        root = self.new_root()
        photos, away = root.mount_volume("Photos", size="3g"), mac_root.Volume("/Volumes/Away/", "v0aa" + "a" * 24)
        root.mount_volume("Empty", visible=False, identity=False)
        root.write("/Volumes/Leftover/file", "x")
        root.write("/Users/bob/a.txt", "x")
        root.select(root.SYSTEM, photos, away)
        root.write_registry((root.SYSTEM, 0), (photos, 3), (away, 9))
        texts = {"photos": photos.vguid, "away": away.vguid}
        self.compare(root, "volumes.txt", texts=texts)
        root.write(root.list_path(photos), f"# GmtMillisThisListWasStarted: {mac_root.millis_ago(30):016x}, x\n")
        self.compare(root, "volumes.txt", "with an old list", texts)
        os.unlink(root.path(root.reports + "tqdefcon.xml"))
        os.unlink(root.path(root.upload_record(away)))
        self.compare(root, "volumes.txt", "without an upload record", texts)
        self.assertFalse(root.exists(root.reports + "tqdefcon.xml"))
        root.unmount("/Volumes/Empty/")
        root.mount_volume("Copy", vguid=photos.vguid)
        self.compare(root, "volumes.txt", "with a copied drive", texts)

    def test_a_new_volume_gets_its_identity(self):
        root = self.new_root()
        root.select(root.SYSTEM)
        root.write_registry((root.SYSTEM, 1))
        new = root.mount_volume("New Disk", identity=False)
        for words, short_id in ((("-assignvolumeguid", "/Volumes/New Disk"), "100"),
                                (("-assignvolumeguid_hex", new.mount.encode().hex()), "101")):
            answer = root.run(*words).out
            self.assertRegex(answer, rf"\ATRUE: Successfully assigned vGuid: v{short_id}[0-9a-f]{{24}}\n\Z")
            volume = ElementTree.fromstring(root.read(new.mount + ".tqvol/tqvol_id.xml")).find("tqvolume")
            self.assertEqual((volume.get("vguid"), volume.get("associated_hguid")),
                             (answer[-29:-1], mac_root.HOST_GUID))
            self.assertEqual(root.xml("tqvolumes.xml").findall("tqvolume")[-1].get("tqVolumeGuid"), answer[-29:-1])
            root.write_identity(mac_root.Volume(new.mount, "v123" + "4" * 24), host_guid="f" * 24)


if __name__ == "__main__":
    scan_case.run_tests()
