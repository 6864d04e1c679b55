"""The commands in every state of the client: during a scan, without data folder or settings, with damaged state files.
And what single commands do besides printing: files written and their modes, identities assigned, programs run."""

import os
import pathlib
import shutil
import signal
import sys

import mac_root
import scan_case
from mac_root import INSTALL
from scan_case import ScanCase

SOURCES = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.append(os.path.join(SOURCES, "tests"))
import check_man_pages  # noqa: E402

SCANS = ("-first_install_time_urgent", "-urgent_refresh_all")
CREATES_DATA_FOLDER = SCANS + ("-clone_tqvol_to_datadir", "-assignvolumeguid", "-assignvolumeguid_hex")
A_FILE = "/Users/bob/a.txt"
STATE_FILES = ("tqinfo.xml", "tqvolumes.xml", "tqexcluderules_editable.xml", "tqreports/tqdefcon.xml",
               "tqreports/tqexcluderules_editable_mergelog.txt", "tqreports/tqserv_runs_as.txt",
               "tqreports/tqrollback_current_uxe.txt")
OPERANDS = {"-log_install_event": ("t", "f"), "-volumeinfo": ("/",), "-dirlist": ("/Users",),
            "-dirlistdetail": ("/Users",), "-assignvolumeguid": ("/",), "-assignvolumeguid_hex": ("2f",),
            "-copy_rsrc_fork": (A_FILE, "/tmp/fork"), "-grep": ("one", A_FILE), "-igrep": ("one", A_FILE),
            "-explainfile": ("a.txt", "/tmp/report.txt"), "-open_file_exclusive": ("/nowhere",)}


def every_command():
    """Each word of the command table with operands that it can work with."""
    for word, needed in check_man_pages.table(SOURCES):
        yield word, *OPERANDS.get(word, (A_FILE,) if needed else ())


def tree(root):
    """{path: content or kind} of everything below the root, but for /proc and /tmp."""
    found = {}
    for folder, folders, files in os.walk(root.path("/")):
        folders[:] = [name for name in folders if name not in ("proc", "tmp")]
        found[folder] = None
        for path in (pathlib.Path(folder, name) for name in files):
            found[str(path)] = path.read_bytes() if path.is_file() else path.lstat().st_mode
    return found


class States(ScanCase):
    def test_during_a_scan(self):
        root, photos, _ = self.new_paced_root()
        root.write(A_FILE, "one\n")
        scan = root.start()
        scan_case.wait_for_pause(root, photos)
        scan.send_signal(signal.SIGSTOP)  # or the pause would end before the last command
        lock = root.path(root.lists + "tqfilelist_hour_lock.lck")
        before = os.lstat(lock)
        for words in every_command():
            if words[0] not in ("-first_install_time_urgent", "-pingdrives_thatare_selectedforbackup"):
                self.assertLess(root.run(*words, timeout=20).seconds, 15, words)
        self.assertEqual(os.lstat(lock), before)
        scan.send_signal(signal.SIGCONT)
        self.assert_ran(root.finish(scan))
        self.assert_listed(root, photos)
        self.assert_clean(root)

    def test_nothing_is_created_without_a_data_folder(self):
        root = self.new_root(data="/Library/elsewhere/data")
        root.write(A_FILE, "one\n")
        shutil.rmtree(root.path("/Library/elsewhere"))
        before = tree(root)
        for words in every_command():
            if words[0] not in CREATES_DATA_FOLDER:
                with self.subTest(words):
                    self.assertIn(root.run(*words, timeout=30).status, (0, 1))
                    self.assertEqual(tree(root), before)
        self.assertRegex(root.run("-log_install_event", "t", "t").out, r"\AERROR: did not log Install Event\.\n\Z")
        self.assertIn(b"PRIMARY_DIAGNOSIS: could_not_parse_tqinfo_for_files_to_watch\n", root.read("/tmp/report.txt"))
        self.assertRegex(root.run("-assignvolumeguid", "/").out,
                         r"\ATRUE: Successfully assigned vGuid: v000[0-9a-f]{24}\n\Z")
        self.assertEqual(root.mode(root.data), 0o777)

    def test_no_settings_and_damaged_state(self):
        for damage in (None, b"", b"\0\xff<tqinfo <tqvolume tqVolumeGuid=\"v", "fifo", "folder"):
            root = self.new_root()
            root.write(A_FILE, "one\n")
            root.mkdir(root.reports)
            spoil = {"fifo": lambda file: os.mkfifo(root.path(file)), "folder": root.mkdir}
            for name in STATE_FILES if damage is not None else ():
                spoil.get(damage, lambda file: root.write(file, damage))(root.data + name)
            settings = tree(root).get(root.path(root.data + "tqinfo.xml"))
            for words in every_command():
                if words[0] == "-pingdrives_thatare_selectedforbackup" or (words[0] in SCANS and damage != "fifo"):
                    continue  # they take seconds
                with self.subTest(damage=damage, words=words):
                    self.assertIn(root.run(*words, timeout=30).status, (0, 1))
            self.assertEqual(tree(root).get(root.path(root.data + "tqinfo.xml")), settings)
            self.assertEqual([name for name in root.names(root.lists) if "filelist.dat" in name], [])


