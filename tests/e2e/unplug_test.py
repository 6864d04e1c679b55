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
    def interrupted_run(self, interrupt):
        """A paced run that `interrupt` disturbs in the pause, in the middle of the volume; gives root and volume."""
        root, photos, _ = self.new_paced_root()
        before = root.read(root.list_path(photos))
        root.write("/Users/bob/new.txt", "new")
        run = root.start()
        wait_for_pause(root, photos)
        interrupt(root, photos)
        self.assert_ran(root.finish(run))
        self.assertEqual(root.read(root.list_path(photos)), before)
        self.assertFalse(root.exists(root.list_path(photos) + ".future"))
        self.assert_listed(root, root.SYSTEM)
        return root, photos

    def test_unmounted(self):
        root, photos = self.interrupted_run(lambda root, photos: root.unmount(photos.mount))
        self.assertRegex(root.log(), "NOT SWAPPING IN in AtomicMove per-Vol filelist: \\S+" + photos.list_name
                         + r", numBytes=\d+ \(\d+ MB\) because it is no longer mounted!")

    def test_another_volume_in_its_place(self):
        def swap(root, photos):
            root.unmount(photos.mount)
            other = root.mount_volume("Photos", vguid="vabc" + "7" * 24)
            trees.plant_many(root, other.mount + "Album/Deep", 160)
        self.interrupted_run(swap)

    def test_pulled_and_plugged_in_again(self):
        def replug(root, photos):
            root.unmount(photos.mount)
            root.mount_volume("Photos", vguid=photos.vguid)
        self.interrupted_run(replug)

    def test_a_later_volume_exchanged_before_its_turn(self):
        root, photos, _ = self.new_paced_root()
        zebra = root.mount_volume("Zebra")
        root.select(root.SYSTEM, photos, zebra)
        root.write(zebra.mount + "a/b/c.jpg", "x")
        self.assert_ran(root.run("-urgent_refresh_all"))
        before = root.read(root.list_path(zebra))
        root.write(photos.mount + "new.jpg", "new")
        run = root.start()
        wait_for_pause(root, photos)
        root.unmount(zebra.mount)
        other = root.mount_volume("Zebra", vguid="vabc" + "7" * 24)
        root.write(other.mount + "a/b/c.jpg", "another volume's")
        self.assert_ran(root.finish(run))
        self.assertEqual(root.read(root.list_path(zebra)), before)
        self.assert_listed(root, photos)
        self.assert_clean(root)


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

    def test_one_year_customers_keep_lists_longer(self):
        root = self.new_root()
        young, old = Volume("/Volumes/Young/", "v002" + "b" * 24), Volume("/Volumes/Old/", "v003" + "b" * 24)
        root.select(root.SYSTEM, young, old)
        root.write_registry((young, 90.5), (old, 91.5))
        root.write(root.reports + "tqrollback_current_uxe.txt", "uxe_rb365d_x\n")
        for volume in (young, old):
            root.write(root.list_path(volume), list_text(1, volume.mount + "kept"))
        self.assert_ran(root.run())
        self.assertIn(b"kept", root.read(root.list_path(young)))
        self.assertIn(b"# Stub becaused drive has not been seen in 90 days one year rollback customer\n",
                      root.read(root.list_path(old)))

    def test_a_long_unlisted_volume_goes_first(self):
        root = self.new_root()
        fine, stale = root.mount_volume("Aaa"), root.mount_volume("Zzz")
        root.select(root.SYSTEM, fine, stale)
        root.write(stale.mount + "Album/Deep/photo.jpg", "x")
        for volume, days in ((root.SYSTEM, 1), (fine, 9), (stale, 20)):
            root.write(root.list_path(volume), list_text(days, "/x"))
        root.write_registry((stale, 20), (fine, 9))
        root.write(root.lists + "topdirs.xml", "<contents>\n</contents>\n")
        self.assert_ran(root.run())
        log = root.log()
        self.assertRegex(log, r"Defcon_very_interesting_drive_to_tqfilelist_attached processId=\d+, with defcon=3, "
                         "mountPoint=/Volumes/Zzz/, tqVol_lastFileListedInDays=20, .*, "
                         "and we are going to URGENTLY_RUN_FAST this run!")
        self.assertRegex(log, f"DEFCON_Swapped in AtomicMove per-Vol filelist: \\S+{stale.list_name}, numBytes=")
        plan = root.xml("tqfilelists/topdirs.xml").findall("dir")
        self.assertEqual([d.get("path") for d in plan[:4]], ["0/Volumes/Zzz/", "1/Volumes/Zzz/.tqvol/",
                                                             "2/Volumes/Zzz/.tqvol/tqscratch/", "1/Volumes/Zzz/Album/"])
        for volume in (root.SYSTEM, fine, stale):
            self.assert_listed(root, volume)


if __name__ == "__main__":
    scan_case.run_tests()
