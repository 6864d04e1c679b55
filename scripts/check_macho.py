"""Checks programs built for macOS without a Mac: what they are and what they need from the system.

    scripts/check_macho.py PROGRAM IMPORTS CPU...          the file holds exactly these CPUs (arm64, x86_64), each an
                                                           executable for macOS 11.0 that imports what IMPORTS names
    scripts/check_macho.py --write IMPORTS PROGRAM...      writes IMPORTS from the program's files instead
    scripts/check_macho.py --self-test                     plants each kind of fault; each must be found

IMPORTS names each library by its install name and below it, indented, the symbols taken from it; a symbol that only one
CPU has is followed by that CPU. (x86_64 has calls of two forms: only the one marked $INODE64 fills the structures that
the headers declare.) A symbol more may be missing on a supported system, so that the program does not start
there; a symbol less is a call that is not made any more. Both are to be seen in a change.
"""

import os
import struct
import sys
import tempfile

CPUS = {0x0100000C: "arm64", 0x01000007: "x86_64"}
FAT_MAGIC, MACHO_MAGIC = 0xCAFEBABE, 0xFEEDFACF
EXECUTABLE, POSITION_INDEPENDENT = 2, 0x200000
DYLIB = 0xC
LIBRARIES = (DYLIB, 0x20, 0x80000018, 0x8000001F, 0x80000023)  # needed, lazy, weak, reexported, upward: numbered as one
SYMTAB, CODE_SIGNATURE, OLD_VERSION, BUILD_VERSION = 0x2, 0x1D, 0x24, 0x32
MACOS = 1
WANTED_VERSION = (11, 0)


def version_of(word):
    return word >> 16, word >> 8 & 255


class Slice:
    """One CPU's program."""

    def __init__(self, data):
        self.data = data
        magic, cpu, _, self.file_type, commands, _, self.flags, _ = struct.unpack_from("<8I", data)
        if magic != MACHO_MAGIC:
            raise ValueError("no 64-bit Mach-O file")
        self.cpu = CPUS.get(cpu, hex(cpu))
        self.libraries, self.platform, self.version, self.sdk, self.is_signed = [], None, None, None, False
        symbols, offset = None, 32
        for _ in range(commands):
            command, size = struct.unpack_from("<2I", data, offset)
            if size < 8:
                raise ValueError("damaged load commands")
            symbols = self._read_command(command, offset, size) or symbols
            offset += size
        self.imports = self._read_imports(*symbols) if symbols else set()

    def _read_command(self, command, offset, size):
        """Keeps what a load command tells; the symbol table's place is the result."""
        if command in LIBRARIES:
            name, = struct.unpack_from("<I", self.data, offset + 8)
            self.libraries.append(self._text(offset + name, offset + size))
        elif command == BUILD_VERSION:
            self.platform, version, sdk = struct.unpack_from("<3I", self.data, offset + 8)
            self.version, self.sdk = version_of(version), version_of(sdk)
        elif command == OLD_VERSION:
            version, sdk = struct.unpack_from("<2I", self.data, offset + 8)
            self.platform, self.version, self.sdk = MACOS, version_of(version), version_of(sdk)
        elif command == CODE_SIGNATURE:
            self.is_signed = True
        return struct.unpack_from("<4I", self.data, offset + 8) if command == SYMTAB else None

    def _text(self, start, end):
        return self.data[start:end].split(b"\0")[0].decode()

    def _read_imports(self, table, count, texts, texts_size):
        imports = set()
        for i in range(count):
            name, kind, _, description, value = struct.unpack_from("<IBBHQ", self.data, table + 16 * i)
            if kind & 0x0F != 1 or value != 0:  # external and undefined
                continue
            symbol = self._text(texts + name, texts + texts_size)
            library = description >> 8
            named = self.libraries[library - 1] if 1 <= library <= len(self.libraries) else f"library number {library}"
            imports.add((named, symbol))
        return imports


def read_slices(data):
    magic, count = struct.unpack_from(">2I", data)
    if magic != FAT_MAGIC:
        return [Slice(data)]
    slices = []
    for i in range(count):
        _, _, offset, size, _ = struct.unpack_from(">5I", data, 8 + 20 * i)
        slices.append(Slice(data[offset:offset + size]))
    return slices


