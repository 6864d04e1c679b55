"""A machine without the client: tqsetup prepares it, the first scan follows."""

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
        return root

    def selected(self, root):
        volumes = root.xml("tqinfo.xml").find("hard_drives_to_backup")
        return [Volume(v.get("mountPointPath"), v.get("tqVolumeGuid")) for v in volumes]

    def test_every_ordinary_volume_is_selected_and_listed(self):
        root = self.new_machine()
        self.assert_ran(root.run(program="tqsetup"))
        volumes = self.selected(root)
        self.assertEqual([v.mount for v in volumes], ["/", "/Volumes/Photos/", "/Volumes/Other Disk/"])
        self.assertEqual([v.vguid[:4] for v in volumes], ["v000", "v001", "v002"])
        self.assertEqual(root.names("/Volumes/Nothing"), [])
        self.assert_ran(root.run())
        self.assert_clean(root)
        for volume in volumes:
            self.assert_listed(root, volume)

        settings = root.read(root.data + "tqinfo.xml")
        again = root.run(program="tqsetup")
        self.assertEqual((again.status, "nothing changed" in again.err), (1, True))
        self.assertEqual(root.read(root.data + "tqinfo.xml"), settings)

    def test_chosen_volume_and_data_folder(self):
        root = self.new_machine(data="/Users/Shared/Kestrune & Co")
        words = ("--data-dir", root.data.rstrip("/"), "--select", "/Volumes/Photos/")
        self.assert_ran(root.run(*words, program="tqsetup"))
        volumes = self.selected(root)
        self.assertEqual([v.mount for v in volumes], ["/Volumes/Photos/"])
        self.assert_ran(root.run())
        self.assert_listed(root, volumes[0])
        self.assertFalse(root.exists(INSTALL + "tqdata"))
        self.assertFalse(root.exists("/Volumes/Other Disk/.tqvol"), "a volume that was not chosen is left alone")

    def test_three_commands_tell_what_is_backed_up_and_why(self):
        root = self.new_machine()
        root.write("/Volumes/Photos/holiday.jpg", "x" * 5)
        root.write("/Volumes/Photos/Library/cache.jpg", "x")
        self.assertRegex(root.run("--select", "/Volumes/Photos", program="tqsetup").out,
                         r"\nselected for backup: /Volumes/Photos/ vguid=v001[0-9a-f]{24}\n"
                         r"ready: tqfilelist lists their files\n\Z")
        self.assert_ran(root.run())
        for file, diagnosis, text in (
                ("holiday.jpg", "not_found_in_tq_done",
                 "file_found - LessThan10Mb - IntentIsToBackup - /Volumes/Photos/holiday.jpg\n"),
                ("cache.jpg", "no_matching_file_found_in_completefilelist",
                 "There are several possible explanations:\n"),
                ("Readme", "not_found_in_tq_done", "BEST_CASE - Found 1 matching file")):
            report = f"/tmp/{file}.txt"
            self.assertEqual(root.run("-explainfile", file, report).out,
                             f"\nDone.  Please email Kestrune support this file:\n{report}\n\n"
                             f"\nPrimaryDiagnosis:\n{diagnosis}\n\n")
            self.assertIn(text, root.read(report).decode())

    def test_what_is_refused_leaves_nothing_behind(self):
        root = self.new_machine()
        usage = root.run("--help", program="tqsetup")
        self.assert_ran(usage)
        for words, reason in ((("--selct", "/"), "unknown option: --selct"), (("/",), "unknown option: /"),
                              (("--select",), "option needs a value: --select"),
                              (("--data-dir", "here"), "no usable absolute path: here"),
                              (("--data-dir", "//"), "no usable absolute path: //")):
            result = root.run(*words, program="tqsetup")
            self.assertEqual((result.status, result.out, result.err), (2, "", f"tqsetup: {reason}\n\n{usage.out}"))
        for mount, reason in (("/Volumes/Nowhere", "no volume is mounted at: /Volumes/Nowhere/"),
                              ("/Users/", "no volume is mounted at: /Users/"),
                              ("/Volumes/Nothing", "empty, or no volume for backup: /Volumes/Nothing/")):
            result = root.run("--select", "/", "--select", mount, program="tqsetup")
            self.assertEqual((result.status, result.out, result.err), (1, "", f"tqsetup: {reason}\n"))
        self.assertEqual(root.names(INSTALL), ["tqfilelist", "tqsetup"])
        self.assertFalse(root.exists("/Volumes/Photos/.tqvol"))


if __name__ == "__main__":
    scan_case.run_tests()
