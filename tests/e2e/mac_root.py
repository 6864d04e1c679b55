"""A small Mac-shaped root directory inside a private mount namespace, and the program run with it as its "/".

Everything here follows the documented file formats (docs/formats.md), never the program's code. A script calls
`enter_namespace()` first: it starts itself again inside a namespace of its own, so that mounting needs no privileges
and nothing outlives the script but an empty folder at worst.
"""

import atexit
import ctypes
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ElementTree

SKIP_STATUS = 77
_INSIDE = "--inside-namespace"
HOST_GUID = "0123456789abcdef01234567"
INSTALL = "/Library/Kestrune.tqpkg/"
DEFAULT_DATA = INSTALL + "tqdata/"
DAY_MILLIS = 86_400_000

FILE_SETS = {
    "docs": "dic,dif,doc,dochtml,docmhtml,docm,docx,docxml,dot,dotx,dotxml,dpx,exc,fad,fdf,fphtml,gdb,gra,grd,htm,html,"
            "nick,nkz,odf,odt,one,pages,pdf,rtf,scp,sxw,txt,wma,wpd,wps,wtx,rwz,xml",
    "spreadsheets": "csv,mda,mdb,mde,numbers,odb,ods,qpw,sxc,wdb,wks,xlr,xls,xlsb,xlsm,xlsx,xltm,xltx,xlt,xltx,xlw",
    "presentations": "keynote,ppt,pot,pps,ppa,sxi,odp,pptx,pptm,ppsx,potx,potm",
    "financial": "abd,hcx,ibank,npc,qba,qbb,qbw,qdf,qdt,qel,qif,qmd,qph,qsd,qtx,t08,tax,t04,t05,t06,t07,t08,t09,tdb",
    "pictures": "apdb,ai,bmp,cr2,crw,dib,dng,emf,fppiclib,icl,icns,ico,icon,img,jfif,jpg,jpe,jpeg,jp2,gif,lrcat,mac,"
                "mrw,nef,odg,pef,pic,pict,pct,pcx,pdp,png,pnt,pntd,psd,qti,qtif,rle,svg,tif,tiff,wdp,wmd,wmf,xcf",
    "music": "aif,aifc,aiff,au,cda,flac,mp3,mid,midi,m4a,m4b,m4p,m4r,nmw,oga,ogg,rmi,snd,wav,wpl,wm,wma,wmx,wvx",
    "video": "asx,asf,avi,dv,dvr-ms,mov,m2v,m2ts,m4v,mfp,mkv,mlv,mp2,mp4,mpa,mpe,mpeg,mpg,mod,mpv2,mp2v,msdvd,mswmm,"
             "mts,ogv,qt,ram,rm,rmvb,swf,spd,vob,wmv",
    "email": "dbx,eml,emlx,emlxpart,mapimail,mbx,oab,ost,pab,pce,pst,wab,wab~,msf,toc",
    "zips": "bz2,cpgz,gz,lightspeedbackup,rar,sit,tar,tgz,tz,z,zip",
    "browserfavorites": "adr,url,webbookmark,webloc",
    "usercustom01": "",
}
EXCLUDED_TYPES = ("wab~,vmc,vhd,vhdx,vdi,vo1,vo2,vsv,vud,iso,dmg,sparseimage,sys,cab,exe,msi,dll,dl_,wim,ost,o,qtch,"
                  "log,ithmb,vmdk,vmem,vmsd,vmsn,vmss,vmx,vmxf,menudata,appicon,appinfo,pva,pvs,pvi,pvm,fdd,hds,drk,"
                  "mem,nvram,hdd")
EXCLUDED_FOLDERS = ("applications/", "automount/", "developer/", "library/", "private/", "system/", "bin/", "dev/",
                    "etc/", "net/", "opt/", "sbin/", "usr/", "backups.backupdb/", ".mobilebackups/", "home/")


def _namespace_command():
    """The words that start a command in a private mount namespace here, or None where the system refuses."""
    forms = [["unshare", "--user", "--map-root-user", "--mount", "--propagation", "private"]]
    if os.geteuid() == 0:
        forms.append(["unshare", "--mount", "--propagation", "private"])
    for form in forms:
        try:
            probe = subprocess.run(form + ["sh", "-c", "mount -t tmpfs probe /tmp"], capture_output=True, timeout=30)
        except (OSError, subprocess.TimeoutExpired):
            continue
        if probe.returncode == 0:
            return form
    return None


def enter_namespace():
    """Starts this script again inside a private mount namespace. Ends it with the skip status where that is refused."""
    if _INSIDE in sys.argv:
        sys.argv.remove(_INSIDE)
        return
    command = _namespace_command()
    if command is None:
        print("SKIPPED: this system allows no private mount namespace (unshare --user --map-root-user --mount), "
              "so a Mac-shaped root cannot be built here", flush=True)
        sys.exit(SKIP_STATUS)
    sys.stdout.flush()
    os.execvp(command[0], command + [sys.executable, *sys.argv, _INSIDE])