def read_bytes(path):
    with open(path, "rb") as program:
        return program.read()


def read_list(path):
    """(library, symbol, CPU or None) of each line."""
    wanted, library = set(), None
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            words = line.split("#")[0].split()
            if words and not line[0].isspace():
                library = words[0]
                wanted.add((library, None, None))
            elif words:
                wanted.add((library, words[0], words[1] if len(words) > 1 else None))
    return wanted


def write_list(path, slices):
    with open(path, "w", encoding="utf-8") as out:
        out.write("# What the program imports; scripts/check_macho.py holds the built file to it and can write it.\n")
        for library in sorted({name for one in slices for name in one.libraries}):
            out.write(library + "\n")
            for symbol in sorted({symbol for one in slices for name, symbol in one.imports if name == library}):
                having = [one.cpu for one in slices if (library, symbol) in one.imports]
                out.write(f"  {symbol}" + (f" {having[0]}" if len(having) < len(slices) else "") + "\n")


def check_slice(one, wanted):
    faults = []
    if one.file_type != EXECUTABLE or not one.flags & POSITION_INDEPENDENT:
        faults.append(f"is no position-independent executable (type {one.file_type})")
    if one.platform != MACOS or one.version != WANTED_VERSION:
        faults.append(f"is for platform {one.platform}, version {one.version}, not macOS {WANTED_VERSION}")
    if one.sdk is None or one.sdk < WANTED_VERSION:  # the system shows such programs an older version of itself
        faults.append(f"is built with the SDK {one.sdk}, not {WANTED_VERSION} or later")
    if one.cpu == "arm64" and not one.is_signed:
        faults.append("is not signed, which this CPU's systems refuse to run")
    needed = {(library, None) for library in one.libraries} | one.imports
    allowed = {(library, symbol) for library, symbol, cpu in wanted if cpu in (None, one.cpu)}
    faults += [f"imports {symbol or 'something'} from {library}, which the list does not name"
               for library, symbol in sorted(needed - allowed, key=str)]
    faults += [f"does not import {symbol or 'anything'} from {library}, which the list names"
               for library, symbol in sorted(allowed - needed, key=str)]
    return [f"{one.cpu}: {fault}" for fault in faults]


def check_program(path, imports, cpus):
    try:
        slices = read_slices(read_bytes(path))
    except (OSError, ValueError, struct.error) as error:
        return [f"{path}: {error}"]
    wanted = read_list(imports)
    faults = [fault for one in slices for fault in check_slice(one, wanted)]
    if sorted(one.cpu for one in slices) != sorted(cpus):
        faults.append(f"holds {[one.cpu for one in slices]}, not {cpus}")
    return [f"{path}: {fault}" for fault in faults]


# ---- self-test ----

