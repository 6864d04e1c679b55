"""Full disks, damaged state files and the reasons not to run at all: old lists stay, the next run heals."""

import os

import scan_case
import trees
from scan_case import ScanCase


class FullDisk(ScanCase):
    def test_old_lists_stay_and_the_next_run_heals(self):
        root = self.new_root(data="/Library/Kestrune Data", data_size="4m")
        photos = root.mount_volume("Photos")
        root.select(root.SYSTEM, photos)
        trees.plant_home(root)
        trees.plant_many(root, photos.mount + "Album/Deep", 50)
        self.assert_ran(root.run())
        state = ["tqvolumes.xml", "tqinfo.xml", "tqreports/tqdefcon.xml", "tqfilelists/topdirs.xml",
                 "tqfilelists/filestats.xml", "tqexcluderules_editable.xml", "tqvol_system_volume/tqvol_id.xml"]
        lists = [root.list_path(root.SYSTEM), root.list_path(photos), root.lists + "bigfilelist.dat"]
        before = [root.read(file) for file in lists]

        trees.plant_many(root, photos.mount + "Album/More", 200)
        filler = root.path(root.data + "filler")
        with open(filler, "wb", buffering=0) as out:
            try:
                while True:
                    out.write(b"x" * 4096)
            except OSError:
                pass
        self.assert_ran(root.run("-urgent_refresh_all"))
        self.assertEqual([root.read(file) == old for file, old in zip(lists, before)], [True] * 3)
        for file in state:
            root.xml(file)

        os.unlink(filler)
        self.assert_ran(root.run("-urgent_refresh_all"))
        for volume in (root.SYSTEM, photos):
            self.assert_listed(root, volume)
        self.assert_clean(root)


class DamagedState(ScanCase):
    def test_everything_but_the_settings_damaged(self):
        root = self.new_root()
        photos = root.mount_volume("Photos")
        root.select(root.SYSTEM, photos)
        trees.plant_home(root)
        damage = {"tqvolumes.xml": '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n\n<tqvol_metadata lastAss',
                  "tqreports/tqdefcon.xml": "\0\xff<<<",
                  "tqfilelists/topdirs.xml": "<stats next_to_index=\"-99999999999\"",
                  "tqfilelists/topdirs.xml.future": "<dir <dir path=\"", "tqfilelists/filestats.xml": "",
                  "tqfilelists/filestats.xml.future": "<info docsnum=\"9", "tqexcluderules_mandatory.xml": "",
                  "tqreports/tqstat_max_verify_mounts.txt": "many", "tqreports/tqstat_totalbackup.xml": "<x",
                  f"tqfilelists/{photos.list_name}.future": "half a l",
                  "tqfilelists/bigfilelist.dat.future": "t\t1\t/gone\n",
                  "tqfilelists/tqfilelist_hour_lock.lck": "not empty"}
        for file, content in damage.items():
            root.write(root.data + file, content, seconds=1_600_000_000)
        self.assert_ran(root.run())
        for volume in (root.SYSTEM, photos):
            self.assert_listed(root, volume)
        self.assertEqual(root.read(root.lists + "bigfilelist.dat"),
                         b"t\t524288000\t/Users/bob/Movies/Raw/holiday.mov\n")
        self.assertEqual({v.get("tqVolumeGuid") for v in root.xml("tqvolumes.xml").findall("tqvolume")},
                         {root.SYSTEM.vguid, photos.vguid})
        self.assertEqual(root.xml("tqfilelists/topdirs.xml").find("stats").get("next_to_index"), "0")
        self.assertEqual(root.read(root.reports + "tqstat_max_verify_mounts.txt"), b"1")

    def test_settings_gone_or_damaged_touch_no_list(self):
        root = self.new_root()
        photos = root.mount_volume("Photos")
        root.select(root.SYSTEM, photos)
        self.assert_ran(root.run())
        names, before = root.names(root.lists), root.read(root.list_path(photos))
        whole = root.read(root.data + "tqinfo.xml")
        for damaged in (None, b"", b"\0" * 5000, whole[:whole.index(b"<hard_drives_to_backup>")],
                        whole.replace(photos.vguid.encode(), b"v1").replace(root.SYSTEM.vguid.encode(), b"v2")):
            if damaged is None:
                os.unlink(root.path(root.data + "tqinfo.xml"))
            else:
                root.write(root.data + "tqinfo.xml", damaged)
            self.assert_ran(root.run())
            self.assertEqual([n for n in root.names(root.lists) if not n.endswith(".lck")], names, damaged)
            self.assertEqual(root.read(root.list_path(photos)), before)
            self.assertEqual(root.names(root.data).count("tqinfo.xml"), 0 if damaged is None else 1)
        self.assertFalse(root.exists(root.lists + "tqfilelist_hour_lock.lck"))


class NotRunning(ScanCase):
    def test_self_destruct_end_of_life_and_stop(self):
        root = self.new_root()
        root.select(root.SYSTEM)
        version = root.run("-version").out.removeprefix("VERSION: ")
        for flag, text, status in (("tqupdates/tqflag_selfdestructflag.txt", "nuke_and_pave\n", 1),
                                   ("tqreports/tqclient_end_of_life.txt", version, 1),
                                   ("tqfilelists/tqfilelist_stop_run.txt", "", 0)):
            root.write(root.data + flag, text)
            result = root.run("-urgent_refresh_all")
            self.assert_ran(result, status)
            self.assertLess(result.seconds, 2.5, flag)
            self.assertFalse(root.exists(root.list_path(root.SYSTEM)), flag)
            if status:
                os.unlink(root.path(root.data + flag))
        self.assertNotIn("tqfilelist_stop_run.txt", root.names(root.lists))
        log = root.log()
        for line in ("TQFILELIST - Self Destruct Flag Set so not running", "STOP RUNNING file is in place"):
            self.assertIn(line, log)
        self.assertRegex(log, r" - \w+\.cpp:\d+ \[\S+\(\)\](:| \w+:)\t"
                              "TQFILELIST - client version has reached End-Of-Life, exiting")
        root.write(root.data + "tqupdates/tqflag_selfdestructflag.txt", "no nuke_and_pave")
        root.write(root.data + "tqreports/tqclient_end_of_life.txt", "1.2.3")
        self.assert_ran(root.run())
        self.assert_listed(root, root.SYSTEM)


if __name__ == "__main__":
    scan_case.run_tests()
