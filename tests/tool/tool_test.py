"""The yfs command as a user meets it: real processes, real files, exit statuses and what they print.

Usage: tool_test.py YFS STOP_AT_MODULE SOURCE_TREE SAMPLES [unittest arguments]
"""
import contextlib
import hashlib
import json
import os
import pathlib
import pty
import re
import resource
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

from tool_case import SAMPLES, SET_FILES, SOURCE, STOP_AT, YFS, ToolTest, cfg_records, overwrite, replace, run, state_of

UPLINK = "/home/net/uplink"
SAMPLE_SETS = ["plain-tables", "small-deployed", "not-deployed", "no-zonc", "with-efs", "large"]


class Sample(ToolTest):
    def test_the_same_bytes_at_every_run(self):
        self.ok("sample", "again/and/again", cwd=self.root)
        for name in SET_FILES: self.assertEqual((self.root / "again/and/again" / name).read_bytes(), (self.root / "pristine" / name).read_bytes(), name)

    def test_it_holds_what_it_should_show(self):
        folder = self.sample()
        info = self.document("info", cwd=folder)
        self.assertTrue(info["yfs"]["deployed"] and info["yfs"]["lowest_erase_count"] >= 2, "every unit was reclaimed")
        values = self.values(folder)
        sources = {"/home/boot/order": b"flash,usb,net",  # velor.cfg alone
                   "/home/boot/last_slot": b"b",  # zonc.cfg, since it isn't taken from the volume
                   "/home/net/name": b"bench-3",  # the volume, before both tables
                   "/home/calib/board_serial": b"BD-000417",  # EFS
                   "/home/boot/args": b""}
        self.assertEqual({path: values[path] for path in sources}, sources)
        files = {f["path"]: f for f in self.document("ls", cwd=folder)["files"]}
        self.assertEqual({path: files[path]["size"] - len(values[path]) for path in values if files[path]["size"] != len(values[path])},
                         {"/home/cred/device_key": 40, "/home/cred/ca_bundle": 56})
        self.assertTrue(files["/home/log/ring"]["size"] > 4096 and files["/home/calib/rf_map"]["size"] > 2 * 4072)
        self.assertFalse({"/home/calib/last_service", "/home/power/wake_policy"} & (files.keys() | values.keys()), "never written")
        efs = (folder / "efs.img").read_bytes()
        self.assertGreater(max(struct.unpack_from("<I", efs, at + 4)[0] for at in (0, 4096)), 2, "block maps took turns")
        self.assertIn(48, map(len, files), "a name that fills its field")

    def test_the_other_sku_has_other_files(self):
        self.assertEqual(self.ok("nvar", "get", "usb/mode", cwd=self.sample(sku=42, yfs=None)), b"device")


