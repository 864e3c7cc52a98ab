"""The README's tour, command by command: what it shows is what a reader gets.

Usage: readme_test.py YFS README
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

yfs, readme = (pathlib.Path(arg).absolute() for arg in sys.argv[1:3])


def matches(shown, got):
    """`shown` may leave out lines with '...' and the end of a line with '...'."""
    lines = (r"(?:.*\n)*?" if line == "..." else re.escape(line.removesuffix("...")) + r".*" * line.endswith("...") + "\n" for line in shown)
    return re.fullmatch("".join(lines), got)


commands = 0
path = os.environ | {"PATH": f"{yfs.parent}:{os.environ['PATH']}"}
with tempfile.TemporaryDirectory() as here:
    for block in re.findall(r"^```console\n(.*?)^```$", readme.read_text(), re.M | re.S):
        for part in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, *shown = part.rstrip("\n").split("\n")
            done = subprocess.run(["bash", "-c", f"{command}\necho; pwd"], cwd=here, env=path, text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT)
            output, here = done.stdout.rstrip("\n").rsplit("\n", 1)
            commands += 1
            got = output.rstrip("\n") + "\n" if output.strip() else ""
            if not matches(shown, got):
                sys.exit(f"$ {command}\nthe README shows\n" + "\n".join(shown) + f"\nand this came\n{got}")
print(f"{commands} commands of the README print what it shows")
sys.exit(0 if commands > 15 else "the README has no tour")
