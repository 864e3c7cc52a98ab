#!/usr/bin/env python3
"""Each public header compiles alone, as C++20 and as C11, without a warning.

    check_headers.py INCLUDE_DIR CXX_COMPILER C_COMPILER
"""
import pathlib
import subprocess
import sys

include, cxx, cc = sys.argv[1:]
STRICT = ["-Wall", "-Wextra", "-Wconversion", "-Wshadow", "-pedantic", "-Werror", "-fsyntax-only", "-I", include, "-"]
headers = [path.relative_to(include).as_posix() for path in sorted(pathlib.Path(include).glob("yfs/*.h"))]
wrong = ""
for header in headers:
    for command in ([cxx, "-std=c++20", "-x", "c++"], [cc, "-std=c11", "-x", "c"]):
        run = subprocess.run(command + STRICT, input=f'#include "{header}"\n', text=True, capture_output=True)
        if run.returncode != 0: wrong += f"{header}: {run.stderr}\n"
print(wrong + f"{len(headers)} headers as C++ and as C")
sys.exit(1 if wrong or not headers else 0)