class Files(ToolTest):
    def test_put_cat_rm(self):
        folder = self.sample()
        before = self.contents(folder)
        big = bytes(range(256)) * 120
        (folder / "new").write_bytes(big)
        for path, args, stdin in [("/home/log/ring", ["new"], b""),  # longer than before
                                  ("/home/stats/counters", [], b"from stdin"),  # shorter
                                  ("/home/ui/language", ["-"], b""),  # empty
                                  ("/home/power/wake_policy", ["-"], b"new one"),  # not stored so far
                                  ("/home/calib/board_serial", [], b""), ("/home/calib/last_service", [], b"on EFS")]:
            self.ok("put", path, *args, cwd=folder, stdin=stdin)
            before[path] = big if args == ["new"] else stdin
            self.assertEqual(self.ok("cat", path.removeprefix("/home/"), cwd=folder), before[path], path)
        for path in ("boot/splash", "calib/rf_map"):
            self.ok("rm", path, cwd=folder)
            for verb in ("cat", "rm"): self.refused("no-file", 1, verb, path, cwd=folder)
            del before["/home/" + path]
        self.assertEqual(self.contents(folder), before, "all other files are as they were")

    def test_files_without_a_name_are_reached_by_their_place(self):
        folder = self.sample()
        self.ok("put", "afs#100", cwd=folder, stdin=b"nameless")
        self.assertIn("afs#100", self.ok("ls", cwd=folder).decode().splitlines())
        self.assertEqual(self.ok("cat", "afs#100", cwd=folder), b"nameless")
        self.assertEqual(self.ok("cat", "afs#13", cwd=folder), self.ok("cat", UPLINK, cwd=folder))
        self.ok("rm", "afs#100", cwd=folder)
        self.assertNotIn(b"afs#100", self.ok("ls", cwd=folder))
        # A second entry of one name is out of a lookup's reach: its file is listed by its place.
        language = (folder / "ftbl.bin").read_bytes().index(b"/home/ui/language")
        overwrite("ftbl.bin", language, b"/home/log/ring\0\0\0")(folder)
        listed = self.ok("ls", cwd=folder).decode().splitlines()
        self.assertEqual((listed.count("/home/log/ring"), listed.count("afs#21")), (1, 1))

    def test_listings(self):
        folder = self.sample()
        files = self.document("ls", cwd=folder)["files"]
        rows = [row.split() for row in self.ok("ls", "-l", cwd=folder).decode().splitlines()]
        self.assertEqual(rows, [["size", "limit", "attr", "place", "path"],
                                *([str(f["size"]), str(f["limit"]), f"{f['attributes']:04x}", f["place"], f["path"]] for f in files)])
        self.assertEqual(self.ok("ls", cwd=folder).decode().split(), [f["path"] for f in files])

    def test_a_value_that_a_deployed_volume_loses_is_told(self):
        folder = self.sample()
        self.assertIn(b"warning: velor.cfg lists", run("rm", "net/gateway", cwd=folder).stderr)
        self.refused("volume-incomplete", 4, "nvar", "ls", cwd=folder, says=["/home/net/gateway", "yfs put"])
        self.assertIn(b"warning", run("put", "cred/device_key", cwd=folder, stdin=b"x" * 39).stderr)
        self.ok("put", "net/gateway", cwd=folder, stdin=b"gw")
        self.refused("volume-incomplete", 4, "nvar", "ls", cwd=folder, says=["/home/cred/device_key", 39, 40])


