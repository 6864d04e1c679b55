"""A machine without the client: tqsetup prepares it, the first scan follows, -explainfile tells of a file."""

import os

import scan_case
import trees
from mac_root import INSTALL, Volume
from scan_case import ScanCase


class FreshMachine(ScanCase):
    def new_machine(self, **options):
        root = self.new_root(client_installed=False, **options)
        root.add_program(os.path.join(os.path.dirname(self.program), "tqsetup"))
        trees.plant_home(root)
        for name in ("Photos", "Other Disk"):
            root.mount_volume(name, identity=False)
        root.mount_volume("Nothing", visible=False, identity=False)
        root.make_read_only(root.mount_volume("Locked", identity=False))
        return root

    def selected(self, root):
        volumes = root.xml("tqinfo.xml").find("hard_drives_to_backup")
        return [Volume(v.get("mountPointPath"), v.get("tqVolumeGuid")) for v in volumes]

    def test_every_ordinary_volume_is_selected_and_listed(self):
        root = self.new_machine()
        self.check_refusals(root)
        self.assert_ran(root.run(program="tqsetup"))
        volumes = self.selected(root)
        self.assertEqual([(v.mount, v.vguid[:4]) for v in volumes],
                         [("/", "v000"), ("/Volumes/Photos/", "v001"), ("/Volumes/Other Disk/", "v002")])
        self.assertEqual(root.names("/Volumes/Nothing"), [])
        self.assert_ran(root.run())
        self.assert_clean(root)
        self.assert_listed(root, *volumes)

        settings = root.read(root.data + "tqinfo.xml")
        again = root.run(program="tqsetup")
        self.assertEqual((again.status, "nothing changed" in again.err, root.read(root.data + "tqinfo.xml")),
                         (1, True, settings))

    def check_refusals(self, root):
        """What is refused leaves nothing behind."""
        usage = self.assert_ran(root.run("--help", program="tqsetup"))
        for status, reason, *words in (
                (2, "unknown option: --selct", "--selct", "/"), (2, "unknown option: /", "/"),
                (2, "option needs a value: --select", "--select"),
                (2, "no usable absolute path: here", "--data-dir", "here"),
                (2, "no usable absolute path: //", "--data-dir", "//"), (2, "no absolute path: ", "--select", ""),
                (1, "no volume is mounted at: /Volumes/Nowhere/", "--select", "/", "--select", "/Volumes/Nowhere"),
                (1, "no volume is mounted at: /Users/", "--select", "/", "--select", "/Users/"),
                (1, "empty, or no volume for backup: /Volumes/Nothing/", "--select", "/Volumes/Nothing"),
                (1, "read-only, so it cannot be given an identity: /Volumes/Locked/", "--select", "/Volumes/Locked"),
                (1, f"could not create the data folder (are you allowed to?): {INSTALL}tqsetup/data/",
                 "--data-dir", INSTALL + "tqsetup/data")):
            result = root.run(*words, program="tqsetup")
            self.assertEqual((result.status, result.out, result.err),
                             (status, "", f"tqsetup: {reason}\n" + ("\n" + usage.out if status == 2 else "")))
        self.assertEqual(root.names(INSTALL), ["tqfilelist", "tqsetup"])
        self.assertFalse(root.exists("/Volumes/Photos/.tqvol"))

    def test_three_commands_tell_what_is_backed_up_and_why(self):
        root = self.new_machine(data="/Users/Shared/Kestrune & Co")
        for file in ("holiday.jpg", "Library/cache.jpg", "disk.iso"):
            root.write("/Volumes/Photos/" + file, "x" * 5)
        words = ("--data-dir", root.data.rstrip("/"), "--select", "/Volumes/Photos")
        self.assertRegex(root.run(*words, program="tqsetup").out,
                         r"\nselected for backup: /Volumes/Photos/ vguid=v001[0-9a-f]{24}\n"
                         r"ready: tqfilelist lists their files\n\Z")
        self.assert_ran(root.run())
        photos, = self.selected(root)
        self.assertEqual(photos.mount, "/Volumes/Photos/")
        self.assert_listed(root, photos)
        self.assertFalse(root.exists(INSTALL + "tqdata"))
        self.assertFalse(root.exists("/Volumes/Other Disk/.tqvol"), "a volume that was not chosen is left alone")

        found = "file_found - LessThan10Mb - IntentIsToBackup - /Volumes/Photos/holiday.jpg\n"
        root.write(root.data + "tqbackup/tqfileids.dat", "id0042\t/Volumes/Photos/holiday.jpg\n")
        root.write(root.data + "tqdatacenter/tq_done_20240101_0.dat", "+\tid0042\n")
        for name, diagnosis, text in (
                ("cache.jpg", "no_matching_file_found_in_completefilelist", "There are several possible explanations:"),
                ("disk.iso", "file_purposely_not_scheduled_for_backup", "This is on purpose.\n"),
                ("Photos/", "ambiguous_query_2_different_files_match_in_completefilelist", found),
                ("Readme", "not_found_in_tq_done", "BEST_CASE - Found 1 matching file"),
                ("/Volumes/Photos/holiday.jpg", "healthy_and_found_in_tq_done", found)):
            report = f"/tmp/{diagnosis}.txt"
            result = root.run("-explainfile", name, report)
            self.assertEqual(result[:3], (0, "\nDone.  Please email Kestrune support this file:\n" + report + "\n\n"
                                          f"\nPrimaryDiagnosis:\n{diagnosis}\n\n", ""))
            written = root.read(report).decode()
            for part in ("Kestrune Explanation for file: " + name, text, "\n\nPRIMARY_DIAGNOSIS: " + diagnosis + "\n"):
                self.assertIn(part, written)


if __name__ == "__main__":
    scan_case.run_tests()
