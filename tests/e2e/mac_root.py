"""A small Mac-shaped root directory inside a private mount namespace, and the program run with it as its "/".

Everything here follows the documented file formats (docs/formats.md), never the program's code. A script calls
`enter_namespace()` first: it starts itself again inside a namespace of its own, so that mounting needs no privileges
and nothing outlives the script but an empty folder at worst.
"""

import atexit
import contextlib
import ctypes
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ElementTree
from collections import namedtuple

SKIP_STATUS = 77
RunResult = namedtuple("RunResult", "status out err seconds peak_kilobytes")
_INSIDE = "--inside-namespace"
HOST_GUID = "0123456789abcdef01234567"
INSTALL = "/Library/Kestrune.tqpkg/"
DEFAULT_DATA = INSTALL + "tqdata/"
DAY_MILLIS = 86_400_000

FILE_SETS = {
    "docs": "doc,docx,html,pdf,txt,wma", "spreadsheets": "csv,xls,xlsx", "presentations": "keynote,pptx",
    "financial": "qbw,tax", "pictures": "gif,jpeg,jpg,png", "music": "flac,mp3,wma", "video": "m4v,mov,mp4",
    "email": "eml,emlx", "zips": "gz,tar,zip", "browserfavorites": "url,webloc", "usercustom01": ""}
EXCLUDED_TYPES = "wab~,vhd,iso,dmg,dll,o,vmdk"
EXCLUDED_FOLDERS = ("applications/", "automount/", "developer/", "library/", "private/", "system/", "bin/", "dev/",
                    "etc/", "net/", "opt/", "sbin/", "usr/", "backups.backupdb/", ".mobilebackups/", "home/")


def enter_namespace():
    """Starts this script again inside a private mount namespace. Ends it with the skip status where that is refused."""
    if _INSIDE in sys.argv:
        sys.argv.remove(_INSIDE)
        return
    for form in (["unshare", "--user", "--map-root-user", "--mount", "--propagation", "private"],
                 ["unshare", "--mount", "--propagation", "private"]):  # the second for root without user namespaces
        with contextlib.suppress(OSError, subprocess.SubprocessError):
            subprocess.run([*form, "mount", "-t", "tmpfs", "x", "/tmp"], capture_output=True, timeout=30, check=True)
            sys.stdout.flush()
            os.execvp(form[0], form + [sys.executable, *sys.argv, _INSIDE])
    print("SKIPPED: this system allows no private mount namespace (unshare --user --map-root-user --mount), "
          "so a Mac-shaped root cannot be built here", flush=True)
    sys.exit(SKIP_STATUS)


class Volume:
    """A volume as the settings select it: mount point with trailing "/", volume GUID, tag of its list's name."""

    def __init__(self, mount, vguid):
        self.mount, self.vguid = mount, vguid
        name = "root" if mount == "/" else mount.rstrip("/").split("/")[-1]
        self.tag = (re.sub(r"[/\\:,]", "_", name).lower() + "______")[:4]
        self.list_name = f"{vguid}_{self.tag}_filelist.dat"


