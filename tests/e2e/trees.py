"""Trees that the end-to-end tests and the demonstration plant."""

import os
import stat

BIG_FILE = 524_288_000
LONG_AGO = 1_600_000_000

# Of the files below /Users that plant_home makes, those that no backup wants: {file: size}.
HOME_UNWANTED = {"bob/Library/Caches/app/cache.db": 4000, "bob/.Trash/old.doc": 70, "bob/Desktop/.DS_Store": 6148,
                 "bob/Downloads/installer.dmg": 9000, "bob/Movies/Render Files/High Quality Media/clip.mov": 500}
# The wanted ones: category as filestats.xml names it -> {file: size}.
HOME_WANTED = {
    "docs": {"bob/Documents/letter.docx": 1200, "bob/Documents/song text.wma": 5, "bob/Empty.txt": 0,
             "Shared/readme.html": 12},
    "spreadsheets": {"bob/Documents/Budget 2024.XLSX": 3400},
    "presentations": {"bob/Documents/talk.pptx": 20},
    "financial": {"bob/Documents/taxes.qbw": 30},
    "pict": {"bob/Pictures/IMG_0001.JPG": 2_000_000, "bob/Pictures/IMG_0002.jpeg": 1_000_000},
    "music": {"bob/Music/Album/01 Intro.mp3": 5_000_000},
    "video": {"bob/Movies/holiday.m4v": 700, "bob/Movies/Raw/holiday.mov": BIG_FILE},
    "email": {"bob/Library/Mail/V9/INBOX.mbox/1.emlx": 80},
    "zips": {"bob/Archive.TAR": 90},
    "browserfavorites": {"bob/Favorites/start.webloc": 11},
    "other": {"bob/Documents/talk.key": 10, "bob/Pictures.old/scan": 40, "bob/notes.": 7}}


def plant_home(root):
    for number, files in enumerate((HOME_UNWANTED, *HOME_WANTED.values())):
        for file, size in files.items():
            root.write("/Users/" + file, size=size, seconds=LONG_AGO + number)


def plant_hostile(root, folder):
    """Names and kinds that a walk must survive, below the first-level folder `folder` (no trailing "/")."""
    base = os.fsencode(folder) + b"/zoo/"
    for name in (b"line\nfeed.txt", b"carriage\rreturn.txt", b"back\\slash.txt", b"not-utf8-\xff\xfe.txt", b" ",
                 b"  two  ", b"-rf", b"quote\"'&<>.xml", b"tab\tstop.txt", b"bell\x07", b"*?[x]", b"%s%n%d", b"#",
                 b"# Dir: forged", b"n" * 255, "Ünïcödé 名前.txt".encode(), b"e\xcc\x81.txt", b"...", b".hidden", b"dot.",
                 b"Thumbs.db|end", b"dir\nfeed/inside.txt", b"dir\rreturn/inside.txt", b"dir\\slash/inside.txt",
                 b"dir\\slash/sub\\dir/deep.txt", b"trailing\\/hidden.txt", b"\\leading/hidden.txt",
                 b"lone_-backslash-_name/inside.txt",
                 b"Backups.backupdb/gone.txt", b"x.MobileBackups/gone.txt", b"WD SmartWare.swstor/gone.txt",
                 b"backups.BACKUPDB/kept.txt", b"d\xff\xfe/inside.txt", b"  /inside.txt", b"folder./x", b"..../x",
                 b"N" * 255 + b"/" + b"m" * 255, b"no-permissions"):
        root.write(base + name, b"x")
    os.chmod(root.path(base + b"no-permissions"), 0)
    root.mkdir(base + b"empty")
    for link, target in ((b"loop", b"../.."), (b"link-to-dir", b"empty"), (b"link-to-file", b"-rf"),
                         (b"link-to-nothing", b"nowhere")):
        os.symlink(target, root.path(base + link))
    os.mkfifo(root.path(base + b"fifo"))
    os.mknod(root.path(base + b"socket"), stat.S_IFSOCK)
    for name, seconds in ((b"before-1970", -86_400), (b"epoch", 0), (b"far-future", 8_000_000_000),
                          (b"half-second", 1_500_000_000.999)):
        root.write(base + name, b"x", seconds)


def plant_deep(root, folder, levels):
    """`folder` (planned as a whole, so depth 1) and directories below it, each with a file, down to depth `levels`."""
    for level in range(levels):
        root.write(folder + "/d" * level + "/f", "x")


def plant_long(root, folder, levels=20):
    """Directories of long names below `folder`, until their paths are longer than the system opens; a file in each."""
    root.mkdir(folder)
    here = os.open(root.path(folder), os.O_RDONLY)
    for _ in range(levels):
        os.close(os.open("f" * 200, os.O_CREAT | os.O_WRONLY, dir_fd=here))
        os.mkdir("n" * 250, dir_fd=here)
        below = os.open("n" * 250, os.O_RDONLY, dir_fd=here)
        os.close(here)
        here = below
    os.close(here)


def plant_many(root, folder, directories):
    for number in range(directories):
        root.write(f"{folder}/d{number:03d}/photo{number:03d}.jpg", "x" * number)
