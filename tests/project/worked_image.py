#!/usr/bin/env python3
"""A host in another language: opens the library with dlopen, makes the image that docs/FORMAT.md works through, holds
the dump in that document against it, and reads it with a decoder of its own that knows the document alone.

    worked_image.py LIBRARY FORMAT_MD
"""
import ctypes
import re
import sys

EU, PAGE, FRAME, LOG_SLOTS, GROUP = 8192, 64, 66, 120, 122
MAGIC, VOLUME_MAGIC = 0xAA557887, 0x724F6201
SIZE, FILES, HEADS = 0x8000, {7: b"The quick brown fox jumps over the lazy dog. " * 2}, 65


def make_image(library):
    """What docs/FORMAT.md tells: a file of 90 bytes, five bytes changed inside it, an empty file made and deleted."""
    lib = ctypes.CDLL(library)
    image = (ctypes.c_uint8 * SIZE)()

    def write(file, offset, data, ends):
        return lib.dfs_write(file, offset, len(data), data, ends)

    statuses = [lib.yfs_make_volume(image, SIZE, HEADS), lib.dfs_init(image, SIZE), write(7, 0, FILES[7], 1),
                write(7, 70, b"HOUND", 0), write(9, 0, b"", 1), lib.dfs_delete_file(9)]
    assert statuses == [0] * 6, statuses
    FILES[7] = FILES[7][:70] + b"HOUND" + FILES[7][75:]
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


def number(data, at, width):
    return int.from_bytes(data[at:at + width], "little")


def crc(data, register, bits, polynomial=0x1021):
    """Most significant bit first, through the byte table of the polynomial, cut to `bits` after each byte."""
    for byte in data:
        index = (register >> 8 ^ byte) & 0xFF
        entry = index << 8
        for _ in range(8):
            entry = (entry << 1 ^ (polynomial if entry & 0x8000 else 0)) & 0xFFFF
        register = (register << 8 ^ entry) & 0xFFFF & (1 << bits) - 1
    return register


class Reader:
    """The formats of a volume as the document gives them, and nothing of the library."""

    def __init__(self, image):
        self.image = image
        # The pages of the log before those of the groups: only page 0 tells where the groups begin.
        units = sorted((number(image, at + 4, 4), at) for at in range(0, len(image), EU) if number(image, at, 4) == MAGIC)
        self.pages = {}
        for _, at in units:
            if number(image, at + 14, 2) == 0:
                self.walk_log(at)
        header = self.page(0)
        assert number(header, 0, 4) == VOLUME_MAGIC
        self.files = number(header, 12, 2)
        self.chunks = (number(header, 8, 4) - 14 - 2 * self.files) // 66
        self.data_page = (14 + 2 * (self.files + self.chunks) + 63) // 64
        for _, at in units:
            base = number(image, at + 14, 2)
            if base != 0:
                self.pages.update({base + slot: at + 140 + FRAME * slot for slot in range(GROUP)})

    def walk_log(self, at):
        before = 0
        for slot in range(LOG_SLOTS):
            record, following = (number(self.image, at + 18 + 2 * k, 2) for k in (slot, slot + 1))
            if following & 0x8000:
                break
            before = crc(before.to_bytes(2, "little"), 0x3FFF, 14) ^ record
            self.pages[before] = at + 260 + FRAME * slot

    def page(self, number_of):
        if number_of not in self.pages:
            return bytes(PAGE)
        frame = self.image[self.pages[number_of]:self.pages[number_of] + FRAME]
        assert crc(frame[:PAGE] + number_of.to_bytes(2, "little"), 0xFFFF, 16) == number(frame, PAGE, 2), number_of
        return frame[:PAGE]

    def entry(self, index):
        at = 14 + 2 * index
        return number(self.page(at // PAGE), at % PAGE, 2)

    def content(self, file):
        chunk, whole = self.entry(file), b""
        while chunk > 64:
            following = self.entry(chunk)
            whole += self.page(self.data_page + chunk - self.files)[:min(following, 64)]
            chunk = following
        return whole

    def all_files(self):
        return {file: self.content(file) for file in range(self.files) if self.entry(file) not in (0, 0xFFFE)}


def main(library, document):
    image = make_image(library)
    printed = re.search(r"```worked-image\n(.*?)```", open(document, encoding="utf-8").read(), re.DOTALL)
    wanted = dump(image)
    shown = [] if printed is None else printed.group(1).splitlines()
    if shown != wanted:
        print("docs/FORMAT.md shows another image. It has to be:", *wanted, sep="\n")
        return 1
    read = Reader(image).all_files()
    if read != FILES:
        print(f"the second reader finds {read}")
        return 1
    print(f"{len(shown)} rows of the dump, {sum(map(len, read.values()))} bytes of files")
    return 0


sys.exit(main(*sys.argv[1:]))