class Values(ToolTest):
    def test_set_reaches_a_second_process(self):
        folder = self.sample()
        (folder / "value").write_bytes(b"\x00\xff" * 50)
        want = self.values(folder)
        header = (folder / "zonc.bin").read_bytes()[:16]
        self.assertEqual(header[:4], b"ZONC")
        for path, value, bytes_set in [
            ("net/uplink", "utf8:lte\u00f6", "lte\u00f6".encode()), ("net/mac", "hex:02 00:5e100017", bytes.fromhex("02005e100017")),
            ("/home/power/fan_curve", "value", b"\x00\xff" * 50), ("net/name", "utf8:", b""), ("boot/splash", "-", b"s" * 8192),
            ("boot/last_slot", "utf8:c", b"c")]:
            self.ok("nvar", "set", path, value, cwd=folder, stdin=bytes_set)
            self.assertEqual(self.ok("nvar", "get", path, cwd=folder), bytes_set)
            want["/home/" + path.removeprefix("/home/")] = bytes_set
        self.assertEqual(self.values(folder), want, "all other values are as they were")

        partition = (folder / "zonc.bin").read_bytes()
        self.assertEqual(struct.unpack_from("<I", partition, 8)[0], len(partition) - 16)
        self.assertEqual((partition[:8], partition[12:16]), (header[:8], header[12:16]), "firmware's own bytes stay")
        by_number = {v["fileno"]: v["path"] for v in self.document("nvar", "ls", cwd=folder)["values"]}
        self.assertEqual({by_number[n]: data for n, (_, data) in cfg_records(partition[16:]).items()}, want)
        self.assertEqual(self.ok("cat", UPLINK, cwd=folder), want[UPLINK], "the volume is written as well")

    def test_what_changed_nothing_touches_no_file(self):
        folder = self.sample()
        for args in [("nvar", "set", UPLINK, "utf8:wan0"), ("put", UPLINK, "-"), ("info",), ("ls",), ("nvar", "ls"),
                     ("rm", "power/wake_policy"), ("nvar", "set", "net/mac", "hex:00112233445566")]:
            before = state_of(folder)
            run(*args, cwd=folder, stdin=b"wan0")
            self.assertEqual(state_of(folder), before, args)

    def test_a_set_without_zonc_gets_one(self):
        for changes, named in [({"zonc": None}, "zonc.bin"), ({"zonc": "tables/over.bin"}, "tables/over.bin")]:
            with self.subTest(**changes):
                folder = self.sample(**changes, yfs=None)
                (folder / "zonc.bin").unlink()
                (folder / "tables").mkdir()
                self.assertEqual(self.ok("nvar", "get", UPLINK, cwd=folder), b"eth0")
                self.ok("nvar", "set", UPLINK, "utf8:lte0", cwd=folder)
                self.assertEqual(self.ok("nvar", "get", UPLINK, cwd=folder), b"lte0")
                self.assertEqual(json.loads((folder / "yfs.json").read_text())["zonc"], named)
                partition = (folder / named).read_bytes()
                self.assertEqual(partition[:16], bytes(8) + struct.pack("<I", len(partition) - 16) + bytes(4))

    def test_records_that_the_file_table_lacks(self):
        folder = self.sample()
        records = cfg_records((folder / "zonc.bin").read_bytes()[16:])
        records[0x291] = 1, b"Other unit"
        payloads = b"".join(data for _, data in records.values())
        at = 4 + 12 * len(records)
        table = struct.pack("<I", len(records))
        for fileno, (flags, data) in records.items():
            table += struct.pack("<IIHH", fileno, at, len(data), flags)
            at += len(data)
        (folder / "zonc.bin").write_bytes(struct.pack("<8xII", at, 7) + table + payloads)
        before = state_of(folder)
        self.refused("unknown-records", 8, "nvar", "set", UPLINK, "utf8:lte0", cwd=folder, says=["0x291", "--drop-unknown"])
        self.assertEqual(state_of(folder), before)
        self.ok("nvar", "set", UPLINK, "utf8:lte0", "--drop-unknown", cwd=folder)
        self.assertNotIn(0x291, cfg_records((folder / "zonc.bin").read_bytes()[16:]))

    def test_json(self):
        folder = self.sample()
        one, every = self.document("nvar", "get", "net/mac", cwd=folder), self.document("nvar", "ls", cwd=folder)["values"]
        self.assertIn({key: one[key] for key in one if key != "schema"}, every)
        self.assertEqual((one["size"], one["limit"], one["modifiable"], bytes.fromhex(one["value"])),
                         (6, 6, True, self.ok("nvar", "get", "net/mac", cwd=folder)))
        self.assertEqual([v["path"] for v in every if not v["modifiable"]], ["/home/cred/ca_bundle", "/home/cred/device_key"])


