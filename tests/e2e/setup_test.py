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


if __name__ == "__main__":
    scan_case.run_tests()
