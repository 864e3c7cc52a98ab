#!/usr/bin/env python3
"""Which statuses have the tests seen a public call answer?

Usage: statuses.py

The test programs are built in build/statuses with each call of an exported function that answers a status put into one
that notes the answer (calls in tests alone, not those inside the library), and run. Prints each status of
include/yfs/status.h with the functions that were seen to answer it, or NEVER; ends with 1 if there is one beside those
that no call can answer.
"""
import collections
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE, BUILD = ROOT / "include/yfs", ROOT / "build/statuses"
FAMILIES = {"afs": "afs ftl dfs make_volume", "efs": "efs make_efs", "fcs": "cfgtable"}
# Never left to a caller: of a pass of a mount that is made again.
INTERNAL = {("efs", 11)}
# No statuses, and a name that a class has too, where a macro would hit both.
NOT_NOTED = {"deleteFile", "EFS_crc32", "EFS_get_efs_size", "EFS_physical_read", "EFS_physical_write", "EFS_physical_erase",
             "afs_physical_ftl_get_data_vas"}

NOTES = """#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
namespace status_notes {
struct book {
    std::set<std::string> lines;
    ~book() { for (std::ofstream out(std::getenv("YFS_STATUSES"), std::ios::app); const auto& line : lines) out << line + "\\n"; }
};
inline book the_book;
inline std::uint32_t note(const char* what, std::uint32_t status)
{
    static std::set<std::pair<const char*, std::uint32_t>> had;
    if (had.insert({what, status}).second) the_book.lines.insert(what + std::to_string(status));
    return status;
}
} // namespace status_notes
"""


def notes_header():
    standard = "algorithm deque functional iostream map memory optional random gtest/gtest.h".split()
    lines = ["#pragma once", *(f"#include <{h}>" for h in standard), *(f'#include "yfs/{h.name}"' for h in sorted(INCLUDE.glob("*.h"))), NOTES]
    for family, headers in FAMILIES.items():
        for header in headers.split():
            for name in re.findall(r"^YFS_API uint32_t (\w+)\(", (INCLUDE / f"{header}.h").read_text(), re.M):
                if name not in NOT_NOTED: lines.append(f'#define {name}(...) status_notes::note("{family} {name} ", ({name})(__VA_ARGS__))')
    return "\n".join(lines) + "\n"


def main():
    BUILD.mkdir(parents=True, exist_ok=True)
    header, launcher, notes = BUILD / "status_notes.h", BUILD / "launcher", BUILD / "notes.txt"
    if not header.exists() or header.read_text() != notes_header(): header.write_text(notes_header())
    ccache = "ccache" if shutil.which("ccache") else ""
    launcher.write_text(f'#!/bin/sh\ncase "$*" in *"-c {ROOT}/tests/"*.cpp*) exec {ccache} "$@" -include {header} ;; *) exec {ccache} "$@" ;; esac\n')
    launcher.chmod(0o755)
    subprocess.run(["cmake", "--preset", "release", "-B", BUILD, "-DYFS_BUILD_TOOL=OFF",
                    f"-DCMAKE_CXX_COMPILER_LAUNCHER={launcher}"], check=True, capture_output=True, cwd=ROOT)
    programs = sorted(p.parent.name for p in (ROOT / "tests").glob("*/CMakeLists.txt"))
    targets = re.findall(r"^(\w+_tests): ", subprocess.run(["ninja", "-C", BUILD, "-t", "targets", "all"], check=True, capture_output=True, text=True).stdout, re.M)
    targets = sorted({t for t in targets if any(t.startswith(p) for p in programs)})
    subprocess.run(["ninja", "-C", BUILD, "--quiet", *targets], check=True)

    notes.unlink(missing_ok=True)
    for target in targets:
        binary = next(BUILD.glob(f"tests/*/{target}"))
        done = subprocess.run([binary, "--gtest_brief=1"], capture_output=True, cwd=binary.parent, env={**os.environ, "YFS_STATUSES": str(notes)})
        if done.returncode != 0: sys.exit(f"{target} fails")
    seen = collections.defaultdict(set)
    for line in notes.read_text().splitlines():
        family, name, status = line.split()
        seen[family, int(status)].add(name)

    missing = 0
    for family, body in re.findall(r"namespace (\w+)_status \{(.*?)\n\}", (INCLUDE / "status.h").read_text(), re.S):
        for name, value in re.findall(r"(\w+) = (\w+?)U?;", body):
            key = (family, int(value, 0))
            who = sorted(seen[key])
            missing += not who and key not in INTERNAL
            told = f"{', '.join(who[:3])}{f' and {len(who) - 3} more' if len(who) > 3 else ''}" if who else "inside only" if key in INTERNAL else "NEVER"
            print(f"{family} {name} {value}: {told}")
    sys.exit(missing != 0)


if __name__ == "__main__":
    main()
