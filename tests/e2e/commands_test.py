"""The commands about volumes: what they leave behind on the volumes and in the registry."""

import os
import re
import xml.etree.ElementTree as ElementTree

import mac_root
import scan_case
from scan_case import ScanCase


class VolumeCommands(ScanCase):
    def test_a_new_volume_gets_its_identity(self):
        root = self.new_root()
        root.select(root.SYSTEM)
        root.write_registry((root.SYSTEM, 1))
        root.mount_volume("New Disk", identity=False)
        identity = "/Volumes/New Disk/.tqvol/tqvol_id.xml"

        answer = root.run("-assignvolumeguid", "/Volumes/New Disk").out
        match = re.fullmatch(r"TRUE: Successfully assigned vGuid: (v100[0-9a-f]{24})\n", answer)
        self.assertTrue(match, answer)
        volume = ElementTree.fromstring(root.read(identity)).find("tqvolume")
        self.assertEqual((volume.get("vguid"), volume.get("associated_hguid")), (match[1], mac_root.HOST_GUID))
        self.assertTrue(root.exists("/Volumes/New Disk/.tqvol/tqscratch/tqcurrentlargefile"))
        self.assertIn(b"WARNING: do not delete this directory", root.read("/Volumes/New Disk/.tqvol/README.txt"))
        registered = root.xml("tqvolumes.xml")
        self.assertEqual([(v.get("tqVolumeGuid"), bytes.fromhex(v.get("mountPointPathHex")))
                          for v in registered.findall("tqvolume")],
                         [(root.SYSTEM.vguid, b"/"), (match[1], b"/Volumes/New Disk/")])
        self.assertEqual(registered.find("tqvol_metadata").get("lastAssignedTqVolShortId"), "100")

        hexed = b"/Volumes/New Disk/".hex()
        self.assertEqual(root.run("-assignvolumeguid_hex", hexed).out,
                         f"TRUE: Already had existing vGuid: {match[1]}\n")
        root.write_identity(mac_root.Volume("/Volumes/New Disk/", "v123" + "4" * 24), host_guid="f" * 24)
        self.assertRegex(root.run("-assignvolumeguid_hex", hexed).out,
                         r"\ATRUE: Successfully assigned vGuid: v101[0-9a-f]{24}\n\Z")
        self.assertEqual([name for name in root.names("/Volumes/New Disk/.tqvol") if "aside" in name], [])
        for operand in ("/Volumes/Missing/", "/Users"):
            self.assertTrue(root.run("-assignvolumeguid", operand).out.startswith(
                "FALSE: could not find volume in currently attached volList: " + operand.rstrip("/") + "/"))
        for suffix, operand in (("_hex", "zz"), ("_hex", ""), ("", "")):
            self.assertEqual(root.run("-assignvolumeguid" + suffix, operand).out,
                             f"FALSE: could not find volume in currently attached volList: {operand}\n")

    def test_reports_about_volumes(self):
        root = self.new_root()
        photos, empty = root.mount_volume("Photos", size="3g"), root.mount_volume("Empty", visible=False)
        root.mkdir("/Volumes/Leftover")
        root.write("/Volumes/Leftover/file", "x")
        away = mac_root.Volume("/Volumes/Away/", "v0aa" + "a" * 24)
        root.select(root.SYSTEM, photos, away)
        root.write_registry((root.SYSTEM, 0), (photos, 3), (away, 9))

        kinds = ((root.SYSTEM, "gm"), (photos, "gm"), (empty, "em"))
        attached = root.run("-queryattachedvolumes").out
        self.assertEqual(re.findall(r"Drive: (\d+)\nMount Point Path: (.*)\n", attached),
                         [("0", "/"), ("1", "/Volumes/Photos/"), ("2", "/Volumes/Empty/")])
        self.assertEqual(re.findall(r"Tq VolumeType:    (.*)\nTq Volume GUID:   (.*)\nTq Assoc HGUID:   (.*)\n",
                                    attached), [(kind, v.vguid, mac_root.HOST_GUID) for v, kind in kinds])
        self.assertIn(f"Num Bytes Total:  {3 << 30}\n", attached)
        self.assertTrue(attached.endswith("\nALL DONE\n"))

        shown = root.run("-listvolumes").out
        self.assertIn("SummaryLine: YesBackedUp_con,gm,t0u0,/__xxx,gm,t0u0,/Volumes/Away/__con,gm,t0u0,/Volumes/Photos/"
                      "__NotBackedUp_con,em,t0u0,/Volumes/Empty/\n", shown)
        for volume, tag in ((root.SYSTEM, " (SystemVolume) "), (away, " (Unplugged)    "), (photos, " " * 16),
                            (empty, "  (Empty)       ")):
            self.assertIn(f"  {volume.mount}{tag} vguid={volume.vguid}\n", shown)

        output = root.data + "tqflags/1234567890123_list_volumes.txt"
        self.assertEqual(root.run("-listvolumestofile", output).out, "SUCCESS\n")
        self.assertEqual(root.read(output).decode(),
                         "".join(f"{v.vguid},{kind},{mac_root.HOST_GUID},{v.mount}\n" for v, kind in kinds))
        stolen = "/Users/a_name_that_is_long_enough_to_be_taken.txt"
        self.assertEqual((root.run("-listvolumestofile", stolen).status, root.exists(stolen)), (1, False))

        root.write(root.list_path(photos), f"# GmtMillisThisListWasStarted: {mac_root.millis_ago(30):016x}, x\n")
        answer = root.run("-update_tqdefcon_xml").out
        self.assertIn("SUCCESS reading updated file, criticalDefcon=1\n", answer)
        self.assertIn("A Defcon elevated drive is attached, defcon=1, "
                      f"mountPoint={photos.mount}, volId={photos.vguid}\n", answer)
        os.unlink(root.path(root.reports + "tqdefcon.xml"))
        os.unlink(root.path(root.upload_record(away)))
        self.assertIn("ERROR reading updated file: ", root.run("-update_tqdefcon_xml").out)
        self.assertFalse(root.exists(root.reports + "tqdefcon.xml"))

    def test_ping_leaves_one_log_on_each_selected_drive(self):
        root = self.new_root()
        photos, other = root.mount_volume("Photos"), root.mount_volume("Other")
        root.select(root.SYSTEM, photos)
        root.write(photos.mount + ".tqvol/ping_20010101_9000.log", "old\n")
        for logs, lines in (([], 0), (["0000"], 1), (["0001"], 2)):  # the old day's log goes first
            self.assert_ran(root.run("-pingdrives_thatare_selectedforbackup"))
            left = [name for name in root.names(photos.mount + ".tqvol") if name.startswith(("ping_", "wake_"))]
            self.assertEqual([re.sub(r"^ping_20[2-9]\d{5}_(\d{4})\.log$", r"\1", name) for name in left], logs)
            pings = b"".join(root.read(photos.mount + ".tqvol/" + name) for name in left)
            self.assertEqual(pings.count(b" - randomNum="), lines)
        self.assertEqual(root.names(other.mount + ".tqvol"), ["tqscratch", "tqvol_id.xml"])
        self.assertIn("- after, signConnect=true,  ", root.log())


if __name__ == "__main__":
    scan_case.run_tests()
