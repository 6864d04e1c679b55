"""Whether reading the state files costs in proportion to their size: instructions per unit (callgrind, less what preparing
the file takes) at a size and at a quarter of it, and the processor time of one reading. The status is 1 when the larger one
takes over a tenth more per unit.

    python3 bench/state_files.py BUILD
"""

import os
import re
import subprocess
import sys
import tempfile

TOLERATED = 1.10
READINGS = 5
# what is read, the program's word, the size that is timed, and the one (with its quarter) whose instructions are counted
KINDS = (("settings: filters found, one attribute each", "settings", 9_999, 9_999),
         ("registry: volumes read", "registry", 1_000, 1_000),
         ("topdirs.xml: entries read", "topdirs", 100_000, 100_000),
         ("explain: lines counted and searched, MiB of list", "explain", 2_048, 64))


def seconds(program, kind, size):
    return float(subprocess.run([program, kind, str(size), str(READINGS)], check=True, capture_output=True).stdout)


def instructions(program, kind, size):
    """Of one reading alone."""
    counts = []
    for readings in (0, 1):
        with tempfile.NamedTemporaryFile(prefix="tq_callgrind_") as result:
            subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=" + result.name,
                            program, kind, str(size), str(readings)], check=True, capture_output=True)
            counts.append(int(re.search(rb"^(?:totals|summary): (\d+)", result.read(), re.MULTILINE).group(1)))
    return counts[1] - counts[0]


def main():
    program, all_linear = os.path.join(sys.argv[1], "state_files"), True
    print("\nReading state files: processor time, and instructions per unit against those at a quarter of the size")
    for what, kind, size, counted in KINDS:
        time = seconds(program, kind, size)
        each = instructions(program, kind, counted) / counted
        growth = each / (instructions(program, kind, counted // 4) / (counted // 4))
        all_linear &= growth <= TOLERATED
        print(f"  {what:<50} {size:>8} {time * 1e3:>9.2f} ms {each:>12.0f} instructions each  x{growth:.2f} per unit  "
              f"{'ok' if growth <= TOLERATED else 'NOT LINEAR'}", flush=True)
    sys.exit(not all_linear)


if __name__ == "__main__":
    main()
