#!/usr/bin/env python3
"""The names that libyfs.so shows are those of the list, and those that the public headers declare.

    check_symbols.py LIBRARY LIST HEADERS           compares
    check_symbols.py LIBRARY LIST HEADERS --write   makes the list anew, for a change that is meant
"""
import pathlib
import re
import subprocess
import sys

# A declaration of a flat function or datum; a class is met in the list by its members.
DECLARED = re.compile(r"(?<!class )(?<!struct )\bYFS_API\b([^;{(\[]*)[;(\[]")


def main(library, listing, headers, *options):
    lines = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout.splitlines()
    shown = {line.split()[-1].split("@")[0] for line in lines}
    if options == ("--write",):
        pathlib.Path(listing).write_text("".join(name + "\n" for name in sorted(shown)))
        return 0
    listed = pathlib.Path(listing).read_text().split()
    flat = {name for name in listed if not name.startswith("_Z")}
    text = "\n".join(path.read_text() for path in sorted(pathlib.Path(headers).glob("*.h")))
    text = re.sub(r"(?s)/\*.*?\*/", "", re.sub(r"#define YFS_API.*|//.*", "", text))
    said = {match.split()[-1].lstrip("*&") for match in DECLARED.findall(text)}
    wrong = [f"exported, not in the list: {name}" for name in sorted(shown - set(listed))]
    wrong += [f"in the list, not exported: {name}" for name in sorted(set(listed) - shown)]
    mangled = " ".join(set(listed) - flat)
    wrong += [f"declared, not in the list: {n}" for n in sorted(said - flat) if f"{len(n)}{n}" not in mangled]
    wrong += [f"in the list, not declared: {name}" for name in sorted(flat - said)]
    if listed != sorted(set(listed)):
        wrong.append("the list isn't sorted, or names something twice")
    print("\n".join(wrong + [f"{len(listed)} names, {len(wrong)} wrong"]))
    return 1 if wrong or not listed else 0


sys.exit(main(*sys.argv[1:]))
