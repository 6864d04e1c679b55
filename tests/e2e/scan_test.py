"""Whole scans of a Mac-shaped root: every list equals an independent walk, entry for entry, and the files beside it say
what they must."""

import os
import shutil
from datetime import datetime, timezone

import mac_root
import scan_case
import trees
from scan_case import ScanCase


class OrdinaryScans(ScanCase):
    def test_first_and_second_scan(self):
        root = self.new_root()
        photos, backup = root.mount_volume("My Photos"), root.mount_volume("X")
        other = root.mount_volume("Not selected")
        self.volumes = (root.SYSTEM, photos, backup)
        root.write(photos.mount + ".tqvol/ping_20010101_9000.log", "old\n")
        root.select(*self.volumes)
        trees.plant_home(root)
        root.write("/Users/bob/Pictures/.localized")
        root.write(photos.mount + "2019/June/beach.jpg", "x" * 77)
        root.write(photos.mount + "Library/left out.jpg", "x")
        root.write("/Applications/App.app/left out", "x")

        began = mac_root.now_millis()
        self.assert_ran(root.run())
        ended = mac_root.now_millis()
        self.check_lists(root)
        self.check_start_line(root, photos, began, ended)
        self.check_plan(root)
        self.check_totals(root)
        self.check_registry(root, "1")  # volumes that the registry just learned of count as never seen
        self.check_modes_and_log(root)
        self.assertEqual(self.pings(root, photos), [])  # the old day's log went first

        os.rename(root.path("/Users/bob/Documents"), root.path("/Users/bob/Papers"))
        os.unlink(root.path("/Users/bob/Movies/Raw/holiday.mov"))
        shutil.rmtree(root.path("/Users/Shared"))
        root.write(photos.mount + "2019/June/beach.jpg", "y" * 78)
        root.write(photos.mount + "2020/July/new.jpg", "y")
        root.write(photos.mount + "2020/just under.iso", size=trees.BIG_FILE - 1)
        root.write(photos.mount + "2020/Disk.ISO", size=trees.BIG_FILE + 1)
        self.assert_ran(root.run())
        self.check_lists(root)
        self.check_registry(root, "5")
        self.assertEqual(root.read(root.lists + "bigfilelist.dat"),
                         b"f\t524288001\t/Volumes/My Photos/2020/Disk.ISO\n")
        ping, = self.pings(root, photos)
        self.assertRegex(ping, r"\Aping_20[2-9]\d{5}_0000\.log\Z")
        self.assertEqual(root.read(photos.mount + ".tqvol/" + ping).count(b" - randomNum="), 1)
        self.assertEqual(root.names(other.mount + ".tqvol"), ["tqscratch", "tqvol_id.xml"])
        self.assertIn("- after, signConnect=true,  ", root.log())

    def pings(self, root, volume):
        return [name for name in root.names(volume.mount + ".tqvol") if name.startswith(("ping_", "wake_"))]

    def check_lists(self, root):
        self.assert_clean(root)
        self.assert_listed(root, *self.volumes)
        self.assertEqual([v.tag for v in self.volumes], ["root", "my p", "x___"])
        self.assertNotIn(b"left out", b"".join(root.read(root.list_path(v)) for v in self.volumes))

    def check_start_line(self, root, volume, began, ended):
        line = root.read(root.list_path(volume)).split(b"\n", 1)[0].decode()
        millis = int(line.split()[2][:-1], 16)
        started = datetime.fromtimestamp(millis // 1000, timezone.utc)
        self.assertEqual(line, f"# GmtMillisThisListWasStarted: {millis:016x}, GmtDateTime: {started:%Y%m%d%H%M%S}")
        self.assertTrue(began <= millis <= ended, line)

    def check_plan(self, root):
        document = root.xml("tqfilelists/topdirs.xml")
        plan = sorted((path, mode, volume) for volume in self.volumes for mode, path in self.tree(root, volume).plan())
        self.assertEqual([(d.get("num"), d.get("vguid"), d.get("path")) for d in document.findall("dir")],
                         [(str(i), volume.vguid, mode + path.decode()) for i, (path, mode, volume) in enumerate(plan)])
        stats = document.find("stats")
        self.assertEqual((stats.get("numtopdirs"), stats.get("next_to_index")), (str(len(plan)), "0"))

    def check_totals(self, root):
        """Hand-made totals of the home folder; what else is listed and wanted falls under other, but for two files."""
        sizes = {category: list(files.values()) for category, files in trees.HOME_WANTED.items()}
        sizes["pict"] += [77]  # beach.jpg
        sizes["docs"] += [len("a volume\n")] * 2  # Readme.txt
        sizes["other"] += [os.lstat(os.path.join(path, name)).st_size for folder in ("/lib", "/lib64")
                           for path, _, names in os.walk(root.path(folder)) for name in names]
        sizes["everything"] = sum(sizes.values(), [])
        info = root.xml("tqfilelists/filestats.xml").find("info")
        self.assertEqual({name: (info.get(name + "num"), info.get(name + "totbytes")) for name in sizes},
                         {name: (str(len(files)), str(sum(files))) for name, files in sizes.items()})
        self.assertEqual((info.get("plat"), info.get("osdetail"), info.get("hguid"), info.get("aonlinename")),
                         ("mac", "MacOsX-10.15", mac_root.HOST_GUID, "Bobs Mac"))
        self.assertEqual(root.read(root.lists + "bigfilelist.dat"),
                         b"t\t524288000\t/Users/bob/Movies/Raw/holiday.mov\n")

    def check_registry(self, root, most_urgent):
        volumes = root.xml("tqvolumes.xml").findall("tqvolume")
        self.assertEqual({(v.get("tqVolumeGuid"), bytes.fromhex(v.get("mountPointPathHex")).decode()) for v in volumes},
                         {(v.vguid, v.mount) for v in self.volumes})
        levels = root.xml("tqreports/tqdefcon.xml")
        self.assertEqual(levels.find("volume_defcon_summary").get("most_critial_volume_defcon"), most_urgent)

    def check_modes_and_log(self, root):
        logs = root.data + "tqlogs/tqfilelist"
        self.assertEqual({root.mode(root.lists + name) for name in root.names(root.lists)}, {0o666})
        self.assertEqual({root.mode(folder) for folder in (root.lists, root.reports, logs)}, {0o777})
        self.assertIn(f"tqfilelist{datetime.now(timezone.utc):%d}.log", root.names(logs))
        prefix = r"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \d{10} - | {19}defcon_volume_index=)"
        self.assertRegex(root.log(), rf"\A{prefix}\n{prefix}starting tqfilelist\n({prefix}.*\n)+"
                         rf".*got three hour lock, starting scan\.\.\.\.\n({prefix}.*\n)+"
                         rf"{prefix}tqfilelist processId=\d+ exiting out of main, numSeconds=\d+\n\Z")


class OtherTrees(ScanCase):
    def test_real_folders_of_this_machine(self):
        root = self.new_root()
        real = root.mount_volume("Real", size="1g")
        for number, folder in enumerate(os.environ.get("TQ_REAL_FOLDERS", "/usr").split(":")):
            root.bind(folder, f"{real.mount}tree{number}")
        root.select(real)
        result = self.assert_ran(root.run("-urgent_refresh_all", timeout=1800))
        tree = self.assert_listed(root, real)
        print(f"{tree.entries} entries, {result.seconds:.2f} s, peak memory {result.peak_kilobytes / 1024:.1f} MiB")
        large = root.read(root.lists + "bigfilelist.dat").splitlines() if tree.big_files else []
        self.assertEqual([line.split(b"\t", 1)[1] for line in large], [b"%d\t%s" % file for file in tree.big_files])

    def test_hostile_names_kinds_depths_and_unreadable_folders(self):
        root = self.new_root()
        zoo, deep = root.mount_volume("Zoo"), root.mount_volume("Deep")
        root.select(root.SYSTEM, zoo, deep)
        locked = ["/Users/bob/Library", deep.mount + "private stuff", deep.mount + "x/y/z"]
        for folder in locked:
            root.write(folder + "/secret/file.txt", "x")
            root.write(os.path.dirname(folder) + "/beside.txt", "x")
            os.chmod(root.path(folder), 0)
        trees.plant_hostile(root, zoo.mount + "animals")
        trees.plant_hostile(root, "/Volumes/Zoo")
        for file in ("Users/Shared/.anomaly", "Users/Shared/kept", "top\\dir/sub\\dir/inner/file.txt",
                     "line\nfeed/second\nlevel/file.txt"):
            root.write(zoo.mount + file, "x")
        trees.plant_deep(root, deep.mount + "a/b", 1002)
        trees.plant_long(root, deep.mount + "long/names")
        self.assert_ran(root.run(may_read_anything=False))
        self.assert_clean(root)
        for volume in (root.SYSTEM, zoo, deep):
            self.assert_listed(root, volume, unreadable=locked)
            self.assertNotIn(b"secret", root.read(root.list_path(volume)))

        base, listed = b"/Volumes/Zoo/animals/zoo/", root.read(root.list_path(zoo))
        for absent in (b"feed.txt", b"return.txt", b".anomaly", b"\\", b"\r"):
            self.assertNotIn(absent, listed)
        for modified, name in ((b"fffffffffad9a400", b"before-1970"), (b"0000000000000000", b"epoch"),
                               (b"%016x" % 1_500_000_000_000, b"half-second")):
            self.assertIn(b"f\t" + modified + b"\t1\t" + base + name + b"\n", listed)
        log = root.log()
        for message, name in (("filename with embedded <CR> or <LF>", "line__\\n__feed.txt"),
                              ("dirname with TimeMachine in it", "Backups.backupdb"),
                              ("dirname with illegal trailing sep", "trailing\\")):
            self.assertIn(f"WARNING: skipping {message}: {os.fsdecode(base)}{name}\n", log)
        self.assertIn(f'opendir failed for dirName="{locked[2]}", errno 13 (Permission denied)', log)
        self.assertEqual(log.count("ERROR: RecursivelyAddFilenamesToList recursion limit hit for: "), 1)
        self.assertEqual(root.read(root.list_path(deep)).count(b"# Dir: /Volumes/Deep/a/b/d"), 999)
        self.assertEqual(root.read(root.list_path(deep)).count(b"# Dir: /Volumes/Deep/long/names/n"), 16)


if __name__ == "__main__":
    scan_case.run_tests()
