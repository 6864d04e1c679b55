"""Holds docs/tqfilelist.1 to the command table: every command has its entry, in the table's order, with its operands.

    python3 tests/check_man_pages.py <source folder>    the status is 1 when there is a difference
"""

import difflib
import os
import re
import sys


def read(root, path):
    with open(os.path.join(root, path), encoding="utf-8") as source:
        return source.read()


def table(root):
    """(word, number of operands it must have) of each row of the command table."""
    rows = re.search(r"\bkCommands\[\] = \{\n(.*?)\n\};", read(root, "scan/commands.cpp"), re.S)[1]
    fields = re.findall(r'^    \{"(-\w+)", \w+(?:, \w+, (\d))?', rows, re.M)
    return [(word, int(needed or 0)) for word, needed in fields]


def documented(root):
    """(word, number of operands that are not in brackets) of each entry of the manual page's COMMANDS section."""
    section = re.search(r"^\.Sh COMMANDS\n(.*?)^\.Sh ", read(root, "docs/tqfilelist.1"), re.S | re.M)[1]
    entries = re.findall(r"^\.It Fl (\w+)(.*)$", section, re.M)
    return [("-" + word, len(re.findall(r"\bAr\b", re.sub(r"\bOp\b.*", "", rest)))) for word, rest in entries]


def differences(root):
    in_page = documented(root)
    told = dict(in_page)
    # A command that tells of missing operands in its own words needs none by the table.
    expected = [f"{word} with {needed or told.get(word, 0)} operands" for word, needed in table(root)]
    found = [f"{word} with {operands} operands" for word, operands in in_page]
    return list(difflib.unified_diff(expected, found, "scan/commands.cpp", "docs/tqfilelist.1", n=0, lineterm=""))


if __name__ == "__main__":
    found = differences(sys.argv[1])
    print("\n".join(found) or "no difference found")
    sys.exit(1 if found else 0)
