"""Holds the sources to the architecture: layers, order within a layer, no cycles, nothing unbuilt, no systems inside.

    python3 tests/check_layers.py <source folder>              reports every fault; the status is 1 when there is one
    python3 tests/check_layers.py <source folder> --self-test  plants each kind of fault in a copy; each must be found

Within a layer the order is that of the sources in its CMakeLists.txt. A header and the source of the same name count as
one file; a header without a source ranks where it is first needed: what it includes counts for whoever includes it.
"""

import os
import pathlib
import re
import shutil
import sys
import tempfile

LAYERS = ["platform", "base", "selection", "volumes", "scan"]
TOOLS = "tools"  # programs of their own on top of the layers, which need nothing from the tests
BESIDE = ["tests", "bench", "fuzz", TOOLS]
SOURCE_ENDINGS = (".cpp", ".mm")
SYSTEM_NAMES = re.compile(r"__APPLE__|__MACH__|__linux|__gnu_linux|\blinux\b|\bunix\b|__unix|_WIN32|_WIN64|__FreeBSD__|"
                          r"__OpenBSD__|__NetBSD__|TARGET_OS_|\bTQ_(MAC|LINUX|WIN)")
COMMENTS_AND_TEXTS = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|'
                                r"(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])*'", re.S)


def unit_of(path):
    return os.path.splitext(path)[0]


class Checker:
    def __init__(self, root):
        self.root = root
        self.files = self._find(lambda name: name.endswith((".h", *SOURCE_ENDINGS)))
        self.lists = {path: self._read(path) for path in self._find(lambda name: name == "CMakeLists.txt")}
        self.texts = {path: self._read(path) for path in self.files}
        self.includes = {path: [name for name in re.findall(r'^\s*#\s*include\s+"([^"]+)"', text, re.M)]
                         for path, text in self.texts.items()}
        self.built = self._built_sources()
        self.faults = []

    def check(self):
        for rule in (self._check_layers, self._check_order, self._check_cycles, self._check_everything_is_built,
                     self._check_system_conditionals):
            rule()
        return self.faults

    # ---- reading ----

    def _find(self, wanted):
        found = []
        for top in LAYERS + BESIDE:
            for folder, _, names in os.walk(os.path.join(self.root, top)):
                found += [os.path.relpath(os.path.join(folder, name), self.root) for name in names if wanted(name)]
        return sorted(found)

    def _read(self, path):
        return pathlib.Path(self.root, path).read_text(encoding="utf-8")

    def _built_sources(self):
        """Sources that the CMakeLists.txt files name, in their order, as paths from the root."""
        named = []
        for path, text in self.lists.items():
            text = re.sub(r"#[^\n]*", "", text).replace("${CMAKE_CURRENT_SOURCE_DIR}/", "")
            for from_root, word in re.findall(r"(\$\{PROJECT_SOURCE_DIR\}/)?([\w./+-]+)", text):
                if word.endswith(SOURCE_ENDINGS):
                    named.append(os.path.normpath(word if from_root else os.path.join(os.path.dirname(path), word)))
        return named

    # ---- rules ----

    def _check_layers(self):
        for path, names in self.includes.items():
            layer = path.split(os.sep)[0]
            for name in names:
                other = name.split("/")[0]
                if name not in self.texts:
                    self.faults.append(f"{path}: includes \"{name}\", which is no file of the project")
                elif layer == TOOLS and other not in LAYERS + [TOOLS]:
                    self.faults.append(f"{path}: includes sideways: {name}")
                elif layer in LAYERS and (other not in LAYERS or LAYERS.index(other) > LAYERS.index(layer)):
                    self.faults.append(f"{path}: includes upward: {name}")

    def _needed_units(self, unit, ranks, seen):
        """The ranked files of the same layer that a file needs, through headers that have no source."""
        for path in (unit + ending for ending in (".h", *SOURCE_ENDINGS)):
            for name in self.includes.get(path, []):
                other = unit_of(name)
                if other == unit or other in seen or name.split("/")[0] != unit.split(os.sep)[0]:
                    continue
                seen.add(other)
                if other in ranks:
                    yield other
                else:
                    yield from self._needed_units(other, ranks, seen)

    def _check_order(self):
        for layer in LAYERS:
            units = [unit_of(path) for path in self.built if path.split(os.sep)[0] == layer]
            ranks = {unit: rank for rank, unit in enumerate(units)}
            for unit in units:
                for other in self._needed_units(unit, ranks, set()):
                    if ranks[other] > ranks[unit]:
                        self.faults.append(f"{unit}: needs {other}, which comes later in {layer}/CMakeLists.txt")

    def _check_cycles(self):
        needs = {}
        for path, names in self.includes.items():
            unit = unit_of(path)
            needs.setdefault(unit, set()).update(unit_of(name) for name in names if name in self.texts)
            needs[unit].discard(unit)
        done = set()
        for start in sorted(needs):
            self._look_for_cycle(start, needs, [], done)

    def _look_for_cycle(self, unit, needs, trail, done):
        if unit in trail:
            self.faults.append("include cycle: " + " -> ".join(trail[trail.index(unit):] + [unit]))
        elif unit not in done:
            for other in sorted(needs.get(unit, ())):
                self._look_for_cycle(other, needs, trail + [unit], done)
            done.add(unit)

    def _check_everything_is_built(self):
        for path in self.files:
            if path.endswith(SOURCE_ENDINGS) and path not in self.built:
                is_test = path.endswith("_test.cpp")
                what = "test that no CMakeLists.txt names" if is_test else "source that no target builds"
                self.faults.append(f"{path}: {what}")
        self.faults += [f"{path}: named in a CMakeLists.txt, but missing"
                        for path in self.built if path not in self.texts]

    def _check_system_conditionals(self):
        for path, text in self.texts.items():
            layer = path.split(os.sep)[0]
            for number, in_body in system_conditionals(text):
                if in_body:
                    self.faults.append(f"{path}:{number}: chooses by operating system inside a body")
                elif layer in LAYERS[1:] + [TOOLS]:
                    self.faults.append(f"{path}:{number}: chooses by operating system above the platform layer")


