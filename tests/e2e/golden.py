"""Whole answers of the commands, written down in golden/*.txt and compared with what the program prints.

    $ -dirlist '/Users/\xff'      a call; words as a shell reads them, \xff is a byte, {long} a word of 5,000 characters
    =1                            its exit status, when that is not 0
    |DirList of {n} items         one line of standard output
    ?|    UUID: {uuid}            one that may be missing
    +| Item {n}                   one or more such lines
    !Usage: tqfilelist            one line of standard error
    === name                      another section: its calls are made in another state of things

Everything else is a remark. What stands in braces is one of PATTERNS, or a text that the test knows.
"""

import os
import re
import shlex
from types import SimpleNamespace

FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden")
LONG = "/" + "n" * 4999
UUID = r"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"
PATTERNS = {"n": r"[\d,]+", "time": r"\d{14}", "width3": r"(?=...\s)\s*\d+", "word": r"\S+", "any": r".+",
            "nothing": "", "uuid": UUID, "uuid or nothing": f"({UUID})?", "long": re.escape(LONG)}


def words_of(line, texts):
    for name, text in {**texts, "long": LONG}.items():
        line = line.replace("{" + name + "}", text)
    return [re.sub(rb"\\x([0-9a-f]{2})", lambda match: bytes.fromhex(match[1].decode()), os.fsencode(word))
            for word in shlex.split(line)]


def read(name, texts):
    """{section: its cases} of golden/<name>; the first section has the name "". The streams are regular expressions."""
    known = {**PATTERNS, **{name: re.escape(text) for name, text in texts.items()}}

    def pattern(line):
        pieces = re.split(r"\{([^}]*)\}", line)
        return "(" + "".join(known[p] if i % 2 else re.escape(p) for i, p in enumerate(pieces)) + "\n)"

    sections = {"": []}
    cases = sections[""]
    with open(os.path.join(FOLDER, name), encoding="utf-8") as source:
        for line in source.read().split("\n"):
            if line.startswith("=== "):
                cases = sections.setdefault(line[4:], [])
            elif line.startswith("$ "):
                cases.append(SimpleNamespace(words=words_of(line[2:], texts), status=0, out="", err=""))
            elif line.startswith("="):
                cases[-1].status = int(line[1:])
            elif line.startswith(("|", "?|", "+|")):
                sign, text = line.split("|", 1)
                cases[-1].out += pattern(text) + sign
            elif line.startswith("!"):
                cases[-1].err += pattern(line[1:])
    return sections


def compare(test, root, cases, **options):
    """Makes the calls in turn; each answer must be the whole of what is written down."""
    for case in cases:
        with test.subTest(b" ".join(case.words)[:100]):
            result = root.run(*case.words, **options)
            test.assertRegex(result.out, rf"\A{case.out}\Z")
            test.assertRegex(result.err, rf"\A{case.err}\Z")
            test.assertEqual(result.status, case.status)