class Saving(ToolTest):
    def test_links_and_modes_stay(self):
        folder = self.sample()
        (folder / "flash").mkdir()
        shutil.move(folder / "yfs.img", folder / "flash/real.img")
        (folder / "yfs.img").symlink_to("flash/real.img")
        (folder / "flash/real.img").chmod(0o640)
        self.ok("put", UPLINK, cwd=folder, stdin=b"lte0")
        self.assertEqual((os.readlink(folder / "yfs.img"), (folder / "flash/real.img").stat().st_mode & 0o7777), ("flash/real.img", 0o640))
        self.assertEqual((self.ok("cat", UPLINK, cwd=folder), os.listdir(folder / "flash")), (b"lte0", ["real.img"]))

    IN_ORDER = ("yfs.img", "efs.img", "zonc.bin", "yfs.json")

    def test_killed_at_every_step(self):
        set_value = ("nvar", "set", UPLINK, "utf8:lte0")
        contents = lambda folder: {path.name: path.read_bytes() for path in folder.iterdir() if path.name[0] != "."}
        for changes, steps in [({}, 10), ({"zonc": None}, 13)]:
            for kill in range(steps + 2):  # at none, at each, behind the last
                folder = self.sample(**changes)
                if changes: (folder / "zonc.bin").unlink()
                old = contents(folder)
                done = run(*set_value, cwd=folder, env=os.environ | {
                    "LD_PRELOAD": str(STOP_AT), "YFS_STOP_AT": str(kill), "ASAN_OPTIONS": "verify_asan_link_order=0"})
                now = contents(folder)
                if kill == 0: new = now
                with self.subTest(step=kill, **changes):
                    self.assertEqual(done.returncode, -9 if 0 < kill <= steps else 0, done.stderr)
                    replaced = [name for name in self.IN_ORDER if now.get(name) != old.get(name)]
                    self.assertEqual(replaced, [n for n in self.IN_ORDER if new[n] != old.get(n)][:len(replaced)],
                                     "images first, then the table, then the set file")
                    self.assertEqual({name: now[name] for name in replaced}, {name: new[name] for name in replaced})
                    self.assertEqual(self.ok("nvar", "get", UPLINK, cwd=folder), b"lte0" if replaced else b"wan0")

    def test_a_save_that_fails_changes_nothing(self):
        small = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))
        folder = self.sample()
        before = state_of(folder)
        # Signals as this script has them, SIGXFSZ ignored, so that the write answers EFBIG.
        self.refused("save-failed", 8, "nvar", "set", UPLINK, "utf8:lte0", cwd=folder, preexec_fn=small,
                     restore_signals=False, says=["yfs.img", "File too large", "nothing was changed"])
        self.assertEqual(state_of(folder), before)
        long_name = "y" * 250  # no room for the name of a temporary file
        folder = self.sample(yfs=long_name)
        (folder / "yfs.img").rename(folder / long_name)
        before = state_of(folder)
        self.refused("save-failed", 8, "put", UPLINK, cwd=folder, stdin=b"lte0", says=["File name too long"])
        self.assertEqual(state_of(folder), before)


