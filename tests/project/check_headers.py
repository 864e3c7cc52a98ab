#!/usr/bin/env python3
"""Each public header compiles alone, as C++20 and as C11, without a warning.

    check_headers.py INCLUDE_DIR CXX_COMPILER C_COMPILER
"""
import pathlib
import subprocess
import sys

STRICT = ["-Wall", "-Wextra", "-Wconversion", "-Wshadow", "-pedantic", "-Werror", "-fsyntax-only"]


def complaint(header, command, language):
    run = subprocess.run(command + STRICT + ["-x", language, "-"], input=f'#include "{header}"\n', text=True,
                         capture_output=True)
    return run.stderr if run.returncode != 0 else ""


def main(include, cxx, cc):
    headers = [path.relative_to(include).as_posix() for path in sorted(pathlib.Path(include).glob("yfs/*.h"))]
    wrong = 0
    for header in headers:
        for command, language in (([cxx, "-std=c++20", "-I", include], "c++"), ([cc, "-std=c11", "-I", include], "c")):
            text = complaint(header, command, language)
            wrong += bool(text)
            print(text, end="")
    print(f"{len(headers)} headers as C++ and as C, {wrong} failed")
    return 1 if wrong or not headers else 0


sys.exit(main(*sys.argv[1:]))