def as_bytes(text):
    return text if isinstance(text, bytes) else os.fsencode(text)


class Volume:
    """A volume as the settings select it: mount point with trailing "/", volume GUID, tag of its list's name."""

    def __init__(self, mount, vguid):
        self.mount = mount
        self.vguid = vguid
        name = "root" if mount == "/" else mount.rstrip("/").split("/")[-1]
        self.tag = (re.sub(r"[/\\:,]", "_", name).lower() + "______")[:4]
        self.list_name = f"{vguid}_{self.tag}_filelist.dat"


class RunResult:
    def __init__(self, status, out, err, seconds, peak_kilobytes):
        self.status, self.out, self.err, self.seconds, self.peak_kilobytes = status, out, err, seconds, peak_kilobytes


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
        for folder in ("/proc", "/Volumes", "/private/tmp", "/Applications", "/Users", "/tmp",
                       "/System/Library/CoreServices", INSTALL):
            self.mkdir(folder)
        self._mount("--rbind", "/proc", self._root + "/proc")
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
        """Copies a program of the host, with the libraries it needs, into the installation folder."""
        listing = subprocess.run(["ldd", program], capture_output=True, text=True).stdout
        for library in re.findall(r"(/\S+) \(0x", listing):
            self.mkdir(os.path.dirname(library))
            shutil.copyfile(library, self.path(library))
            os.chmod(self.path(library), 0o755)
        target = self.path(INSTALL + os.path.basename(program))
        shutil.copyfile(program, target)
        os.chmod(target, 0o755)

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
        if isinstance(inside, bytes):
            return os.fsencode(self._root) + inside
        return self._root + inside

    def mkdir(self, folder):
        os.makedirs(self.path(folder), exist_ok=True)

    def write(self, file, content=b"", seconds=None):
        """Writes a file (missing folders included); `seconds` is its modification time."""
        target = self.path(file)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as out:
            out.write(as_bytes(content))
        if seconds is not None:
            os.utime(target, (seconds, seconds))

    def sparse(self, file, size):
        self.write(file)
        os.truncate(self.path(file), size)

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
        """Shows a folder of the host at `target`."""
        self.mkdir(target)
        try:
            self._mount("--bind", source, self.path(target))
        except subprocess.CalledProcessError:
            self._mount("--rbind", source, self.path(target))

    def unmount(self, mount):
        subprocess.run(["umount", "--lazy", self.path(mount.rstrip("/"))], check=True)

    def write_identity(self, volume, host_guid=HOST_GUID):
        is_system = volume.mount == "/"
        folder = self.data + "tqvol_system_volume/" if is_system else volume.mount + ".tqvol/"
        what = "the System Volume (/)" if is_system else "this drive volume"
        if not is_system:
            self.mkdir(folder + "tqscratch/tqcurrentlargefile")
        self.write(folder + "tqvol_id.xml",
                   '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
                   f'<readme txt="WARNING: deleting this file will stop Kestrune from backing up {what}" />\n'
                   f'<tqvolume vguid="{volume.vguid}" associated_hguid="{host_guid}" />\n</contents>\n')

    def select(self, *volumes, max_filesize_mb="1000000000"):
        """Writes tqinfo.xml with these volumes selected and their default filters, and their upload records."""
        sets = "".join(f'<filesetdef filesetname="{name}" extensions="{types}" />\n'
                       for name, types in FILE_SETS.items())
        selected = "".join(f'    <tqvolume tqVolumeGuid="{v.vguid}" mountPointPath="{v.mount}" />\n' for v in volumes)
        filters = "".join(f'    <tqdirfilter dir="{v.mount.lower()}" whichfiles="all" /> \n'
                          + "".join(f'    <tqdirfilter dir="{v.mount.lower()}{folder}" whichfiles="none" /> \n'
                                    for folder in EXCLUDED_FOLDERS) for v in volumes)
        self.write(self.data + "tqinfo.xml",
                   '<?xml version="1.0" encoding="UTF-8" ?>\n<tqinfo>\n\n'
                   '<myidentity online_hostname="Bobs Mac" tqlogin="bob@kestrune.example" />\n\n'
                   '<myprefs allow_network_tests="true" use_time_machine_excludes="false" show_help_tips="true" '
                   'numdays_warn_if_no_backup="7" />\n\n<uilang tqui_locale="default" />\n\n' + sets +
                   '\n<smartwatch smartwatchfilesets="docs,spreadsheets,presentations,financial,pictures,music,video,'
                   'browserfavorites" />\n\n'
                   f'<globalexcludes excludefiletypes="{EXCLUDED_TYPES}" />\n\n'
                   f'<mountpoints mountpoints_to_watch="{",".join(v.mount for v in volumes)}" />\n\n'
                   f'<scratch_drive scratch_vol_guid="{self.SYSTEM.vguid}" scratch_mountpoint="/" />\n\n'
                   f"<hard_drives_to_backup>\n{selected}</hard_drives_to_backup>\n\n"
                   f'<do_backup dst_type="tqdatacenter" dst_fileformat="tqff" max_filesize_mb="{max_filesize_mb}" '
                   'backup_on_battery="true" net_auto_throttle="true" net_throttle="50" num_backup_threads="1" '
                   'backup_schedule_type="continuously" backup_schedule_detail="none" '
                   'backup_schedule_end_hour="none" >\n'
                   f"{filters}</do_backup>  \n\n</tqinfo>\n")
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
                        f'typeOfVolumeTwoCharCode="gm" lastTimeVolumeWasSeenAttachedGmtMillis="'
                        f'{millis_ago(days)}" numBytesFreeOnVolume="1" numBytesUsedOnVolume="2" '
                        'numBytesTotalOnVolume="3" />\n' for v, days in volumes_and_days)
        self.write(self.data + "tqvolumes.xml",
                   '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n\n'
                   '<tqvol_metadata lastAssignedTqVolShortId="0ff" gmtMillisThisFileWasWritten="1700000000000" '
                   'gmtDateTimeFileWasWritten="20231114221320" />\n\n'
                   + lines + "\n</contents>\n")

    # ---- running ----

    def start(self, *arguments, program="tqfilelist", may_read_anything=True):
        """Starts a program that was added. `may_read_anything` False: permission bits bind it like an ordinary user."""
        def prepare():
            os.chroot(self._root)
            os.chdir("/")
            os.umask(0o022)
            if not may_read_anything:
                libc = ctypes.CDLL(None, use_errno=True)
                for capability in (1, 2):  # CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH
                    if libc.prctl(24, capability, 0, 0, 0) != 0:  # PR_CAPBSET_DROP
                        raise OSError(ctypes.get_errno(), "prctl")
        output = tempfile.TemporaryFile(), tempfile.TemporaryFile()
        process = subprocess.Popen([INSTALL + program, *arguments], preexec_fn=prepare, stdin=subprocess.DEVNULL,
                                   stdout=output[0], stderr=output[1], env={"PATH": "/usr/bin:/bin", "LANG": "C"})
        process.outputs, process.began = output, time.monotonic()
        self._running.append(process)
        return process

    def finish(self, process, timeout=120):
        """Waits for a started program and gives its RunResult; one that does not end in time is killed and an error."""
        deadline = process.began + timeout
        pid, usage = 0, None
        while pid == 0:
            pid, status, usage = os.wait4(process.pid, os.WNOHANG)
            if pid == 0:
                if time.monotonic() > deadline:
                    process.kill()
                    os.wait4(process.pid, 0)
                    self._forget(process)
                    raise TimeoutError(f"the program still ran after {timeout} s")
                time.sleep(0.01)
        seconds = time.monotonic() - process.began
        process.returncode = os.waitstatus_to_exitcode(status)
        self._forget(process)
        texts = []
        for stream in process.outputs:
            stream.seek(0)
            texts.append(stream.read().decode("utf-8", "backslashreplace"))
            stream.close()
        return RunResult(process.returncode, texts[0], texts[1], seconds, usage.ru_maxrss)

    def _forget(self, process):
        self._running = [other for other in self._running if other is not process]

    def run(self, *arguments, timeout=120, **options):
        return self.finish(self.start(*arguments, **options), timeout)

    # ---- reading ----

    def read(self, file):
        with open(self.path(file), "rb") as source:
            return source.read()

    def xml(self, file):
        """The outermost element of an XML file of the data folder."""
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
        """Ends what still runs and takes the root away."""
        if self._root is None:
            return
        for process in self._running:
            process.kill()
            process.wait()
        subprocess.run(["umount", "--lazy", self._root], capture_output=True)
        try:
            os.rmdir(self._root)
        except OSError:
            pass
        self._root = None
        atexit.unregister(self.close)


def now_millis():
    return int(time.time() * 1000)


def millis_ago(days):
    return now_millis() - int(days * DAY_MILLIS)


def wait_until(condition, what, timeout=30.0):
    """Polls `condition` until it gives something true, and gives that back."""
    deadline = time.monotonic() + timeout
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise TimeoutError("waited in vain for " + what)
        time.sleep(0.005)


sys.setrecursionlimit(20_000)  # trees of 1,000 levels are made and removed by recursive library calls
