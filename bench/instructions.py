#!/usr/bin/env python3
"""What workloads cost, in figures that repeat exactly: instructions as valgrind counts them, and accesses to the flash.

instructions.py table WORK FLASH [ID...]        the table of all workloads, with their marks; fails if one is missed
instructions.py check WORK BASELINE             the workloads of the baseline against it; fails if one costs more
instructions.py self-test WORK BASELINE         whether the check would find a rise
instructions.py baseline WORK BASELINE ID...    writes the baseline
WORK and FLASH are yfs_work and yfs_work_flash. Skipping is exit code 77.
"""
import os
import re
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

TOLERANCE = 0.03
SKIPPED = 77


def workloads(work):
    listing = subprocess.run([work, "list"], check=True, capture_output=True, text=True).stdout
    rows = [line.split("|") for line in listing.splitlines()]
    return {row[0]: {"what": row[1], "operations": int(row[2]), "mark": float(row[3]), "stretch": float(row[4])}
            for row in rows}


def instructions(work, name):
    """Thousand instructions of the measured stretch. Bound at start, the program doesn't look symbols up in it."""
    environment = dict(os.environ, LD_BIND_NOW="1")
    run = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--collect-atstart=no",
                          "--toggle-collect=bench_measured", work, name],
                         env=environment, capture_output=True, text=True)
    counted = re.search(r"Collected : (\d+)", run.stderr)
    if run.returncode != 0 or counted is None or int(counted[1]) == 0:
        sys.exit(f"instructions.py: {name} could not be counted\n{run.stderr}")
    return int(counted[1]) / 1000


def count_all(work, names):
    with ThreadPoolExecutor(max_workers=2) as pool:
        return dict(zip(names, pool.map(lambda name: instructions(work, name), names)))


def number(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:.1f}" if value >= 100 else f"{value:.2f}"


def table(work, flash, wanted):
    known = workloads(work)
    names = wanted or list(known)
    counted = count_all(work, names)
    missed = []
    print(f"{'':6}{'operation':44}{'1000 instr.':>12}{'mark':>8}{'':>8}{'stretch':>8}{'':>8}"
          f"{'programmed':>12}{'programs':>10}{'read':>12}{'erases':>9}")
    for name in names:
        one = known[name]
        cost = counted[name] / one["operations"]
        accesses = subprocess.run([flash, name], check=True, capture_output=True, text=True).stdout.split()
        row = f"{name:6}{one['what']:44}{number(cost):>12}"
        for kind in ("mark", "stretch"):
            met = "" if one[kind] == 0 else "met" if cost <= one[kind] else "missed"
            row += f"{one[kind] or '':>8}{met:>8}"
            if kind == "mark" and met == "missed":
                missed.append(name)
        programmed, programs, read, erases = (int(a) / one["operations"] for a in accesses)
        print(row + f"{programmed:>12,.1f}{programs:>10,.2f}{read:>12,.1f}{erases:>9,.4f}")
    print("\nEach figure is for one operation. The flash's are bytes programmed, calls that program, bytes read and "
          "blocks of 4096 bytes erased.")
    if missed:
        sys.exit("missed: " + " ".join(missed))


def read_baseline(baseline):
    with open(baseline, encoding="utf-8") as lines:
        rows = [line.split() for line in lines if line.strip() and not line.startswith("#")]
    return {name: float(cost) for name, cost in rows}


def need_valgrind_and_processor():
    if shutil.which("valgrind") is None:
        print("skipped: no valgrind")
        sys.exit(SKIPPED)
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        flags = set(re.search(r"^flags\s*:(.*)$", info.read(), re.M)[1].split())
    if not {"pclmulqdq", "avx2"} <= flags:
        print("skipped: the baseline is for processors with carry-less multiplication and AVX2")
        sys.exit(SKIPPED)


def compare(counted, before):
    """The workloads that cost too much, each told with its change."""
    worse = []
    for name, cost in counted.items():
        change = cost / before[name] - 1
        print(f"{name}: {cost:.1f} thousand instructions, {change:+.2%} against the baseline")
        if change > TOLERANCE:
            worse.append(name)
    return worse


def check(work, baseline):
    need_valgrind_and_processor()
    before = read_baseline(baseline)
    worse = compare(count_all(work, list(before)), before)
    sys.exit(f"more than {TOLERANCE:.0%} above the baseline: {' '.join(worse)}" if worse else 0)


def self_test(work, baseline):
    """The check finds what it is there for: against a baseline that was 4 % lower, today's cost is too much."""
    need_valgrind_and_processor()
    before = read_baseline(baseline)
    name = "H2"
    counted = {name: instructions(work, name)}
    lower = {name: counted[name] / 1.04}
    just_inside = {name: counted[name] / 1.02}
    if name not in before or compare(counted, lower) != [name] or compare(counted, just_inside):
        sys.exit("a rise of 4 % passes the check, or one of 2 % doesn't")


def write_baseline(work, baseline, names):
    with open(baseline, "w", encoding="utf-8") as out:
        out.write("# Thousand instructions of whole workloads: Release by g++ of Debian 12, x86-64 with carry-less "
                  "multiplication.\n")
        for name, cost in count_all(work, names).items():
            out.write(f"{name} {cost:.1f}\n")


if __name__ == "__main__":
    arguments = sys.argv[2:]
    commands = {"table": lambda: table(arguments[0], arguments[1], arguments[2:]),
                "check": lambda: check(*arguments),
                "self-test": lambda: self_test(*arguments),
                "baseline": lambda: write_baseline(arguments[0], arguments[1], arguments[2:])}
    if len(sys.argv) < 4 or sys.argv[1] not in commands:
        sys.exit(__doc__)
    commands[sys.argv[1]]()