class Effects(ScanCase):
    def test_volume_list_file(self):
        root = self.new_root(data="/Users/d")
        root.mount_volume("New", visible=False, identity=False)
        flags = root.data + "tqflags/"
        refused = f"ERROR: The output file argument was too short or did not begin with {flags}/\n"
        longest_refused = flags + "x" * (39 - len(flags))
        for path in (longest_refused, "", "/Users/" + "x" * 50, flags + "../../../Users/" + "x" * 40):
            result = root.run("-listvolumestofile", path)
            self.assertEqual((result.status, result.out, root.exists(path or "/none")), (1, refused, False), path)
        taken, host = longest_refused + "x", mac_root.HOST_GUID
        self.assertEqual([root.run("-listvolumestofile", *words).out for words in ((taken,), ())], ["SUCCESS\n"] * 2)
        self.assertEqual((root.mode(taken), root.read(taken).decode()),
                         (0o666, f"{root.SYSTEM.vguid},gm,{host},/\n"
                          "tqunknown___________________,em,tqunknown_______________,/Volumes/New/\n"))
        names = root.names(flags)
        self.assertRegex(names[0], r"\A\d{13}_list_volumes\.txt\Z")
        result = root.run("-listvolumestofile", path := flags + "missing/" + "x" * 40)
        self.assertEqual((result.status, result.out), (1, f"ERROR: Could not write the file {path}.tqtmp\n"))
        self.assertEqual(root.names(flags), names)

    def test_assignments_at_once_share_nothing(self):
        root = self.new_root()
        volumes = [root.mount_volume(f"Disk {i}", identity=False) for i in range(12)]
        running = [root.start("-assignvolumeguid", volume.mount) for volume in volumes]
        answers = [root.finish(process).out for process in running]
        guids = [answer.split()[-1] for answer in answers]
        self.assertEqual(len({guid[:4] for guid in guids}), 12, answers)
        self.assertLessEqual(set(guids), {line.get("tqVolumeGuid") for line in root.xml("tqvolumes.xml").iter("tqvolume")})

    def test_permissions_are_repaired_and_no_link_followed(self):
        root = self.new_root()
        root.write(root.data + "tqinfo.xml", "")
        for folder, mode in ((INSTALL, 0o700), (root.data, 0o755), (root.lists, 0o700)):
            root.mkdir(folder)
            os.chmod(root.path(folder), mode)
        modes = root.mode(root.data + "tqinfo.xml"), root.mode("/private")
        self.assert_ran(root.run("-fixpermissions"))
        self.assertEqual([root.mode(folder) for folder in (INSTALL, root.data, root.lists)], [0o755, 0o777, 0o777])
        os.symlink("/private", root.path(root.data + "tqflags"))
        result = root.run("-fixpermissions")
        self.assertEqual((result.status, result.out), (1, "Failed to fix permissions on the install dir.\n"))
        self.assertEqual((root.mode(root.data + "tqinfo.xml"), root.mode("/private")), modes)

    def test_reports_and_merged_rules(self):
        root = self.new_root()
        root.select(root.SYSTEM)
        root.run("-log_install_event", "t", "f")
        root.run("-log_install_event", "T", "t")
        self.assertRegex(root.read(root.reports + "install_history.txt").decode(),
                         r"\Agmt_datetime=\d{14}, version=[\d.]+, install=true, autoupdate=false\n"
                         r"gmt_datetime=\d{14}, version=[\d.]+, install=false, autoupdate=true\n\Z")
        root.write(root.data + "tqexcluderules_editable.xml", "<tqexclusions>\n</tqexclusions>\n")
        self.assertEqual([root.run("-merge_exclude_rules").out for _ in range(2)],
                         ["tqfilelist -merge_exclude_rules - Some new blocks were merged!\n", "Nothing changed.\n"])
        root.add_program("/bin/sh")
        root.mkdir("/bin")
        shutil.copy(root.path(INSTALL + "sh"), root.path("/bin/sh"))
        root.write(INSTALL + "tqtransmit", '#!/bin/sh\necho " $#$@ "\necho more\n')
        os.chmod(root.path(INSTALL + "tqtransmit"), 0o755)
        self.assertEqual(root.run("-attempt_run_tqtransmit64").out,
                         f"ok_mac64_1-version: ran file: {INSTALL}tqtransmit\n")


if __name__ == "__main__":
    scan_case.run_tests()
