"""Volumes that come and go: during a run, before it, for good. A list is only ever replaced by a whole one."""

import scan_case
import trees
from mac_root import DAY_MILLIS, Volume, millis_ago, now_millis
from scan_case import ScanCase, wait_for_pause


def list_text(days_old, *paths):
    """A made-up list as an earlier run left it."""
    lines = "".join(f"f\t0000018c2d7a5e00\t1\t{path}\n" for path in paths)
    return (f"# GmtMillisThisListWasStarted: {millis_ago(days_old):016x}, GmtDateTime: 20240101000000\n#\n# Dir: /\n"
            f"# Files: 1\n{lines}")


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
        """One run with volumes of every fate; days are since each was last seen."""
        root = self.new_root()
        attached = root.mount_volume("Attached")
        fates = {"Recent": 5, "Thirty": 30.5, "Aged": 31.5, "Oldest": 499.5, "Forgotten": 500.5}
        volumes = {name: Volume(f"/Volumes/{name}/", f"v{0x100 + number:03x}" + "b" * 24)
                   for number, name in enumerate(fates)}
        never, gone = Volume("/Volumes/Never/", "v1aa" + "c" * 24), Volume("/Volumes/Gone/", "v1bb" + "d" * 24)
        root.select(root.SYSTEM, attached, *volumes.values(), never)
        root.write_registry((attached, 40), (never, 2), *((volumes[name], days) for name, days in fates.items()))
        for name, volume in volumes.items():
            root.write(root.list_path(volume), list_text(1, volume.mount + "kept " + name))
        root.write(root.list_path(gone), list_text(1, gone.mount + "deselected"))
        root.write(root.lists + gone.vguid + "_gone2_filelist.dat", "not a list's name: 47 characters")
        root.write(root.lists + "completefilelist.dat", "of an older version")

        self.assert_ran(root.run())
        self.assert_listed(root, attached)
        self.assert_listed(root, root.SYSTEM)
        for name in ("Recent", "Thirty", "Forgotten"):
            self.assertIn(f"kept {name}\n".encode(), root.read(root.list_path(volumes[name])), name)
        start = rb"\A# GmtMillisThisListWasStarted: [0-9a-f]{16}"
        for name in ("Aged", "Oldest"):
            self.assertRegex(root.read(root.list_path(volumes[name])), start + rb", GmtDateTime: \d{14}\n"
                             rb"# Stub becaused drive has not been seen in 30 days\n\Z", name)
        self.assertRegex(root.read(root.list_path(never)), start + rb"\n# Stub becaused file should have existed!\n\Z")
        self.assertFalse(root.exists(root.list_path(gone)))
        self.assertTrue(root.exists(root.lists + gone.vguid + "_gone2_filelist.dat"))
        self.assertFalse(root.exists(root.lists + "completefilelist.dat"))

        seen = {v.get("tqVolumeGuid"): int(v.get("lastTimeVolumeWasSeenAttachedGmtMillis"))
                for v in root.xml("tqvolumes.xml").findall("tqvolume")}
        self.assertLess(abs(seen[attached.vguid] - now_millis()), 120_000)
        self.assertGreater(now_millis() - seen[volumes["Aged"].vguid], 31 * DAY_MILLIS)


if __name__ == "__main__":
    scan_case.run_tests()
