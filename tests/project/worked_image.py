#!/usr/bin/env python3
"""A host in another language: opens the library with dlopen, makes the image that docs/FORMAT.md works through, and holds
the dump in that document against it.

    worked_image.py LIBRARY FORMAT_MD
"""
import ctypes
import re
import sys

SIZE = 0x8000


def make_image(library):
    """What docs/FORMAT.md tells: a file of 90 bytes, five bytes changed inside it, an empty file made and deleted."""
    lib = ctypes.CDLL(library)
    image, back, length = (ctypes.c_uint8 * SIZE)(), ctypes.create_string_buffer(100), ctypes.c_uint32(100)
    text = b"The quick brown fox jumps over the lazy dog. " * 2
    statuses = [lib.yfs_make_volume(image, SIZE, 65), lib.dfs_init(image, SIZE), lib.dfs_write(7, 0, 90, text, 1),
                lib.dfs_write(7, 70, 5, b"HOUND", 0), lib.dfs_write(9, 0, 0, b"", 1), lib.dfs_delete_file(9),
                lib.dfs_read(7, 0, ctypes.byref(length), back)]
    assert statuses == [0] * 7 and back.raw[:length.value] == text[:70] + b"HOUND" + text[75:], (statuses, back.raw)
    return bytes(image)


def dump(image):
    """Rows of 16 bytes; a row that repeats the one before it is left out, and a * stands for any number of them."""
    rows, before = [], None
    for at in range(0, len(image), 16):
        row = image[at:at + 16]
        if row != before:
            text = "".join(chr(b) if 32 <= b < 127 else "." for b in row)
            rows.append(f"{at:04x}  {row[:8].hex(' ')}  {row[8:].hex(' ')}  |{text}|")
        elif rows[-1] != "*":
            rows.append("*")
        before = row
    return rows


wanted = dump(make_image(sys.argv[1]))
shown = re.search(r"```worked-image\n(.*?)```", open(sys.argv[2], encoding="utf-8").read(), re.DOTALL)
if shown is None or shown[1].splitlines() != wanted:
    sys.exit("\n".join(["docs/FORMAT.md shows another image. It has to be:", *wanted]))
