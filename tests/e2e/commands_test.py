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

    def test_an_old_list_makes_its_volume_urgent(self):
        root = self.new_root()
        photos, away = root.mount_volume("Photos"), mac_root.Volume("/Volumes/Away/", "v0aa" + "a" * 24)
        root.select(root.SYSTEM, photos, away)
        root.write_registry((root.SYSTEM, 0), (photos, 3), (away, 9))
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
