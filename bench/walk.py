"""What an urgent scan takes from the machine, beside the bare system calls and two programs that walk trees.

    python3 bench/walk.py BUILD_FOLDER [--rounds N] [--only PART] [FOLDER]

FOLDER (default /usr) is shown, unchanged, inside a volume of a Mac-shaped root in a private mount namespace. All programs
walk it alternately in one run, so that figures compare as ratios; find and bfs print the same four fields to a file. Every
scanned tree is compared with the independent walk, entry for entry; the status is 1 when a list differs or a target is
missed. PART is one of cpu, calls, instructions, memory, growth (default all).
"""

import argparse
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))
import independent_walk  # noqa: E402
import mac_root  # noqa: E402

PRINTED = "%y\\t%T@\\t%s\\t%p\\n"
missed = []


def row(name, text, target=None, met=None):
    verdict = "" if met is None else "ok" if met else "MISSED"
    if met is False:
        missed.append(name)
    print(f"  {name:<44}{text:>26}   {target or '':<22}{verdict}", flush=True)


# ---- trees ----

class ScannedTree:
    """A root with one selected volume, `Real`, that holds the tree."""

    def __init__(self, build, size="2g"):
        self.build = build
        self.root = mac_root.MacRoot(os.path.join(build, "tqfilelist"))
        self.volume = self.root.mount_volume("Real", size=size)
        self.root.select(self.volume)
        self.folder = self.root.path(self.volume.mount)
        self.scratch = tempfile.mkdtemp(prefix="tq_bench_")
        self.entries = self.directories = 0

    def bind(self, folder):
        self.root.bind(folder, self.volume.mount + "tree")

    def scan_command(self, *before):
        return [*before, mac_root.INSTALL + "tqfilelist", "-urgent_refresh_all"]

    def measured(self, command, in_root):
        """(CPU seconds, peak KiB) of a command; its output goes to a file. Folders that deny listing are no failure."""
        result = os.path.join(self.scratch, "measured")
        with open(os.path.join(self.scratch, "output"), "wb") as output:
            subprocess.run([os.path.join(self.build, "measured"), result, self.root.path("") if in_root else "/", *command],
                           stdout=output, stderr=subprocess.DEVNULL, check=in_root,
                           env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C"})
        with open(result, encoding="ascii") as source:
            user, system, peak = (int(word) for word in source.read().split())
        return (user + system) / 1e6, peak

    def scan(self):
        return self.measured(self.scan_command(), in_root=True)

    def check(self):
        """The list against the independent walk; sets the counts."""
        tree = independent_walk.Tree(self.root.path(""), self.volume.mount)
        found = independent_walk.differences(tree, self.root.path(self.root.list_path(self.volume)))
        self.entries, self.directories = tree.entries, tree.directories
        row("equal to the independent walk", f"{tree.entries} entries", "every line", not found)
        for difference in found:
            print("    " + difference)

    def list_bytes(self):
        return os.path.getsize(self.root.path(self.root.list_path(self.volume)))

    def close(self):
        self.root.close()
        shutil.rmtree(self.scratch)


def plant(folder, entries, files_per_directory=20, directories_per_directory=10):
    """Ordinary folders: `entries` entries in all, the same shape whatever the number."""
    planted, pending = 0, [folder]
    while planted < entries:
        directory = pending.pop(0)
        for number in range(files_per_directory):
            with open(f"{directory}/Document {number:05}.txt", "wb"):
                pass
        for number in range(directories_per_directory):
            pending.append(f"{directory}/Folder{number:03}")
            os.mkdir(pending[-1])
        planted += files_per_directory + directories_per_directory


# Where a home folder's files lie, and how many of each kind it gets.
HOME = (
    ("Documents/Letters", "Letter to the bank.docx", 3), ("Documents/Projects/House", "plan.pages", 4),
    ("Pictures/Photos Library.photoslibrary/Masters/2019/03", "IMG_0001.JPG", 8),
    ("Pictures/Photos Library.photoslibrary/Thumbnails/2019/03", "thumb_IMG_0001.jpg", 8),
    ("Music/iTunes/iTunes Media/Music/Artist/Album", "01 Song.m4a", 5), ("Movies/Project/Render Files/High Quality Media", "a", 2),
    ("Library/Caches/com.apple.Safari/fsCachedData", "5E884898DA28047151D0", 12),
    ("Library/Application Support/Google/Chrome/Default/Extensions/abc/1.0", "background.js", 8),
    ("Library/Application Support/Steam/steamapps/common/Game", "texture.png", 6),
    ("Library/Application Support/AddressBook/Metadata", "1234.abcdp", 5),
    ("Library/Mail/V7/1234/INBOX.mbox/Data/Messages", "17623.emlx", 12), ("Library/Preferences/ByHost", "com.apple.plist", 4),
    ("Library/Containers/com.apple.mail/Data/Library/Logs", "mail.log", 3),
    ("Library/Safari/LocalStorage", "https_www.example.com_0.localstorage", 4), ("Library/Developer/Xcode/DerivedData/App", "a.o", 6),
)


def plant_homes(folder, entries):
    """Home folders rich in Library paths, below <folder>/Users."""
    planted, home = 0, 0
    while planted < entries:
        home += 1
        for subfolder, name, weight in HOME:
            directory = f"{folder}/Users/person{home:03}/{subfolder}"
            os.makedirs(directory)
            for number in range(weight * 5):
                with open(f"{directory}/{number}{name}", "wb"):
                    pass
            planted += weight * 5 + 2


# ---- the parts ----

def compare_cpu(tree, rounds):
    print(f"\nCPU seconds (user + system) over the same tree, medians of {rounds} alternating rounds")
    programs = {"tqfilelist, urgent scan": tree.scan,
                "bare loop": lambda: tree.measured([os.path.join(tree.build, "bare_loop"), tree.folder], False)}
    for name in ("find", "bfs"):
        if shutil.which(name):
            programs[name + " -printf"] = (lambda words: lambda: tree.measured(words, False))(
                [name, tree.folder, "-printf", PRINTED])
    seconds = {name: [] for name in programs}
    peaks = {}
    for number in range(rounds + 1):  # the first round fills the caches
        for name, run in programs.items():
            used, peaks[name] = run()
            if number > 0:
                seconds[name].append(used)
    medians = {name: statistics.median(values) for name, values in seconds.items()}
    ours = medians["tqfilelist, urgent scan"]
    for name, median in medians.items():
        row(name, f"{median:.3f} s, {peaks[name] / 1024:.1f} MiB", f"{min(seconds[name]):.3f} - {max(seconds[name]):.3f} s")
    for name, limit in (("bare loop", 1.30), ("find -printf", 0.85), ("bfs -printf", 0.85)):
        if name in medians:
            ratio = statistics.median(a / b for a, b in zip(seconds["tqfilelist, urgent scan"], seconds[name]))
            row(f"scan : {name}", f"{ratio:.2f} ({ours / medians[name]:.2f} of medians)", f"<= {limit:.2f}", ratio <= limit)


def count_calls(tree, *before):
    """System calls by name of one scan."""
    result = os.path.join(tree.scratch, "calls")
    subprocess.run(["strace", "-f", "-c", "-o", result, *before, *tree.scan_command("chroot", tree.root.path(""))],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    calls = {}
    with open(result, encoding="ascii") as source:
        for line in source:
            words = line.split()
            if len(words) >= 5 and words[3].isdigit() and words[-1] != "total":
                calls[words[-1]] = int(words[3])
    return calls


def compare_calls(tree):
    print("\nSystem calls of a scan (strace -c), less those of a scan of an empty volume")
    empty = ScannedTree(tree.build, "16m")
    constant = count_calls(empty)
    empty.close()
    calls = count_calls(tree)
    more = {name: count - constant.get(name, 0) for name, count in calls.items() if count != constant.get(name, 0)}
    queries = more.pop("statx", 0)
    row("a scan of an empty volume", f"{sum(constant.values())} calls")
    row("queries per entry", f"{queries / tree.entries:.4f}", "1", abs(queries - tree.entries) <= 0.001 * tree.entries)
    besides = sum(more.values())
    row("other calls per directory", f"{besides / tree.directories:.3f}", "<= 4.5", besides <= 4.5 * tree.directories)
    row("all calls beside the query, per entry", f"{besides / tree.entries:.3f}")
    print("    " + ", ".join(f"{name} {count}" for name, count in sorted(more.items(), key=lambda item: -item[1])))


def instructions(tree, command):
    """User-space instructions of a command."""
    result = os.path.join(tree.scratch, "callgrind")
    subprocess.run([word.replace("{out}", result) for word in command], check=False, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    return int(re.search(r"^(?:totals|summary): (\d+)", open(result, encoding="latin-1").read(), re.MULTILINE).group(1))


def scan_instructions(tree, keep=None):
    valgrind = shutil.which("valgrind.bin") or shutil.which("valgrind")  # Debian's valgrind is a script around it
    inside_program = mac_root.INSTALL + os.path.basename(valgrind)
    if not tree.root.exists(inside_program):
        tree.root.add_program(valgrind)
        for folder in ("/usr/libexec/valgrind", "/usr/lib/valgrind"):
            if os.path.isdir(folder):
                tree.root.bind(folder, folder)
    inside = "/private/tmp/callgrind"
    subprocess.run(["chroot", tree.root.path(""), inside_program, "--tool=callgrind",
                    "--callgrind-out-file=" + inside, *tree.scan_command()], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    if keep:
        shutil.copyfile(tree.root.path(inside), keep)
    return instructions(tree, ["cp", tree.root.path(inside), "{out}"])


def compare_instructions(tree, keep):
    print("\nUser-space instructions per entry (callgrind), start-up included")
    ours = scan_instructions(tree, keep and keep + ".system")
    row("tqfilelist, urgent scan", f"{ours / tree.entries:.0f}", "<= 1500", ours <= 1500 * tree.entries)
    others = [("bare loop", [os.path.join(tree.build, "bare_loop"), tree.folder])]
    others += [(f"{name} -printf", [name, tree.folder, "-printf", PRINTED]) for name in ("find", "bfs") if shutil.which(name)]
    for name, command in others:
        count = instructions(tree, ["valgrind", "--tool=callgrind", "--callgrind-out-file={out}", *command])
        row(name, f"{count / tree.entries:.0f}")
    homes = ScannedTree(tree.build)
    plant_homes(homes.folder, 150_000)
    homes.scan()
    homes.check()
    ours = scan_instructions(homes, keep and keep + ".home")
    row("tqfilelist, home folders", f"{ours / homes.entries:.0f}", "<= 3000", ours <= 3000 * homes.entries)
    homes.close()


def compare_memory(build):
    # The list buffer is emptied after each planned directory, so little of it is touched here: the whole peak is judged.
    print("\nPeak resident memory of a scan")
    tree = ScannedTree(build)
    plant(tree.folder, 400_000)
    _, peak = tree.scan()
    tree.check()
    row("400,000 entries in ordinary folders", f"{peak / 1024:.1f} MiB", "<= 24 MiB, buffer incl.", peak <= 24 * 1024)
    tree.close()
    tree = ScannedTree(build)
    plant(tree.folder, 200_005, files_per_directory=200_005, directories_per_directory=0)
    _, peak = tree.scan()
    tree.check()
    row("one flat folder of 200,005 entries", f"{peak / 1024:.1f} MiB", "<= 160 MiB", peak <= 160 * 1024)
    tree.close()


def compare_growth(build):
    print("\nGrowth: 1x, 4x, 16x of one shape, without what a scan of an empty volume takes")
    empty = ScannedTree(build, "16m")
    idle = statistics.median(empty.scan()[0] for _ in range(3))
    empty.close()
    points = []
    for entries in (27_000, 108_000, 432_000):
        tree = ScannedTree(build)
        plant(tree.folder, entries)
        tree.scan()
        seconds = min(tree.scan()[0] for _ in range(3)) - idle
        tree.check()
        points.append((tree.entries, tree.list_bytes(), seconds))
        row(f"{tree.entries} entries", f"{seconds:.3f} s, {tree.list_bytes() / 1e6:.2f} MB",
            f"{seconds / tree.entries * 1e6:.3f} us, {tree.list_bytes() / tree.entries:.1f} bytes/entry")
        tree.close()
    for what, index in (("list bytes", 1), ("CPU seconds", 2)):
        slopes = [(b[index] - a[index]) / (b[0] - a[0]) for a, b in zip(points, points[1:])]
        off = slopes[1] / slopes[0] - 1
        row(f"{what}: growth 4x to 16x over 1x to 4x", f"{off:+.1%}", "within 10 %", abs(off) <= 0.10)
        at_ten_million = points[-1][index] + slopes[1] * (10_000_000 - points[-1][0])
        row(f"{what} at 10 million entries", f"{at_ten_million:,.0f}")


def main():
    mac_root.enter_namespace()
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("folder", nargs="?", default="/usr")
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--only", action="append")
    parser.add_argument("--keep-profile", help="keeps the scan's callgrind files under this name")
    options = parser.parse_args()
    build = os.path.abspath(options.build)
    wanted = options.only or ["cpu", "calls", "instructions", "memory", "growth"]
    if {"cpu", "calls", "instructions"} & set(wanted):
        tree = ScannedTree(build)
        tree.bind(os.path.abspath(options.folder))
        tree.scan()
        tree.check()
        print(f"{options.folder}: {tree.entries} entries in {tree.directories} directories, list {tree.list_bytes() / 1e6:.1f} MB")
        if "cpu" in wanted:
            compare_cpu(tree, options.rounds)
        if "calls" in wanted:
            compare_calls(tree)
        if "instructions" in wanted:
            compare_instructions(tree, options.keep_profile)
        tree.close()
    if "memory" in wanted:
        compare_memory(build)
    if "growth" in wanted:
        compare_growth(build)
    print("\n" + ("missed: " + ", ".join(missed) if missed else "all targets met"))
    sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
