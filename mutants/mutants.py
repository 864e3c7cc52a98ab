#!/usr/bin/env python3
"""Small wrong changes to the library, one at a time: do the tests notice?

Usage: mutants.py COUNT [SEED]

Each mutant is one change of one line in a private copy of the sources (build/mutants). The library and its test programs
are built, and the programs run, quickest first, until one fails or hangs. A change that doesn't compile, or that compiles
to the same object code, is replaced by another. Results go to build/mutants/results.txt, one line each; a run that was
stopped goes on where it was. The last line has the sums.
"""
import hashlib
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build/mutants"
TREE, BUILD, RESULTS = WORK / "tree", WORK / "build", WORK / "results.txt"
FOLDERS = "afs efs ftl frame cfgtable vfs facade".split()
# Quickest first; a folder's own program goes before them.
PROGRAMS = "frame ftl vfs cfgtable efs_fault inspect efs facade afs faults pinned efs_change power_cut".split()
SECONDS = 120

# (what it is called, pattern, replacements); groups 1 and 2 around the change stay.
CHANGES = [
    ("comparison", r"( )(<=|>=|<|>|==|!=)( )", {"<": ["<=", ">"], ">": [">=", "<"], "<=": ["<"], ">=": [">"], "==": ["!="], "!=": ["=="]}),
    ("arithmetic", r"( )(\+|-|\*|/|%|&|\||<<|>>)( (?=[\w(]))", {"+": ["-"], "-": ["+"], "*": ["+"], "/": ["*"], "%": ["/"], "&": ["|"],
                                                            "|": ["&"], "<<": [">>"], ">>": ["<<"]}),
    ("logic", r"( )(&&|\|\|)( )", {"&&": ["||"], "||": ["&&"]}),
    ("assignment", r"( )(\+=|-=|\|=|&=|\^=)( )", {"+=": ["-=", "="], "-=": ["+=", "="], "|=": ["&="], "&=": ["|="], "^=": ["|="]}),
    ("step", r"()(\+\+|--)()(?=\w)", {"++": ["--", ""], "--": ["++", ""]}),
    ("number", r"([^\w.])(0x[0-9A-Fa-f]+|\d+)(U?\b)", None),
    ("condition", r"(\bif \()()(?=[^\n]*\))", None),
    ("status", r"(status::)(\w+)(;|,| )", None),
    ("statement", r"^(\s+)([A-Za-z_:\[\]().>-]+(?: =|\().*;)()$", None),
]
STATUSES = ["ok", "not_found", "invalid", "failed", "integrity", "no_memory", "not_ready"]


def mutate(line, rng):
    """A changed line and the kind of change, or nothing."""
    kind, pattern, table = rng.choice(CHANGES)
    places = list(re.finditer(pattern, line))
    if not places: return None
    place = rng.choice(places)
    before, old, after = place.group(1), place.group(2), place.group(3) if place.lastindex >= 3 else ""
    if table: new = rng.choice(table[old])
    elif kind == "number": new = str(int(old, 0) + rng.choice((1, -1))) if old != "0" else "1"
    elif kind == "condition": return line[:place.end(1)] + "!(" + re.sub(r"\)(?=[^()]*$)", "))", line[place.end(1):], count=1), kind
    elif kind == "status": new = rng.choice([s for s in STATUSES if s != old])
    else: new = ";"
    return line[:place.start()] + before + new + after + line[place.end():], kind


def candidates(path):
    """Numbers of the lines of code: no comments, includes, declarations of types, static assertions."""
    for number, line in enumerate(path.read_text().split("\n")):
        code = line.strip()
        if code and not re.match(r"//|#|/\*|\*|static_assert|namespace|using|template|\{|\}|.*\bconst char\*|\{\d+, \"", code): yield number


def build(*targets):
    return subprocess.run(["ninja", "-C", BUILD, "-j1", *targets], capture_output=True).returncode == 0


def survives(folder):
    """The first program that fails, or nothing."""
    own = [p for p in PROGRAMS if p == folder or p.startswith(folder + "_")]
    for program in own + [p for p in PROGRAMS if p not in own]:
        binary = next(BUILD.glob(f"tests/*/{program}_tests"))
        try:
            if subprocess.run([binary], capture_output=True, timeout=SECONDS, cwd=binary.parent).returncode != 0: return program
        except subprocess.TimeoutExpired:
            return program + " (hangs)"
    return None


def objects():
    return {p: hashlib.sha256(p.read_bytes()).digest() for p in BUILD.glob("*/CMakeFiles/*.dir/*.o")}


def prepare():
    if not TREE.exists():
        TREE.mkdir(parents=True)
        archive = subprocess.run(["git", "-C", ROOT, "archive", "HEAD"], capture_output=True, check=True).stdout
        subprocess.run(["tar", "-x", "-C", TREE], input=archive, check=True)
        RESULTS.unlink(missing_ok=True)
    for folder in FOLDERS:  # what a stopped run left
        for path in (TREE / folder).glob("*.cpp"):
            kept = path.with_suffix(".kept")
            if kept.exists():
                kept.replace(path)
                os.utime(path)
    samples = TREE.parent / "shared"
    if not samples.exists() and (ROOT.parent / "shared").exists(): samples.symlink_to(ROOT.parent / "shared")
    subprocess.run(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DYFS_BUILD_TOOL=OFF",
                    *(["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else [])], check=True, capture_output=True)


def main():
    count, seed = int(sys.argv[1]), int(sys.argv[2]) if len(sys.argv) > 2 else 1
    prepare()
    targets = [f"{program}_tests" for program in PROGRAMS]
    if not build(*targets): sys.exit("the sources don't build as they are")
    if failing := survives("frame"): sys.exit(f"{failing}_tests fail without any change")
    sources = [p for folder in FOLDERS for p in sorted((TREE / folder).glob("*.cpp"))]
    weights = [len(list(candidates(p))) for p in sources]
    done = RESULTS.read_text().splitlines() if RESULTS.exists() else []
    number = int(done[-1].split()[0]) + 1 if done else 0
    while len(done) < count:
        rng = random.Random(f"{seed}/{number}")
        path = rng.choices(sources, weights)[0]
        lines = path.read_text().split("\n")
        at = rng.choice(list(candidates(path)))
        changed = mutate(lines[at], rng)
        number += 1
        if not changed or changed[0] == lines[at]: continue
        kept, before = path.with_suffix(".kept"), objects()
        shutil.copy2(path, kept)
        path.write_text("\n".join([*lines[:at], changed[0], *lines[at + 1:]]))
        try:
            if not build("yfs_static") or objects() == before or not build(*targets): continue
            killer = survives(path.parent.name)
        finally:
            kept.replace(path)
            os.utime(path)
        verdict = f"killed by {killer}" if killer else "SURVIVED"
        done.append(f"{number - 1} {verdict}: {path.relative_to(TREE)}:{at + 1}: {lines[at].strip()}  ->  {changed[0].strip()}")
        with RESULTS.open("a") as out: out.write(done[-1] + "\n")
        print(done[-1], flush=True)
    survivors = [line for line in done if " SURVIVED: " in line]
    print(f"mutants: {len(done)}, killed: {len(done) - len(survivors)}, survived: {len(survivors)}")


if __name__ == "__main__":
    main()
