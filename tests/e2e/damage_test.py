"""Full disks and damaged state files: old lists stay, the next run heals."""

import contextlib
import os

import scan_case
import trees
from scan_case import ScanCase


class Damage(ScanCase):
    def new_root_with_photos(self, **options):
        root = self.new_root(**options)
        photos = root.mount_volume("Photos")
        root.select(root.SYSTEM, photos)
        trees.plant_home(root)
        return root, photos

    def test_full_disk(self):
        root, photos = self.new_root_with_photos(data="/Library/Kestrune Data", data_size="4m")
        trees.plant_many(root, photos.mount + "Album/Deep", 50)
        self.assert_ran(root.run())
        lists = [root.list_path(root.SYSTEM), root.list_path(photos), root.lists + "bigfilelist.dat"]
        before = [root.read(file) for file in lists]
        trees.plant_many(root, photos.mount + "Album/More", 200)
        with contextlib.suppress(OSError), open(root.path(root.data + "filler"), "wb", buffering=0) as out:
            while True:
                out.write(b"x" * 4096)
        self.assert_ran(root.run("-urgent_refresh_all"))
        self.assertEqual([root.read(file) for file in lists], before)
        for file in ("tqvolumes.xml", "tqinfo.xml", "tqreports/tqdefcon.xml", "tqfilelists/topdirs.xml",
                     "tqfilelists/filestats.xml", "tqexcluderules_editable.xml", "tqvol_system_volume/tqvol_id.xml"):
            root.xml(file)

        os.unlink(root.path(root.data + "filler"))
        self.assert_ran(root.run("-urgent_refresh_all"))
        self.assert_listed(root, root.SYSTEM, photos)
        self.assert_clean(root)

    def test_everything_but_the_settings_damaged_then_the_settings(self):
        root, photos = self.new_root_with_photos()
        for file, content in {
                "tqvolumes.xml": '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n\n<tqvol_metadata lastAss',
                "tqreports/tqdefcon.xml": "\0\xff<<<",
                "tqfilelists/topdirs.xml": "<stats next_to_index=\"-99999999999\"",
                "tqfilelists/topdirs.xml.future": "<dir <dir path=\"", "tqfilelists/filestats.xml": "",
                "tqfilelists/filestats.xml.future": "<info docsnum=\"9", "tqexcluderules_mandatory.xml": "",
                "tqreports/tqstat_max_verify_mounts.txt": "many", "tqreports/tqstat_totalbackup.xml": "<x",
                f"tqfilelists/{photos.list_name}.future": "half a l",
                "tqfilelists/bigfilelist.dat.future": "t\t1\t/gone\n",
                "tqfilelists/tqfilelist_hour_lock.lck": "not empty"}.items():
            root.write(root.data + file, content, seconds=1_600_000_000)
        self.assert_ran(root.run())
        self.assert_listed(root, root.SYSTEM, photos)
        self.assertEqual(root.read(root.lists + "bigfilelist.dat"),
                         b"t\t524288000\t/Users/bob/Movies/Raw/holiday.mov\n")
        self.assertEqual({v.get("tqVolumeGuid") for v in root.xml("tqvolumes.xml").findall("tqvolume")},
                         {root.SYSTEM.vguid, photos.vguid})
        self.assertEqual(root.xml("tqfilelists/topdirs.xml").find("stats").get("next_to_index"), "0")
        self.assertEqual(root.read(root.reports + "tqstat_max_verify_mounts.txt"), b"1")

        names, before = root.names(root.lists), root.read(root.list_path(photos))
        whole = root.read(root.data + "tqinfo.xml")
        for damaged in (None, b"", b"\0" * 5000, whole[:whole.index(b"<hard_drives_to_backup>")],
                        whole.replace(photos.vguid.encode(), b"v1").replace(root.SYSTEM.vguid.encode(), b"v2")):
            if damaged is None:
                os.unlink(root.path(root.data + "tqinfo.xml"))
            else:
                root.write(root.data + "tqinfo.xml", damaged)
            self.assert_ran(root.run())
            self.assertEqual((root.names(root.lists), root.read(root.list_path(photos))), (names, before), damaged)
            self.assertEqual(root.exists(root.data + "tqinfo.xml"), damaged is not None)


if __name__ == "__main__":
    scan_case.run_tests()
