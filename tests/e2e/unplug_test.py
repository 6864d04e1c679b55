"""Volumes that come and go: during a run, before it, for good. A list is only ever replaced by a whole one."""

import scan_case
import trees
from mac_root import DAY_MILLIS, Volume, millis_ago, now_millis
from scan_case import ScanCase, wait_for_pause


class UnpluggedDuringTheRun(ScanCase):
    def test_a_volume_in_the_middle_of_its_walk(self):
        root, photos, _ = self.new_paced_root()

        def mount(vguid=photos.vguid, directories=150):
            root.mount_volume("Photos", vguid=vguid)
            trees.plant_many(root, photos.mount + "Album/Deep", directories)

        def replace(*what):
            root.unmount(photos.mount)
            mount(*what)

        def unplug_and_exchange_a_later_one():
            root.unmount(photos.mount)
            root.unmount(zebra.mount)
            root.write(root.mount_volume("Zebra", vguid="vdef" + "8" * 24).mount + "a/b/c.jpg", "another volume's")

        zebra = root.mount_volume("Zebra")
        root.select(root.SYSTEM, photos, zebra)
        root.write(zebra.mount + "a/b/c.jpg", "x")
        self.assert_ran(root.run("-urgent_refresh_all"))
        before_of_zebra = root.read(root.list_path(zebra))
        before = root.read(root.list_path(photos))
        for case, interrupt, repair in (
                ("unmounted", unplug_and_exchange_a_later_one, mount),
                ("another volume in its place", lambda: replace("vabc" + "7" * 24, 160), replace),
                ("pulled and plugged in again", lambda: replace(photos.vguid, 0), replace)):
            with self.subTest(case):
                root.write("/Users/bob/new.txt", case)
                run = root.start()
                wait_for_pause(root, photos)
                interrupt()
                self.assert_ran(root.finish(run))
                self.assert_listed(root, root.SYSTEM)
                self.assert_clean(root)
                self.assertEqual(root.read(root.list_path(photos)), before)
                self.assertEqual(root.read(root.list_path(zebra)), before_of_zebra)
                repair()
        self.assertRegex(root.log(), "NOT SWAPPING IN in AtomicMove per-Vol filelist: \\S+" + photos.list_name
                         + r", numBytes=\d+ \(\d+ MB\) because it is no longer mounted!")


class AwayBeforeTheRun(ScanCase):
    def test_lists_of_absent_volumes(self):
        """One run with volumes of every fate."""
        root = self.new_root()
        attached = root.mount_volume("Attached")
        recent, aged, never, gone = (Volume(f"/Volumes/{name}/", f"v1aa{name[0]:c<24}")
                                     for name in ("Recent", "Aged", "Never", "Gone"))
        root.select(root.SYSTEM, attached, recent, aged, never)
        root.write_registry((attached, 40), (never, 2), (recent, 30.5), (aged, 31.5))
        list_text = f"# GmtMillisThisListWasStarted: {millis_ago(1):016x}, GmtDateTime: 20240101000000\nearlier list\n"
        for volume in (recent, aged, gone):
            root.write(root.list_path(volume), list_text)
        root.write(root.lists + "completefilelist.dat", "of an older version")

        self.assert_ran(root.run())
        self.assert_listed(root, root.SYSTEM, attached)
        self.assertEqual(root.read(root.list_path(recent)).decode(), list_text)
        start = rb"\A# GmtMillisThisListWasStarted: [0-9a-f]{16}"
        self.assertRegex(root.read(root.list_path(aged)), start + rb", GmtDateTime: \d{14}\n"
                         rb"# Stub becaused drive has not been seen in 30 days\n\Z")
        self.assertRegex(root.read(root.list_path(never)), start + rb"\n# Stub becaused file should have existed!\n\Z")
        self.assertFalse(root.exists(root.list_path(gone)) or root.exists(root.lists + "completefilelist.dat"))

        seen = {v.get("tqVolumeGuid"): int(v.get("lastTimeVolumeWasSeenAttachedGmtMillis"))
                for v in root.xml("tqvolumes.xml").findall("tqvolume")}
        self.assertLess(abs(seen[attached.vguid] - now_millis()), 120_000)
        self.assertGreater(now_millis() - seen[aged.vguid], 31 * DAY_MILLIS)


if __name__ == "__main__":
    scan_case.run_tests()