class MacRoot:
    """The root directory. Paths given to its methods are paths as the program sees them."""

    SYSTEM = Volume("/", "v0001a2b3c4d5e6f708192a3b4c5")

    def __init__(self, program, data=DEFAULT_DATA, data_size=None, client_installed=True):
        self.data = data if data.endswith("/") else data + "/"
        self.lists = self.data + "tqfilelists/"
        self.reports = self.data + "tqreports/"
        self.volumes_made = 0
        self._root = tempfile.mkdtemp(prefix="tqfilelist_e2e_", dir="/tmp")
        self._running = []
        self._mount("-t", "tmpfs", "-o", "mode=0755,size=1g", "tqroot", self._root)
        atexit.register(self.close)
        for folder in ("/Volumes", "/private/tmp", "/Applications", "/Users", "/tmp", INSTALL):
            self.mkdir(folder)
        self.bind("/proc", "/proc")
        self.write("/System/Library/CoreServices/SystemVersion.plist",
                   '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n<dict>\n<key>ProductVersion</key>\n'
                   "<string>10.15.7</string>\n</dict>\n</plist>\n")
        self.add_program(program)
        if client_installed:
            self._install_client(data_size)

    # ---- building ----

    def _mount(self, *words):
        subprocess.run(["mount", *words], check=True, capture_output=True)

    def add_program(self, program):
        listing = subprocess.run(["ldd", program], capture_output=True, text=True).stdout
        libraries = [(library, library) for library in re.findall(r"(/\S+) \(0x", listing)]
        for source, target in [(program, INSTALL + os.path.basename(program)), *libraries]:
            self.mkdir(os.path.dirname(target))
            shutil.copyfile(source, self.path(target))
            os.chmod(self.path(target), 0o755)

    def _install_client(self, data_size):
        self.write(INSTALL + "tqinstall.xml",
                   f'<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n<datadir>{self.data.rstrip("/")}</datadir>\n'
                   f"<hguid>{HOST_GUID}</hguid>\n</contents>\n")
        self.mkdir(self.data)
        if data_size is not None:
            self._mount("-t", "tmpfs", "-o", "size=" + data_size, "tqdata", self.path(self.data))
        self.write_identity(self.SYSTEM)

    def path(self, inside):
        """Where a path of the program lies for this process (text for text, bytes for bytes)."""
        return os.fsencode(self._root) + inside if isinstance(inside, bytes) else self._root + inside

    def mkdir(self, folder):
        os.makedirs(self.path(folder), exist_ok=True)

    def write(self, file, content=b"", seconds=None, size=None):
        target = self.path(file)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as out:
            out.write(os.fsencode(content))
            out.truncate(size)
        if seconds is not None:
            os.utime(target, (seconds, seconds))

    def mount_volume(self, name, vguid=None, size="256m", visible=True, identity=True):
        """Mounts a tmpfs at /Volumes/<name>, with identity and one visible file, as an ordinary volume has them."""
        mount = f"/Volumes/{name}/"
        self.mkdir(mount)
        self._mount("-t", "tmpfs", "-o", "size=" + size, "tqvolume", self.path(mount))
        self.volumes_made += 1
        volume = Volume(mount, vguid or f"v{self.volumes_made:03x}aa11bb22cc33dd44ee55ff66")
        if identity:
            self.write_identity(volume)
        if visible:
            self.write(mount + "Readme.txt", "a volume\n")
        return volume

    def bind(self, source, target):
        self.mkdir(target)
        self._mount("--rbind", source, self.path(target))

    def make_read_only(self, volume):
        self._mount("-o", "remount,ro", self.path(volume.mount))

    def unmount(self, mount):
        subprocess.run(["umount", "--lazy", self.path(mount.rstrip("/"))], check=True)

    def write_identity(self, volume, host_guid=HOST_GUID):
        folder, what = self.data + "tqvol_system_volume/", "the System Volume (/)"
        if volume.mount != "/":
            folder, what = volume.mount + ".tqvol/", "this drive volume"
            self.mkdir(folder + "tqscratch/tqcurrentlargefile")
        self.write(folder + "tqvol_id.xml",
                   '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
                   f'<readme txt="WARNING: deleting this file will stop Kestrune from backing up {what}" />\n'
                   f'<tqvolume vguid="{volume.vguid}" associated_hguid="{host_guid}" />\n</contents>\n')

    def select(self, *volumes):
        """Writes tqinfo.xml with these volumes selected and their default filters, and their upload records."""
        wanted = {"": "all", **dict.fromkeys(EXCLUDED_FOLDERS, "none")}
        sets, selected, filters = map("".join, (
            (f'<filesetdef filesetname="{name}" extensions="{types}" />\n' for name, types in FILE_SETS.items()),
            (f'    <tqvolume tqVolumeGuid="{v.vguid}" mountPointPath="{v.mount}" />\n' for v in volumes),
            (f'    <tqdirfilter dir="{v.mount.lower()}{folder}" whichfiles="{which}" /> \n'
             for v in volumes for folder, which in wanted.items())))
        self.write(self.data + "tqinfo.xml", f"""\
<?xml version="1.0" encoding="UTF-8" ?>
<tqinfo>

<myidentity online_hostname="Bobs Mac" tqlogin="bob@kestrune.example" />

<myprefs allow_network_tests="true" use_time_machine_excludes="false" show_help_tips="true" \
numdays_warn_if_no_backup="7" />

<uilang tqui_locale="default" />

{sets}
<smartwatch smartwatchfilesets="docs,spreadsheets,presentations,financial,pictures,music,video,browserfavorites" />

<globalexcludes excludefiletypes="{EXCLUDED_TYPES}" />

<mountpoints mountpoints_to_watch="{",".join(v.mount for v in volumes)}" />

<scratch_drive scratch_vol_guid="{self.SYSTEM.vguid}" scratch_mountpoint="/" />

<hard_drives_to_backup>
{selected}</hard_drives_to_backup>

<do_backup dst_type="tqdatacenter" dst_fileformat="tqff" max_filesize_mb="1000000000" backup_on_battery="true" \
net_auto_throttle="true" net_throttle="50" num_backup_threads="1" backup_schedule_type="continuously" \
backup_schedule_detail="none" backup_schedule_end_hour="none" >
{filters}</do_backup>  

</tqinfo>
""")
        for volume in volumes:
            self.write_upload_record(volume)

    def upload_record(self, volume):
        return f"{self.data}tqlogs/tqreports_lastfilestransmitted/tqstat_pervol_{volume.vguid}_latest_file.xml"

    def write_upload_record(self, volume, days_ago=0):
        self.write(self.upload_record(volume),
                   f'<contents>\n<latest_file gmt_millis="{millis_ago(days_ago):016x}" />\n</contents>\n')

    def write_registry(self, *volumes_and_days):
        """Writes tqvolumes.xml from pairs (volume, days since it was last seen attached)."""
        lines = "".join(f'<tqvolume tqVolumeGuid="{v.vguid}" mountPointPathHex="{v.mount.encode().hex()}" '
                        f'typeOfVolumeTwoCharCode="gm" lastTimeVolumeWasSeenAttachedGmtMillis="{millis_ago(days)}" '
                        'numBytesFreeOnVolume="1" numBytesUsedOnVolume="2" numBytesTotalOnVolume="3" />\n'
                        for v, days in volumes_and_days)
        self.write(self.data + "tqvolumes.xml", '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n\n'
                   '<tqvol_metadata lastAssignedTqVolShortId="0ff" gmtMillisThisFileWasWritten="1700000000000" '
                   f'gmtDateTimeFileWasWritten="20231114221320" />\n\n{lines}\n</contents>\n')

    # ---- running ----

    def start(self, *arguments, program="tqfilelist", may_read_anything=True):
        """Starts a program. `may_read_anything` False: permission bits bind it like an ordinary user."""
        def prepare():
            os.chroot(self._root)
            os.chdir("/")
            os.umask(0o022)
            if not may_read_anything:
                for capability in (1, 2):  # CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH
                    if ctypes.CDLL(None).prctl(24, capability, 0, 0, 0) != 0:  # PR_CAPBSET_DROP
                        raise OSError("prctl")
        output = tempfile.TemporaryFile(), tempfile.TemporaryFile()
        process = subprocess.Popen([INSTALL + program, *arguments], preexec_fn=prepare, stdin=subprocess.DEVNULL,
                                   stdout=output[0], stderr=output[1], env={"PATH": "/usr/bin:/bin", "LANG": "C"})
        process.outputs, process.began = output, time.monotonic()
        self._running.append(process)
        return process

    def finish(self, process, timeout=120):
        """Waits for a started program and gives its RunResult; one that does not end in time is killed and an error."""
        def ended():
            answer = os.wait4(process.pid, os.WNOHANG)
            return answer if answer[0] != 0 else None
        _, status, usage = wait_until(ended, "the program's end", timeout)
        seconds = time.monotonic() - process.began
        process.returncode = os.waitstatus_to_exitcode(status)
        self._running.remove(process)
        texts = []
        for stream in process.outputs:
            with stream:
                stream.seek(0)
                texts.append(stream.read().decode("utf-8", "backslashreplace"))
        return RunResult(process.returncode, *texts, seconds, usage.ru_maxrss)

    def run(self, *arguments, timeout=120, **options):
        return self.finish(self.start(*arguments, **options), timeout)

    # ---- reading ----

    def read(self, file):
        with open(self.path(file), "rb") as source:
            return source.read()

    def xml(self, file):
        return ElementTree.fromstring(self.read(self.data + file))

    def exists(self, file):
        return os.path.lexists(self.path(file))

    def mode(self, file):
        return os.lstat(self.path(file)).st_mode & 0o7777

    def names(self, folder):
        return sorted(os.listdir(self.path(folder))) if self.exists(folder) else []

    def list_path(self, volume):
        return self.lists + volume.list_name

    def log(self):
        folder = self.data + "tqlogs/tqfilelist/"
        return "".join(self.read(folder + name).decode("utf-8", "surrogateescape") for name in self.names(folder))

    def close(self):
        for process in self._running:
            process.kill()
            process.wait()
        self._running = []
        subprocess.run(["umount", "--lazy", self._root], capture_output=True)
        with contextlib.suppress(OSError):
            os.rmdir(self._root)


def now_millis():
    return int(time.time() * 1000)


def millis_ago(days):
    return now_millis() - int(days * DAY_MILLIS)


def wait_until(condition, what, timeout=30.0):
    """Polls `condition` until it gives something true, and gives that back."""
    deadline = time.monotonic() + timeout
    while not (answer := condition()):
        if time.monotonic() > deadline:
            raise TimeoutError("waited in vain for " + what)
        time.sleep(0.005)
    return answer


sys.setrecursionlimit(20_000)  # trees of 1,000 levels are made and removed by recursive library calls