def synthetic_program(cpu=0x0100000C, file_type=EXECUTABLE, flags=POSITION_INDEPENDENT, platform=MACOS,
                      version=0x000B0000, sdk=0x000B0000, signed=True,
                      libraries=("/usr/lib/libA.dylib", "/usr/lib/libB.dylib"),
                      symbols=((1, "_open"), (1, "_stat"), (2, "_Other"))):
    """The smallest file that has what is checked."""
    commands = []
    for library in libraries:
        name = library.encode() + b"\0" * (8 - len(library) % 8)
        commands.append(struct.pack("<6I", DYLIB, 24 + len(name), 24, 0, 0, 0) + name)
    commands.append(struct.pack("<6I", BUILD_VERSION, 24, platform, version, sdk, 0))
    if signed:
        commands.append(struct.pack("<4I", CODE_SIGNATURE, 16, 0, 0))
    texts, table = b"\0", b""
    for library, symbol in symbols + ((0, "_defined"),):
        kind = 0x0F if library == 0 else 1
        table += struct.pack("<IBBHQ", len(texts), kind, 0, library << 8, 4096 if library == 0 else 0)
        texts += symbol.encode() + b"\0"
    start = 32 + sum(map(len, commands)) + 24
    commands.append(struct.pack("<6I", SYMTAB, 24, start, len(table) // 16, start + len(table), len(texts)))
    header = struct.pack("<8I", MACHO_MAGIC, cpu, 0, file_type, len(commands), sum(map(len, commands)), flags, 0)
    return header + b"".join(commands) + table + texts


def fat(*programs):
    table, body, start = b"", b"", 4096
    for program in programs:
        cpu, = struct.unpack_from("<I", program, 4)
        table += struct.pack(">5I", cpu, 0, start + len(body), len(program), 12)
        body += program
    return (struct.pack(">2I", FAT_MAGIC, len(programs)) + table).ljust(start, b"\0") + body


def self_test():
    good = "/usr/lib/libA.dylib\n  _open\n  _stat arm64\n  _stat$INODE64 x86_64\n/usr/lib/libB.dylib\n  _Other  # why\n"
    symbols = ((1, "_open"), (1, "_stat"), (2, "_Other"))
    intel_symbols = ((1, "_open"), (1, "_stat$INODE64"), (2, "_Other"))
    arm, intel = synthetic_program(), synthetic_program(cpu=0x01000007, signed=False, symbols=intel_symbols)
    cases = [  # the file, the list, the CPUs, a piece of the fault expected (None: no fault)
        (arm, good, ["arm64"], None),
        (fat(arm, intel), good, ["x86_64", "arm64"], None),
        (fat(arm, intel), good, ["arm64"], "holds ['arm64', 'x86_64']"),
        (arm, good, ["x86_64"], "holds ['arm64']"),
        (synthetic_program(symbols=symbols + ((2, "_Added"),)), good, ["arm64"], "imports _Added from /usr/lib/libB"),
        (synthetic_program(symbols=((2, "_open"),) + symbols[1:]), good, ["arm64"], "imports _open from /usr/lib/libB"),
        (synthetic_program(symbols=symbols + ((9, "_Flat"),)), good, ["arm64"], "imports _Flat from library number 9"),
        (synthetic_program(symbols=symbols[:2]), good, ["arm64"], "does not import _Other"),
        (synthetic_program(cpu=0x01000007, signed=False), good, ["x86_64"], "does not import _stat$INODE64"),
        (arm, good.replace("  _stat arm64\n", ""), ["arm64"], "imports _stat"),
        (arm, good + "  _Gone\n", ["arm64"], "does not import _Gone"),
        (synthetic_program(libraries=("/usr/lib/libA.dylib", "/usr/lib/libB.dylib", "/usr/lib/libC.dylib")),
         good, ["arm64"], "imports something from /usr/lib/libC.dylib"),
        (synthetic_program(version=0x000C0000), good, ["arm64"], "version (12, 0)"),
        (synthetic_program(platform=2), good, ["arm64"], "is for platform 2"),
        (synthetic_program(sdk=0x000A0F00), good, ["arm64"], "SDK (10, 15)"),
        (synthetic_program(file_type=6), good, ["arm64"], "no position-independent executable"),
        (synthetic_program(flags=0), good, ["arm64"], "no position-independent executable"),
        (synthetic_program(signed=False), good, ["arm64"], "is not signed"),
        (b"\x7fELF" + bytes(60), good, ["arm64"], "no 64-bit Mach-O file"),
        (arm[:200], good, ["arm64"], "unpack_from"),
    ]
    failures = []
    with tempfile.TemporaryDirectory(prefix="tqfilelist_macho_") as folder:
        program, imports = os.path.join(folder, "program"), os.path.join(folder, "imports.txt")
        for number, (content, text, cpus, expected) in enumerate(cases):
            with open(program, "wb") as out:
                out.write(content)
            with open(imports, "w", encoding="utf-8") as out:
                out.write(text)
            faults = check_program(program, imports, cpus)
            if bool(faults) != bool(expected) or (expected and not any(expected in fault for fault in faults)):
                failures.append(f"case {number}: expected {expected}, found {faults}")
        with open(program, "wb") as out:
            out.write(fat(arm, intel))
        write_list(imports, read_slices(fat(arm, intel)))
        failures += check_program(program, imports, ["arm64", "x86_64"])
    return failures


def main():
    arguments = sys.argv[1:]
    if arguments == ["--self-test"]:
        faults = self_test()
    elif len(arguments) >= 3 and arguments[0] == "--write":
        write_list(arguments[1], [one for path in arguments[2:] for one in read_slices(read_bytes(path))])
        return
    elif len(arguments) >= 3:
        faults = check_program(arguments[0], arguments[1], arguments[2:])
    else:
        sys.exit(__doc__)
    print("\n".join(faults) or "no fault found")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
