"""Holds the sources to the architecture: layers, order within a layer, no cycles, nothing unbuilt, no systems inside.

    python3 tests/check_layers.py <source folder>              reports every fault; the status is 1 when there is one
    python3 tests/check_layers.py <source folder> --self-test  plants every kind of fault in a copy; each must be found

Within a layer the order is that of the sources in its CMakeLists.txt. A header and the source of the same name count as
one file; a header without a source ranks where it is first needed: what it includes counts for whoever includes it.
"""

import graphlib
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
CHOOSES_SYSTEM = re.compile(r"^\s*#\s*(if|elif).*(__APPLE__|__MACH__|__linux|__gnu_linux|\blinux\b|\bunix\b|__unix|"
                            r"_WIN|__\w+BSD__|TARGET_OS_|\bTQ_(MAC|LINUX|WIN))")


def layer_of(path):
    return path.split("/")[0]


def unit_of(path):
    return os.path.splitext(path)[0]


class Checker:
    def __init__(self, root):
        paths = [path for top in LAYERS + BESIDE for path in sorted(pathlib.Path(root, top).rglob("*.*"))]
        texts = {path.relative_to(root).as_posix(): path.read_text(encoding="utf-8") for path in paths
                 if path.suffix in (".h", *SOURCE_ENDINGS) or path.name == "CMakeLists.txt"}
        lists = {path: texts.pop(path) for path in list(texts) if path.endswith("CMakeLists.txt")}
        self.texts = texts
        self.includes = {path: re.findall(r'^\s*#\s*include\s+"([^"]+)"', text, re.M) for path, text in texts.items()}
        self.built = [path for item in lists.items() for path in built_by(*item)]

    def check(self):
        return [*self._layer_faults(), *self._order_faults(), *self._cycles(), *self._build_faults(),
                *(f"{path}:{number}: chooses by operating system" for path, text in self.texts.items()
                  for number, line in enumerate(text.split("\n"), start=1) if CHOOSES_SYSTEM.search(line))]

    def _layer_faults(self):
        for path, names in self.includes.items():
            layer = layer_of(path)
            for name in names:
                other = layer_of(name)
                if name not in self.texts:
                    yield f"{path}: includes \"{name}\", which is no file of the project"
                elif layer == TOOLS and other not in LAYERS + [TOOLS]:
                    yield f"{path}: includes sideways: {name}"
                elif layer in LAYERS and (other not in LAYERS or LAYERS.index(other) > LAYERS.index(layer)):
                    yield f"{path}: includes upward: {name}"

    def _needed_units(self, unit, ranks, seen):
        """The ranked files of the same layer that a file needs, through headers that have no source."""
        for name in (name for ending in (".h", *SOURCE_ENDINGS) for name in self.includes.get(unit + ending, [])):
            other = unit_of(name)
            if other == unit or other in seen or layer_of(name) != layer_of(unit):
                continue
            seen.add(other)
            if other in ranks:
                yield other
            else:
                yield from self._needed_units(other, ranks, seen)

    def _order_faults(self):
        for layer in LAYERS:
            ranks = {unit_of(path): rank for rank, path in enumerate(self.built) if layer_of(path) == layer}
            for unit, rank in ranks.items():
                for other in self._needed_units(unit, ranks, set()):
                    if ranks[other] > rank:
                        yield f"{unit}: needs {other}, which comes later in {layer}/CMakeLists.txt"

    def _cycles(self):
        needs = {}
        for path, names in self.includes.items():
            unit = unit_of(path)
            needs.setdefault(unit, set()).update({unit_of(name) for name in names if name in self.texts} - {unit})
        try:
            graphlib.TopologicalSorter(needs).prepare()
        except graphlib.CycleError as error:
            yield "include cycle: " + " -> ".join(error.args[1])

    def _build_faults(self):
        for path in set(self.texts).symmetric_difference(self.built):
            if path not in self.texts:
                yield f"{path}: named in a CMakeLists.txt, but missing"
            elif path.endswith("_test.cpp"):
                yield f"{path}: test that no CMakeLists.txt names"
            elif path.endswith(SOURCE_ENDINGS):
                yield f"{path}: source that no target builds"


def built_by(list_path, text):
    """The sources that a CMakeLists.txt names, in its order, as paths from the root."""
    text = re.sub(r"#[^\n]*", "", text).replace("${CMAKE_CURRENT_SOURCE_DIR}/", "")
    for from_root, word in re.findall(r"(\$\{PROJECT_SOURCE_DIR\}/)?([\w./+-]+)", text):
        if word.endswith(SOURCE_ENDINGS):
            yield os.path.normpath(word if from_root else os.path.join(os.path.dirname(list_path), word))


# What is planted at the end of a file, and the fault that must be found for it ("": it belongs to a later one).
PLANTED = (
    ("base/clock.h", '#include "scan/walker.h"', "base/clock.h: includes upward: scan/"),
    ("scan/walker.cpp", '#include "tests/fake_platform.h"', "scan/walker.cpp: includes upward: tests/"),
    ("tools/planted.h", "#pragma once", ""),
    ("scan/walker.cpp", '#include "tools/planted.h"', "scan/walker.cpp: includes upward: tools/"),
    ("tools/tqsetup.cpp", '#include "tests/fake_platform.h"', "tools/tqsetup.cpp: includes sideways: tests/"),
    ("base/string.h", '#include "base/nowhere.h"', '"base/nowhere.h", which is no file of the project'),
    ("base/string.cpp", '#include "base/file_lock.h"', "base/string: needs base/file_lock, which comes later"),
    ("base/planted.h", '#include "base/file_lock.h"', ""),  # a header that has no source
    ("base/vector.cpp", '#include "base/planted.h"', "base/vector: needs base/file_lock, which comes later"),
    ("base/planted_a.h", '#include "base/planted_b.h"', ""),
    ("base/planted_b.h", '#include "base/planted_a.h"', "include cycle: "),
    ("tests/base/planted_test.cpp", "int planted;", "planted_test.cpp: test that no CMakeLists.txt names"),
    ("volumes/planted.cpp", "int planted;", "planted.cpp: source that no target builds"),
    ("tests/base/CMakeLists.txt", "set(planted gone.cpp)", "base/gone.cpp: named in a CMakeLists.txt, but missing"),
    ("base/clock.cpp", "#if 1\n#elif defined(__linux__)\n#endif", "base/clock.cpp:{}: chooses by operating system"),
    ("platform/posix.cpp", "  #ifdef __APPLE__\n#endif", "platform/posix.cpp:{}: chooses by operating system"))


def self_test(root):
    """The sources must be clean, and each planted fault be found."""
    failures = [f"the sources themselves: {fault}" for fault in Checker(root).check()]
    with tempfile.TemporaryDirectory(prefix="tqfilelist_layers_") as copy:
        for top in LAYERS + BESIDE:
            shutil.copytree(os.path.join(root, top), os.path.join(copy, top))
        for path, text, _ in PLANTED:
            with open(os.path.join(copy, path), "a", encoding="utf-8") as file:
                file.write(f"\n{text}\n")
        faults = "\n".join(Checker(copy).check())
    return failures + [f"planted, but not found: {expected}" for _, _, expected in PLANTED
                       if not re.search(re.escape(expected).replace(r"\{\}", r"\d+"), faults)]


def main():
    faults = self_test(sys.argv[1]) if "--self-test" in sys.argv[2:] else Checker(sys.argv[1]).check()
    print("\n".join(faults) or "no fault found")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
