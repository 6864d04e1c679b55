"""How a run behaves over time: pauses, urgency, stop requests, the scan lock, a death in mid-run."""

import os
import signal
import time

import scan_case
from scan_case import ScanCase, unfinished_list, wait_for_pause


class Pacing(ScanCase):
    def test_first_install_paced_and_urgent_runs(self):
        root, photos, fresh = self.new_paced_root(220, "-first_install_time_urgent",
                                                    flag="urgent_is_still_running_flag.txt")
        self.assertRegex(root.read(root.lists + "firstfilescantime.xml"),
                         rb'\A<\?xml version="1.0" encoding="UTF-8"\?>\n<firsttimestats>\n'
                         rb'<stat install_fscan_numsecs="\d{1,2}" />\n</firsttimestats>\n\Z')
        self.assertFalse(root.exists(root.lists + "urgent_is_still_running_flag.txt"))
        self.assertIn(" URGENTLY and AT_FIRST_INSTALL_TIME topdirs.xml.future did not exist", root.log())
        paced = self.assert_ran(root.run())
        urgent = self.assert_ran(root.run("-urgent_refresh_all"))
        self.assertGreater(paced.seconds, 9.0)  # the drive ping's three seconds, and two pauses in one planned folder
        self.assertGreater(paced.seconds - fresh.seconds, 4.0)
        self.assertGreater(paced.seconds - urgent.seconds, 4.0)
        self.assertIn(" URGENTLY topdirs.xml.future did not exist, starting fresh scan",
                      root.log().rsplit("got three hour lock", 1)[-1])
        self.assert_listed(root, photos)

    def test_stop_request_second_copy_and_death_in_mid_run(self):
        root, photos, _ = self.new_paced_root()
        before, lock = root.read(root.list_path(photos)), root.lists + "tqfilelist_hour_lock.lck"
        root.write(photos.mount + "Album/new.jpg", "new")
        run = root.start()
        wait_for_pause(root, photos)
        root.write(root.lists + "tqfilelist_stop_run.txt")
        self.assert_ran(root.finish(run))
        self.assertEqual(root.read(root.list_path(photos)), before)
        self.assertFalse(root.exists(root.lists + "tqfilelist_stop_run.txt") or root.exists(lock))
        self.assertIn("- STOP RUNNING file is in place, deleting file and exiting!", root.log())

        os.unlink(root.path(root.list_path(photos) + ".future"))  # or it would look like the next run's pause
        run = root.start()
        wait_for_pause(root, photos)
        os.kill(run.pid, signal.SIGSTOP)  # it must still hold the lock when the second copy asks for it
        self.assert_ran(root.run())
        self.assertIn("could not grab three hour lock, so some OTHER tqfilelist is already running, exiting quietly",
                      root.log())
        self.assertTrue(root.exists(lock))
        self.assertNotEqual(unfinished_list(root, photos), b"")

        run.kill()
        self.assertEqual(root.finish(run).status, -signal.SIGKILL)
        self.assertEqual(root.read(root.list_path(photos)), before)
        self.assert_ran(root.run())  # the dead run's lock is young: nothing may be touched yet
        self.assertEqual(root.read(root.list_path(photos)), before)

        long_ago = time.time() - 3 * 3600 - 60
        os.utime(root.path(lock), (long_ago, long_ago))
        self.assert_ran(root.run("-urgent_refresh_all"))
        self.assert_listed(root, root.SYSTEM, photos)
        self.assert_clean(root)


if __name__ == "__main__":
    scan_case.run_tests()