class Output(ToolTest):
    def on_terminal(self, *args, cwd):
        main, terminal = pty.openpty()
        done = subprocess.run([YFS, *args], cwd=cwd, stdout=terminal, stderr=subprocess.PIPE)
        os.close(terminal)
        with contextlib.suppress(OSError), open(main, "rb", closefd=True) as out:
            return done, out.read1(4096)
        return done, b""

    def test_no_binary_to_a_terminal(self):
        folder = self.sample()
        binary = b"error[binary-to-terminal]: 6 bytes"
        for args, status, text, told in [("nvar get net/mac", 16, b"", binary), ("cat net/mac", 16, b"", binary),
                                         ("cat net/mac --force", 0, b"\x8b", b""), ("nvar get net/name", 0, b"bench-3", b""),
                                         ("cat power/rails", 0, b"core 0.84", b""), ("ls", 0, b"/home/", b"")]:
            done, shown = self.on_terminal(*args.split(), cwd=folder)
            self.assertEqual((done.returncode, text in shown, told in done.stderr, status == 0 or shown == b""), (status, True, True, True), args)

    def test_a_closed_pipe_ends_quietly(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        with open(write_end, "wb") as pipe:
            done = subprocess.run([YFS, "nvar", "ls", "--json"], cwd=self.sample(), stdout=pipe, stderr=subprocess.PIPE)
        self.assertEqual((done.returncode, done.stderr), (0, b""))

    def test_names_from_a_table_cannot_steer_a_terminal(self):
        folder = self.sample()
        table = (folder / "ftbl.bin").read_bytes().replace(b"/home/log/ring", b"/home/\x1b[J\xc2\x9b\xc0\x9b!")
        (folder / "ftbl.bin").write_bytes(table)
        for args in [("ls",), ("ls", "-l"), ("ls", "--json")]:
            shown = self.ok(*args, cwd=folder)
            self.assertNotRegex(shown, rb"[\x1b\x80-\xff]")
            escaped = rb"/home/\x1b[J\xc2\x9b\xc0\x9b!"
            self.assertIn(escaped.replace(b"\\", b"\\\\") if "--json" in args else escaped, shown)


def forget_zonc(folder):
    replace("yfs.json", b'{"sku":17,"ftbl":"ftbl.bin","velor":"velor.cfg"}')(folder)


def full_volume(folder):
    for number in range(60, 67):
        run("put", f"afs#{number}", cwd=folder, stdin=bytes(10880))


SET_UPLINK = ["nvar", "set", "net/uplink", "utf8:lte0"]
# (id, status, arguments, change to a fresh sample, what the message tells)
REFUSALS = [
    ("usage", 16, [], None, ["no verb", "--help"]),
    ("usage", 16, ["cat"], None, ["PATH is required"]),
    ("usage", 16, ["ls", "--jason"], None, ["--jason"]),
    ("usage", 16, ["nvar", "set", "net/mac", "hex:123"], None, ["hex:123", "two digits"]),
    ("set-missing", 16, ["ls"], lambda folder: (folder / "yfs.json").unlink(), ["yfs.json", "--set", "yfs sample"]),
    ("set-missing", 16, ["--set", "nowhere", "ls"], None, ["nowhere"]),
    ("set-invalid", 16, ["ls"], replace("yfs.json", b'{"sku": 17,\n]'), ["line 2, column 1"]),
    ("set-invalid", 16, ["ls"], replace("yfs.json", b'{"sku": 17, "zonk": "z"}'), ['unknown key "zonk"']),
    ("set-invalid", 16, ["ls"], replace("yfs.json", b'{"sku": -1}'), ['"sku"', "4294967295"]),
    ("set-invalid", 16, ["ls"], replace("yfs.json", b'{"sku": 17, "ftbl": "f"}'), ['"velor"', "missing"]),
    ("set-invalid", 16, ["ls"], replace("yfs.json", b'{"sku":18,"ftbl":"ftbl.bin","velor":"velor.cfg"}'), ["18", "17, 42"]),
    ("file-unreadable", 8, ["ls"], lambda folder: (folder / "velor.cfg").unlink(), ["velor.cfg", "No such file"]),
    ("file-unreadable", 8, ["put", "net/uplink", "/dev/zero"], None, ["/dev/zero", "67108864"]),
    ("file-unreadable", 8, ["nvar", "set", "net/uplink", "."], None, ["directory"]),
    ("unknown-image", 4, ["check", "velor.cfg"], None, ["velor.cfg", "yfs scan"]),
    ("table-damaged", 4, ["ls"], overwrite("ftbl.bin", 0, b"FTBX"), ["ftbl.bin"]),
    ("table-damaged", 4, ["nvar", "ls"], overwrite("velor.cfg", 0, b"\xff\xff"), ["velor.cfg", 65535, 8307]),
    ("table-damaged", 4, ["nvar", "ls"], overwrite("velor.cfg", 20, b"\xff\xff\xff\xff"), ["velor.cfg", "record 1", "0x211", 4294967296]),
    ("table-damaged", 4, ["nvar", "ls"], overwrite("zonc.bin", 8, b"\xff"), ["zonc.bin", 255, 227]),
    ("table-damaged", 4, ["nvar", "ls"], replace("zonc.bin", b"short"), ["zonc.bin", 5, 16]),
    # Two records of one file: no look at the bytes tells, the library does.
    ("table-damaged", 4, ["nvar", "ls"], overwrite("zonc.bin", 20, struct.pack("<I", 0x230)), ["328", "twice"]),
    ("volume-damaged", 4, ["ls"], replace("yfs.img", bytes(131072)), ["yfs.img", "131072"]),
    ("volume-damaged", 4, ["cat", "net/uplink"], replace("yfs.img", bytes(64)), ["32768 to 2097152"]),
    # The library prints a line of its own here, which must not reach standard output.
    ("volume-damaged", 4, ["nvar", "ls"], replace("yfs.img", bytes(131072)), ["yfs.img"]),
    ("efs-damaged", 4, ["ls"], overwrite("ftbl.bin", 48, b"EFSX"), ["SKU 17"]),
    ("efs-damaged", 4, ["ls"], overwrite("efs.img", 0, bytes(4)), ["efs.img", "block map"]),
    ("no-volume", 8, ["cat", "net/uplink"], forget_zonc, ["net/uplink", '"yfs"']),
    ("no-volume", 8, ["put", "afs#1000"], None, ["1000", "0 to 127"]),
    ("no-volume", 8, ["cat", "calib/adc_gain"], forget_zonc, ["EFS", '"efs"']),
    ("unknown-path", 1, ["cat", "net/uplonk"], None, ["net/uplonk", "yfs ls"]),
    ("unknown-path", 1, ["cat", "radio/coexistence/priorities_of_bands_plan_B"], None, ["plan_B"]),
    ("no-file", 1, ["cat", "power/wake_policy"], None, ["yfs.img"]),
    ("no-value", 1, ["nvar", "get", "power/wake_policy"], None, ["velor.cfg"]),
    ("no-value", 1, ["nvar", "set", "log/ring", "utf8:x"], None, ["velor.cfg"]),
    ("volume-full", 8, ["put", "afs#100", "yfs.img"], None, ["131072 bytes", "2048 chunks", "1265 are free (105 at once, 1160 after a reclaim)", "short by 783"]),
    ("volume-full", 8, ["nvar", "set", "boot/splash", "-"], full_volume, ["yfs.img", "nothing was saved"]),
    ("too-large", 8, ["put", "ui/language", "yfs.img"], None, [131072, "allows 8"]),
    ("too-large", 8, ["put", "cred/device_key", "yfs.img"], None, ["allows 72 (32 and a tail of 40)"]),
    ("too-large", 8, ["put", "afs#21", "yfs.img"], None, ["/home/ui/language", "allows 8"]),
    ("too-large", 8, ["put", "calib/board_serial", "yfs.img"], lambda folder: set_limit(folder, "/home/calib/board_serial", 0x20000), ["EFS"]),
    ("too-large", 8, ["nvar", "set", "calib/adc_gain", "yfs.img"], lambda folder: set_limit(folder, "/home/calib/adc_gain", 0x20000), ["EFS", "128 at most"]),
    ("no-volume", 8, ["put", "efs#2000"], None, ["no entry"]),
    ("no-file", 1, ["rm", "calib/last_service"], None, ["efs.img"]),
    ("too-large", 8, ["put", "afs#100", "big"], replace("big", bytes(0x40001)), [0x40001, 0x40000]),
    ("too-large", 8, ["nvar", "set", "log/ring", "big"], replace("big", bytes(65524)), [65524, 65523]),
    # Refused before anything runs: the volume of this set doesn't even mount.
    ("too-large", 8, ["nvar", "set", "net/mac", "utf8:1234567"], replace("yfs.img", b""), ["limit is 6"]),
    ("too-large", 8, SET_UPLINK, lambda folder: set_limit(folder, "/home/net/name", 3), ["/home/net/name", "7 bytes", "limit is 3"]),
    ("empty-on-efs", 8, ["nvar", "set", "calib/board_serial", "utf8:"], None, ["EFS", "one byte"]),
    ("no-volume", 8, ["rm", "calib/adc_gain"], forget_zonc, ["EFS"]),
    ("not-modifiable", 8, ["nvar", "set", "cred/ca_bundle", "utf8:x"], None, ["tail of 56", "yfs put"]),
    ("would-overwrite", 8, ["sample", "."], None, ["ftbl.bin exists"]),
    ("would-overwrite", 8, SET_UPLINK, forget_zonc, ["zonc.bin exists", '"zonc"']),
    ("save-failed", 8, ["sample", "zonc.bin/x"], None, ["zonc.bin/x"]),
    # zonc.cfg takes away a value that the deployed volume has to hold.
    ("library", 8, ["nvar", "ls"], overwrite("zonc.bin", 16 + 4 + 12 + 10, b"\x00"), ["the library reports", "346", "339"]),
]
# Tested where they need more than a changed file.
ELSEWHERE = {"binary-to-terminal", "volume-incomplete", "unknown-records", "output-failed", "check-failed", "locked", "interrupted"}


def set_limit(folder, path, limit):
    table = (folder / "ftbl.bin").read_bytes()
    overwrite("ftbl.bin", table.index(path.encode()) + 64, struct.pack("<I", limit))(folder)


class Errors(ToolTest):
    def test_refusals(self):
        for fault, status, args, change, says in REFUSALS:
            with self.subTest(fault=fault, args=args):
                folder = self.sample()
                if change: change(folder)
                before = state_of(folder)
                text = self.refused(fault, status, *args, cwd=folder, stdin=b"s" * 8000, says=says)
                self.assertNotIn("dfs_init", text)
                self.assertEqual(state_of(folder), before)

    def test_the_table_of_ids(self):
        rows = re.findall(r'\{fault::\w+, exit_status::\w+, "([\w-]+)"\}', (SOURCE / "tool/error.cpp").read_text())
        self.assertEqual(set(rows), {row[0] for row in REFUSALS} | ELSEWHERE, "each id is tested")

    def test_a_full_disk_behind_standard_output(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([YFS, "ls"], cwd=self.sample(), stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(done.returncode, 8)
        self.assertIn(b"error[output-failed]", done.stderr)

    def test_info_tells_what_it_can(self):
        folder = self.sample()
        (folder / "yfs.img").write_bytes(bytes(131072))
        done = run("info", "--json", cwd=folder)
        document = json.loads(done.stdout)
        self.assertEqual((done.returncode, document["yfs"]["error"], document["zonc"]["records"]), (4, "volume-damaged", 7))

    def test_version(self):
        self.assertRegex(self.ok("--version", cwd=self.root), rb"^yfs \d+\.\d+\.\d+\n$")


class SampleSets(ToolTest):
    """Sets that another tool made; what their values are is told beside them."""

    def open_set(self, name):
        source = SAMPLES / name
        if not source.is_dir():
            self.skipTest(f"no sample set {source}")
        folder = pathlib.Path(tempfile.mkdtemp(dir=self.root))
        shutil.copytree(source, folder, dirs_exist_ok=True)
        manifest, edit = (json.loads((source / name).read_text()) for name in ("manifest.json", "edit.json"))
        keys = dict(ftbl="ftbl.bin", velor="velor.cfg", zonc="zonc.bin", yfs="yfs.img", efs="efs.img")
        told = {key: file for key, file in keys.items() if (source / file).exists()} | {"sku": manifest["sku"]}
        (folder / "yfs.json").write_text(json.dumps(told))
        return folder, manifest, edit

    def check_values(self, folder, told):
        shown = {v["path"]: v for v in self.document("nvar", "ls", cwd=folder)["values"]}
        self.assertEqual(set(shown), {path for path, value in told.items() if value is not None})
        for path, value in shown.items():
            data = bytes.fromhex(value["value"])
            self.assertEqual((len(data), hashlib.sha256(data).hexdigest()), (told[path]["size"], told[path]["sha256"]), path)
        return shown

    def test_values_and_edits(self):
        for name in SAMPLE_SETS:
            with self.subTest(set=name):
                folder, manifest, edit = self.open_set(name)
                if (folder / "yfs.img").exists(): self.ok("check", "yfs.img", cwd=folder)
                rows = manifest["values"]
                for path, value in self.check_values(folder, {path: row["value"] for path, row in rows.items()}).items():
                    self.assertEqual((value["fileno"], value["limit"], value["attributes"]),
                                     (rows[path]["fileno"], rows[path]["max_size"], rows[path]["attributes"]), path)
                # All edits in one run; a record that the file table lacks goes with the rebuild.
                document = {"schema": "yfs.values/1", "values": {c["path"]: "hex:" + c["hex"] for c in edit["edits"]}}
                self.ok("nvar", "import", "--drop-unknown", cwd=folder, stdin=json.dumps(document).encode())
                self.check_values(folder, edit["after"])
                built = (folder / "zonc.bin").read_bytes()[16:]
                self.assertEqual(built, (SAMPLES / name / "zonc-table-after.bin").read_bytes())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