def system_conditionals(text):
    """(line number, whether inside a body) of each conditional that names an operating system."""
    if not any(SYSTEM_NAMES.search(line) for line in re.findall(r"^\s*#.*", text, re.M)):
        return
    blank = COMMENTS_AND_TEXTS.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)
    braces, head = [], ""  # one bool per open brace: whether it opens a body
    for number, line in enumerate(blank.split("\n"), start=1):
        if re.match(r"\s*#", line):
            if re.match(r"\s*#\s*(if|ifdef|ifndef|elif|elifdef|elifndef)\b", line) and SYSTEM_NAMES.search(line):
                yield number, any(braces)
            continue
        for sign in line + "\n":
            if sign == "{":
                braces.append(not re.search(r"\b(namespace|class|struct|union|enum|extern)\b[^()=]*$", head))
            elif sign == "}" and braces:
                braces.pop()
            head = "" if sign in "{};" else head + sign


# Each fault and the files that it is planted in: text that goes in front of a file, or behind it.
BODY = "\nint Planted(int number) {\n%s\n  return number;\n#endif\n}\n"
FRONT, END = True, False
PLANTED = {
    "includes upward: scan/": [(FRONT, "base/string.h", '#include "scan/walker.h"\n')],
    "includes upward: tests/": [(FRONT, "scan/walker.cpp", '#include "tests/fake_platform.h"\n')],
    "includes upward: tools/": [(FRONT, "tools/planted.h", "#pragma once\n"),
                                (FRONT, "scan/walker.cpp", '#include "tools/planted.h"\n')],
    "includes sideways: tests/": [(FRONT, "tools/tqsetup.cpp", '#include "tests/fake_platform.h"\n')],
    "which is no file of the project": [(FRONT, "base/string.h", '#include "base/nowhere.h"\n')],
    "base/string: needs base/file_lock, which comes later": [
        (FRONT, "base/string.cpp", '#include "base/file_lock.h"\n')],
    "base/string: needs base/file_lock, which": [  # by way of a header that has no source
        (FRONT, "base/planted.h", '#include "base/file_lock.h"\n'),
        (FRONT, "base/string.cpp", '#include "base/planted.h"\n')],
    "include cycle: base/planted_a": [(FRONT, "base/planted_a.h", '#include "base/planted_b.h"\n'),
                                      (FRONT, "base/planted_b.h", '#include "base/planted_a.h"\n')],
    "planted_test.cpp: test that no CMakeLists.txt names": [(END, "tests/base/planted_test.cpp", "int planted;\n")],
    "planted.cpp: source that no target builds": [(END, "volumes/planted.cpp", "int planted;\n")],
    "planted_gone.cpp: named in a CMakeLists.txt, but missing": [
        (END, "tests/base/CMakeLists.txt", "\nset(planted planted_gone.cpp)\n")],
    "platform/whole_file.cpp:{last}: chooses by operating system inside a body": [
        (END, "platform/whole_file.cpp", "namespace planted {\n" + BODY % "#ifdef __APPLE__" + "}\n")],
    "base/clock.cpp:{last}: chooses by operating system inside a body": [
        (END, "base/clock.cpp", "struct Planted {" + BODY % "#if defined(__linux__) && 1" + "};\n")],
    "base/clock.cpp:{last}: chooses by operating system above": [
        (END, "base/clock.cpp", "\n#ifdef __APPLE__\nint planted;\n#endif\n")],
}


def self_test(root):
    """Plants one fault after the other in a copy of the sources; each must be found, and the sources be clean."""
    failures = [f"the sources themselves: {fault}" for fault in Checker(root).check()]
    for expected, plants in PLANTED.items():
        with tempfile.TemporaryDirectory(prefix="tqfilelist_layers_") as copy:
            for top in LAYERS + BESIDE:
                if os.path.isdir(os.path.join(root, top)):
                    shutil.copytree(os.path.join(root, top), os.path.join(copy, top))
            for in_front, path, text in plants:
                target = pathlib.Path(copy, path)
                old = target.read_text(encoding="utf-8") if target.exists() else ""
                target.write_text(text + old if in_front else old + text, encoding="utf-8")
            faults = Checker(copy).check()
            pattern = re.escape(expected).replace(re.escape("{last}"), r"\d+")
            if not any(re.search(pattern, fault) for fault in faults):
                failures.append(f"planted, but not found: {expected} (found: {faults})")
    return failures


def main():
    faults = self_test(sys.argv[1]) if "--self-test" in sys.argv[2:] else Checker(sys.argv[1]).check()
    print("\n".join(faults) or "no fault found")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
