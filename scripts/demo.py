"""The demonstration behind scripts/demo: two scans of a small Mac-shaped root, and what came out of them."""

import difflib
import os
import sys
import xml.etree.ElementTree as ElementTree

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "tests", "e2e"))
import independent_walk  # noqa: E402
import mac_root  # noqa: E402
import trees  # noqa: E402

CATEGORIES = ("docs", "spreadsheets", "presentations", "financial", "pict", "music", "video", "email", "zips",
              "browserfavorites", "other", "everything")


def title(text):
    print(f"\n=== {text}", flush=True)


def shown(line, width=112):
    text = line.decode("utf-8", "backslashreplace").replace("\t", "  ")
    return text if len(text) <= width else text[:width - 3] + "..."


def table(heads, rows):
    rows = [heads, *[[str(cell) for cell in row] for row in rows]]
    widths = [max(len(row[column]) for row in rows) for column in range(len(heads))]
    for row in rows:
        print("  " + "  ".join(cell.rjust(width) if cell.lstrip("-").isdigit() else cell.ljust(width)
                               for cell, width in zip(row, widths)).rstrip())


def build_root(program):
    title("A Mac-shaped root in a private mount namespace")
    root = mac_root.MacRoot(program)
    photos, archive = root.mount_volume("Photos"), root.mount_volume("Archive")
    volumes = (root.SYSTEM, photos, archive)
    root.select(*volumes)
    root.write_registry(*((volume, 1) for volume in volumes))
    root.write_upload_record(archive, days_ago=9)
    trees.plant_home(root)
    trees.plant_many(root, photos.mount + "Albums/2024", 120)
    trees.plant_hostile(root, archive.mount + "old disk")
    print("  /                  the system volume, with bob's home folder: caches, pictures, music, a film of 500 MiB\n"
          "  /Volumes/Photos/   120 albums with a picture each\n"
          "  /Volumes/Archive/  names with line feeds, backslashes and bytes that are no text; sockets, FIFOs, links")
    return root, volumes


def scan(root, what):
    title(what)
    result = root.run()
    print(f"  tqfilelist ended with status {result.status} after {result.seconds:.1f} s, peak memory "
          f"{result.peak_kilobytes / 1024:.1f} MiB")
    if result.status != 0 or result.err:
        sys.exit("the scan failed: " + result.err)


def show_lists(root, volumes):
    for volume in volumes:
        content = root.read(root.list_path(volume))
        lines = content.splitlines()
        kinds = [line[:2] for line in lines]
        print(f"\n  {volume.list_name}: {len(content)} bytes, {kinds.count(b'f' + bytes([9]))} files, "
              f"{kinds.count(b's' + bytes([9]))} special entries, "
              f"{sum(line.startswith(b'# Dir: ') for line in lines)} directories")
        for line in lines[:9]:
            print("    " + shown(line))
        print("    ...")
    print("\n  bigfilelist.dat (files of 500 MiB and more; t: wanted)")
    for line in root.read(root.lists + "bigfilelist.dat").splitlines():
        print("    " + shown(line))


def show_totals(root):
    title("Wanted files per category (filestats.xml)")
    info = root.xml("tqfilelists/filestats.xml").find("info")
    table(["category", "files", "bytes"],
          [(name, info.get(name + "num"), info.get(name + "totbytes")) for name in CATEGORIES])


def show_plan(root):
    title("The plan's slowest directories (topdirs.xml); the three seconds are the pause of a paced run")
    dirs = ElementTree.fromstring(root.read(root.lists + "topdirs.xml").decode("utf-8", "replace")).findall("dir")
    slowest = sorted(dirs, key=lambda entry: -int(entry.get("secs_to_scan")))[:5]
    table(["seconds", "mode", "directory"],
          [(d.get("secs_to_scan"), d.get("path")[0], d.get("path")[1:]) for d in slowest])


def show_urgency(root):
    title("Urgency of each volume, 1 (most urgent) to 5 (tqdefcon.xml; days since seen, listed, last file sent)")
    volumes = root.xml("tqreports/tqdefcon.xml").findall("tqvolume")
    names = ("vol_defcon_level", "vol_last_seen_in_days", "vol_last_filelisted_in_days", "vol_last_file_pushed_in_days")
    table(["volume", "level", "seen", "listed", "sent"],
          [(bytes.fromhex(v.get("mountPointPathHex")).decode(), *(v.get(name) for name in names)) for v in volumes])


def change_something(root, photos):
    title("Changes: a picture more, a film less, a folder renamed")
    root.write(photos.mount + "Albums/2024/d007/new picture.jpg", "new")
    os.unlink(root.path("/Users/bob/Movies/Raw/holiday.mov"))
    os.rename(root.path("/Users/bob/Music/Album"), root.path("/Users/bob/Music/First Album"))


def show_changes(root, volumes, before):
    for volume in volumes:
        old, new = (content.decode("utf-8", "backslashreplace").splitlines()[1:]
                    for content in (before[volume], root.read(root.list_path(volume))))
        for line in difflib.unified_diff(old, new, lineterm="", n=0):
            if line[:2] in ("+f", "-f", "+#", "-#"):
                print("  " + line.replace("\t", "  "))


def check(root, volumes):
    title("Checked against a walk that shares no code with the program")
    for volume in volumes:
        tree = independent_walk.Tree(root.path(""), volume.mount, mac_root.EXCLUDED_FOLDERS)
        found = independent_walk.differences(tree, root.path(root.list_path(volume)))
        if found:
            sys.exit("\n".join(found))
        print(f"  {volume.mount}: {tree.entries} entries, every line the same")


def main():
    mac_root.enter_namespace()
    root, volumes = build_root(os.path.abspath(sys.argv[1]))
    try:
        scan(root, "First scan (as fast as possible; the three seconds are for drives to wake up)")
        show_lists(root, volumes)
        show_totals(root)
        before = {volume: root.read(root.list_path(volume)) for volume in volumes}
        change_something(root, volumes[1])
        scan(root, "Second scan (paced: it pauses three seconds whenever more than 100 directories were listed)")
        show_changes(root, volumes, before)
        show_plan(root)
        show_urgency(root)
        check(root, volumes)
    finally:
        root.close()
    title("Done; nothing is left behind")


if __name__ == "__main__":
    main()
