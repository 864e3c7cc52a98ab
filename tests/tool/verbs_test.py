"""Verbs about images, tables and builds: what they print, what they change, what they leave alone.

Usage: verbs_test.py YFS STOP_AT_MODULE SOURCE_TREE SAMPLES BAD_FLASH_MODULE [unittest arguments]
"""
import fcntl
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest
import xml.etree.ElementTree as xml

from tool_case import SAMPLES, SET_FILES, YFS, ToolTest, cfg_records, overwrite, run, state_of

BAD_FLASH = sys.argv[5]


class Images(ToolTest):
    def test_a_range_of_a_dump_alone_is_changed(self):
        folder = self.sample()
        dump, at, size, ranges = b"", {}, {}, {}
        for name in ("yfs.img", "efs.img", "zonc.bin"):
            dump += b"\xa5" * (8192 - len(dump) % 4096)
            at[name], size[name] = len(dump), (folder / name).stat().st_size
            ranges[name] = f"dump@{at[name]:#x}+{size[name] + (16384 if name == 'zonc.bin' else 0)}"
            dump += (folder / name).read_bytes()
        (folder / "dump").write_bytes(dump + bytes(16484))
        keys = dict(yfs=ranges["yfs.img"], efs=ranges["efs.img"], zonc=ranges["zonc.bin"])
        (folder / "yfs.json").write_text(json.dumps(json.loads((folder / "yfs.json").read_text()) | keys))
        for args in [("put", "net/uplink", "-"), ("nvar", "set", "calib/board_serial", "utf8:BD-9"),
                     ("put", "-i", ranges["yfs.img"], "afs#99", "-")]:
            before = (folder / "dump").read_bytes()
            self.ok(*args, cwd=folder, stdin=b"lte0")
            after = (folder / "dump").read_bytes()
            changed = {i for i in range(len(before)) if before[i] != after[i]}
            inside = [range(at[n], at[n] + int(ranges[n].split("+")[1])) for n in at]
            self.assertTrue(len(before) == len(after) and changed and all(any(i in r for r in inside) for i in changed), args)
        self.assertEqual(self.ok("nvar", "get", "calib/board_serial", cwd=folder), b"BD-9")
        found = {p["image"]: p for p in json.loads(self.ok("scan", "dump", "--json", cwd=folder))["partitions"]}
        self.assertEqual({(p["kind"], p["offset"], p["size"], p["clean"]) for p in found.values()},
                         {("afs", at["yfs.img"], size["yfs.img"], True), ("efs", at["efs.img"], size["efs.img"], True)})
        for image, partition in found.items():
            self.assertIn(f"{partition['kind']}: clean".encode(), self.ok("check", image, cwd=folder))

    def test_images_without_a_set(self):
        folder = self.sample()
        (folder / "yfs.json").unlink()
        image = (folder / "yfs.img").read_bytes()
        self.assertEqual(self.ok("cat", "afs#13", "-i", "-", cwd=folder, stdin=image), b"wan0")
        self.refused("unknown-path", 1, "cat", "net/uplink", "-i", "yfs.img", cwd=folder, says=["--ftbl"])
        self.refused("set-missing", 16, "nvar", "ls", cwd=folder)
        self.refused("efs-damaged", 4, "ls", "-i", "efs.img", cwd=folder, says=["--ftbl"])
        tables = ("--ftbl", "ftbl.bin", "--sku", "17")
        self.assertEqual(self.ok("cat", "calib/board_serial", "-i", "efs.img", *tables, cwd=folder), b"BD-000417")
        self.refused("usage", 16, "put", "afs#99", "ftbl.bin", "-i", "-", cwd=folder, stdin=image, says=["-o"])
        new = self.ok("put", "afs#99", "velor.cfg", "-i", "-", "-o", "-", cwd=folder, stdin=image)
        self.assertEqual(self.ok("cat", "afs#99", "-i", "-", cwd=folder, stdin=new), (folder / "velor.cfg").read_bytes())
        self.refused("usage", 16, "ls", "-i", "yfs.img@12", cwd=folder, says=["FILE@OFFSET+SIZE"])
        self.refused("file-unreadable", 8, "ls", "-i", "yfs.img@0x1000+0x20000", cwd=folder, says=["131072"])

    def test_dry_runs_backups_and_other_places(self):
        folder = self.sample()
        old, before = (folder / "yfs.img").read_bytes(), state_of(folder)
        self.ok("put", "-n", "net/uplink", cwd=folder, stdin=b"lte0")
        self.ok("put", "net/uplink", "-o", "other.img", cwd=folder, stdin=b"lte0")
        other = (folder / "other.img").read_bytes()
        (folder / "other.img").unlink()
        self.assertEqual(state_of(folder), before)
        self.ok("put", "net/uplink", "--backup", cwd=folder, stdin=b"lte0")
        self.assertEqual(((folder / "yfs.img").read_bytes(), (folder / "yfs.img.bak").read_bytes()), (other, old))
        self.refused("usage", 16, "nvar", "set", "net/uplink", "utf8:a", "-o", "one.img", cwd=folder, says=["FOLDER/"])
        self.ok("nvar", "set", "net/uplink", "utf8:a", "-o", "out/", cwd=folder)
        self.assertEqual(sorted(os.listdir(folder / "out")), ["efs.img", "yfs.img", "zonc.bin"])

    def test_another_program_at_the_same_file(self):
        folder = self.sample()
        with open(folder / "yfs.img") as image:
            fcntl.flock(image, fcntl.LOCK_EX)
            waiting = subprocess.Popen([YFS, "put", "net/uplink", "velor.cfg", "--set", "."], cwd=folder, stderr=subprocess.PIPE)
            time.sleep(0.2)
            self.assertIsNone(waiting.poll(), "it waits")
            waiting.send_signal(signal.SIGINT)
            self.assertIn(b"error[interrupted]", waiting.communicate()[1])
            self.assertEqual(waiting.returncode, 32)
            self.refused("locked", 8, "rm", "net/uplink", cwd=folder, says=["yfs.img"])
            self.assertEqual(self.ok("cat", "net/uplink", cwd=folder), b"wan0", "reading goes on")

    def test_a_change_that_harms_others_is_not_saved(self):
        folder = self.sample()
        place = self.document("stat", "boot/splash", cwd=folder)["pieces"][0]["address"]
        before = state_of(folder)
        env = os.environ | {"LD_PRELOAD": BAD_FLASH, "YFS_SPOIL": str(place), "ASAN_OPTIONS": "verify_asan_link_order=0"}
        self.refused("check-failed", 8, "put", "net/uplink", cwd=folder, stdin=b"lte0", env=env, says=["chunk-crc"])
        self.assertEqual(state_of(folder), before)


class Folders(ToolTest):
    def test_extract_and_import(self):
        folder = self.sample()
        self.ok("put", "afs#99", cwd=folder, stdin=b"nameless")
        self.ok("extract", "out", cwd=folder)
        files = {"/" + str(p.relative_to(folder / "out")): p.read_bytes() for p in (folder / "out").rglob("*") if p.is_file()}
        self.assertEqual(files, {("" if k[0] == "/" else "/") + k: v for k, v in self.contents(folder).items()})
        before = state_of(folder)
        self.ok("import", "out", cwd=folder)
        self.assertEqual(state_of(folder), before, "the same files change nothing")
        self.refused("would-overwrite", 8, "extract", "out", cwd=folder)
        (folder / "out/home/net/uplink").write_bytes(b"lte0")
        (folder / "out/afs#98").write_bytes(b"more")
        self.ok("import", "out", cwd=folder)
        self.assertEqual((self.ok("cat", "net/uplink", cwd=folder), self.ok("cat", "afs#98", cwd=folder)), (b"lte0", b"more"))
        (folder / "out/home/nobody").write_bytes(b"")
        self.refused("unknown-path", 1, "import", "out", cwd=folder, says=["/home/nobody"])

    def test_no_name_leads_out_of_the_folder(self):
        folder = self.sample()
        for name, place in [(b"../../../../up\0", "%2e%2e/%2e%2e/%2e%2e/%2e%2e/up"), (b"/home/a\x1b/%e\0\0\0\0", "home/a%1b/%25e"),
                            (b"//home//./x\0\0\0\0", "%/home/%/%2e/x")]:
            table = (folder / "ftbl.bin").read_bytes()
            (folder / "ftbl.bin").write_bytes(table.replace(b"/home/log/ring\0", name))
            self.ok("extract", "o", cwd=folder)
            self.assertTrue((folder / "o" / place).is_file(), sorted((folder / "o").rglob("*")))
            shutil.rmtree(folder / "o")
            (folder / "ftbl.bin").write_bytes(table)
        (folder / "o").mkdir()
        (folder / "o/home").symlink_to(folder)
        self.refused("would-overwrite", 8, "extract", "o", "--force", cwd=folder)
        self.assertEqual(sorted(p.name for p in folder.iterdir()), sorted([*SET_FILES, "o"]))


class Values(ToolTest):
    def test_export_import_diff(self):
        folder, other = self.sample(), self.sample()
        exported = json.loads(self.ok("nvar", "export", cwd=folder))
        exported["values"] |= {"/home/net/uplink": "utf8:lte0", "/home/net/mac": "hex:02005e100017"}
        text = json.dumps(exported).encode()
        self.ok("nvar", "import", cwd=folder, stdin=text)
        (folder / "new.json").write_bytes(text)
        self.assertEqual(run("nvar", "diff", ".", "new.json", cwd=folder).returncode, 0)
        done = run("nvar", "diff", other, folder, "--json", cwd=folder)
        self.assertEqual((done.returncode, [(d["path"], d["left"], d["right"]) for d in json.loads(done.stdout)["differences"]]),
                         (1, [("/home/net/mac", "8b22d5b59ee5", "02005e100017"), ("/home/net/uplink", b"wan0".hex(), b"lte0".hex())]))
        before = state_of(folder)
        exported["values"] |= {"/home/net/name": "utf8:n", "/home/cred/ca_bundle": "utf8:x"}
        self.refused("not-modifiable", 8, "nvar", "import", cwd=folder, stdin=json.dumps(exported).encode())
        self.assertEqual(state_of(folder), before, "all or none")

    def test_tables_by_themselves(self):
        folder = self.sample()
        tables = [folder / "velor.cfg", folder / "zonc.bin", *SAMPLES.glob("*/velor.cfg"), *SAMPLES.glob("*/zonc.bin")]
        for table in tables:
            packed = self.ok("cfg", "pack", cwd=folder, stdin=self.ok("cfg", "unpack", table, cwd=folder))
            header = 16 if table.name == "zonc.bin" else 0
            self.assertEqual(cfg_records(packed[header:]), cfg_records(table.read_bytes()[header:]), table)
            if table.parent == folder: self.assertEqual(packed, table.read_bytes())
        rows = self.document("ftbl", "ls", cwd=folder)["files"]
        self.assertEqual({row["sku"] for row in rows}, {17, 42})
        names = [f["path"] for f in self.document("ls", cwd=folder)["files"]]
        self.assertLessEqual(set(names), {row["path"] for row in rows if row["sku"] == 17})

    def test_batch_is_all_or_nothing(self):
        folder = self.sample()
        script = b"# edits\nput net/uplink new\n\nnvar set net/name 'utf8:bench 4'\nrm log/ring\nput afs#9%d new\n"
        (folder / "new").write_bytes(b"lte0")
        self.ok("batch", cwd=folder, stdin=script % 9)
        self.assertEqual([self.ok("nvar", "get", p, cwd=folder) for p in ("net/uplink", "net/name")], [b"lte0", b"bench 4"])
        self.refused("no-file", 1, "cat", "log/ring", cwd=folder)
        before = state_of(folder)
        for line, fault, status in [(b"rm log/ring", "no-file", 1), (b"ls", "usage", 16), (b"put afs#1 'x", "usage", 16),
                                    (b"rm net/mac -o x", "usage", 16), (b"put net/mac -", "usage", 16), (b"batch", "usage", 16)]:
            self.refused(fault, status, "batch", cwd=folder, stdin=b"put afs#98 new\n" + line, says=["line 2"])
            self.assertEqual(state_of(folder), before, line)


class Making(ToolTest):
    def test_mkfs_and_set_init(self):
        folder = self.sample()
        self.ok("mkfs", "afs", "n.img", "--size", "64K", "--files", "100", cwd=folder)
        self.assertEqual(self.document("map", "n.img", cwd=folder)["images"][0]["units"][0]["erase_count"], 1)
        self.ok("mkfs", "efs", "e.img", cwd=folder)
        self.assertEqual((folder / "e.img").stat().st_size, (folder / "efs.img").stat().st_size)
        self.ok("check", "n.img", "e.img", cwd=folder)
        self.refused("would-overwrite", 8, "mkfs", "efs", "e.img", cwd=folder)
        self.refused("usage", 16, "mkfs", "afs", "x", "--size", "3M", cwd=folder)
        self.refused("usage", 16, "set", "init", ".", "--sku", "17", "--force", cwd=folder, says=["e.img and efs.img"])
        for name in ("n.img", "e.img"): (folder / name).unlink()
        told = json.loads((folder / "yfs.json").read_text())
        self.refused("usage", 16, "set", "init", ".", "--force", cwd=folder, says=["17, 42"])
        self.ok("set", "init", ".", "--sku", "17", "--force", cwd=folder)
        self.assertEqual(json.loads((folder / "yfs.json").read_text()), told)

    def test_build_and_size(self):
        folder = self.sample()
        self.ok("extract", "in", cwd=folder)
        files = {"/" + str(p.relative_to(folder / "in")): str(p.relative_to(folder)) for p in (folder / "in").rglob("*") if p.is_file()}
        files |= {"afs#90": "hex:00ff"}
        keys = json.loads((folder / "yfs.json").read_text())
        plan = keys | {"afs": {"size": 98304, "files": 128}, "files": files, "values": {"net/uplink": "utf8:wan9"}}
        (folder / "yfs.json").write_text(json.dumps(plan))
        for place in ("a", "b"): self.ok("build", "-o", place, "--depfile", "deps", cwd=folder)
        self.assertEqual([(folder / "a" / n).read_bytes() for n in SET_FILES], [(folder / "b" / n).read_bytes() for n in SET_FILES])
        self.assertEqual(json.loads((folder / "a/yfs.json").read_text()), keys)
        self.assertIn("in/home/boot/splash", (folder / "deps").read_text())
        before = state_of(folder / "a")
        self.ok("build", "-o", "a", cwd=folder)
        self.assertEqual(state_of(folder / "a"), before, "the same bytes touch nothing")
        self.ok("check", cwd=folder / "a")
        want = self.values(folder) | {"/home/net/uplink": b"wan9", "/home/boot/last_slot": b"a"}  # without zonc.cfg: the default
        self.assertEqual(self.values(folder / "a"), want)
        size = self.document("size", cwd=folder)
        for bytes_of, status in [(size["afs_smallest"], 0), (size["afs_smallest"] - 8192, 8), (size["afs_to_replace_any"], 0)]:
            plan["afs"]["size"] = bytes_of
            (folder / "yfs.json").write_text(json.dumps(plan))
            self.assertEqual(run("build", "-o", "c", cwd=folder).returncode, status, bytes_of)


class Mending(ToolTest):
    def test_reclaim_and_wipe(self):
        folder = self.sample()
        secret = bytes(random.Random(1).randbytes(3014))
        for path in ("afs#90", "calib/rf_map"):
            self.ok("put", path, cwd=folder, stdin=secret[:3000])
            self.ok("rm", path, cwd=folder)
        for path in ("log/level", "calib/board_serial"):  # shorter now: the rest stands behind the end
            for contents in (secret[3000:3014], b"x"): self.ok("put", path, cwd=folder, stdin=contents)
        pieces = [*(secret[i:i + 32] for i in range(0, 2900, 100)), secret[3002:3014]]
        readable = lambda: sum(piece in (folder / n).read_bytes() for piece in pieces for n in ("yfs.img", "efs.img"))
        free = lambda: self.document("df", cwd=folder)["images"][0]["free_at_once"]
        before, files = free(), self.contents(folder)
        self.assertGreater(readable(), len(pieces))
        self.ok("reclaim", cwd=folder)
        self.assertGreater(free(), before)
        self.ok("wipe", cwd=folder)
        self.assertEqual((readable(), self.contents(folder)), (0, files))
        state = state_of(folder)
        self.ok("wipe", cwd=folder)
        self.assertEqual(state_of(folder), state, "nothing dead, nothing touched")

    def test_repair(self):
        folder = self.sample()
        self.assertEqual(run("repair", cwd=folder).returncode, 0)
        files = self.contents(folder)
        # A cut leaves what a mount mends; a header destroyed, what only a new image does.
        self.ok("cut", "--after", "5", "--bytes", "1", "-o", "cut.img", "put", "afs#90", "velor.cfg", cwd=folder)
        shutil.copy(folder / "cut.img", folder / "yfs.img")
        self.assertIn(run("repair", cwd=folder).returncode, (0, 1))
        self.assertEqual((run("check", cwd=folder).returncode, self.contents(folder)), (0, files))
        for path in ("boot/splash", "calib/rf_map"):
            piece = self.document("stat", path, cwd=folder)["pieces"][0]
            overwrite("efs.img" if "block" in piece else "yfs.img", piece["address"] + 40, b"\x5a\xa5")(folder)
        before = state_of(folder)
        done = run("repair", cwd=folder)
        self.assertEqual((done.returncode, state_of(folder)), (4, before))
        for image in json.loads(run("check", "--json", cwd=folder).stdout)["images"]:
            self.assertTrue(image["faults"], image)
            for finding in image["findings"]: self.assertIn(finding["meaning"].encode(), self.ok("explain", finding["id"], cwd=folder))
        self.assertIn(b"lost: afs#5 /home/boot/splash", done.stderr)
        self.assertEqual([run(*verb.split(), cwd=folder).returncode for verb in ("repair --lossy", "check")], [1, 0])
        self.assertEqual(self.contents(folder), {k: v for k, v in files.items() if k not in ("/home/boot/splash", "/home/calib/rf_map")})

    def test_a_repair_without_a_loss_loses_nothing(self):
        folder = self.sample()
        good, files = (folder / "yfs.img").read_bytes(), self.contents(folder)
        log = [eu for eu in range(16) if good[eu * 8192 + 14:eu * 8192 + 16] == b"\0\0"]
        ends = []
        for at in [eu * 8192 + at for eu in log for at in range(18, 200, 9)] + [eu * 8192 for eu in range(16)] + [log[0] * 8192 + 300]:
            shutil.copy(folder / "yfs.img", folder / "old.img")
            overwrite("yfs.img", at, bytes([good[at] ^ 0x24]))(folder)
            ends.append(run("repair", cwd=folder).returncode)
            if ends[-1] != 4: self.assertEqual(self.contents(folder), files, f"byte {at:#x}")
            self.assertIn(ends[-1], (0, 1, 4))
            (folder / "yfs.img").write_bytes(good)
        self.assertGreater(ends.count(4), 20)

    def test_files_of_an_image_that_does_not_mount(self):
        folder = self.sample()
        files, eu = self.contents(folder), self.document("stat", "boot/splash", cwd=folder)["pieces"][0]["address"] // 8192
        overwrite("yfs.img", eu * 8192, b"\0\0\0\0")(folder)
        done = run("extract", "out", cwd=folder)
        self.assertEqual(done.returncode, 4)
        saved = [path for path in files if (folder / "out" / path[1:]).exists()]
        self.assertGreater(len(saved), 12)
        for path in saved: self.assertEqual((folder / "out" / path[1:]).read_bytes(), files[path])
        self.assertIn(b"lost: afs#5 /home/boot/splash", done.stderr)


class Trying(ToolTest):
    def test_trace_cut_and_torture(self):
        folder = self.sample()
        before = state_of(folder)
        for edit in [("put", "net/uplink", "new"), ("put", "calib/temp_curve", "new"), ("rm", "log/ring"), ("nvar", "set", "net/name", "utf8:b")]:
            with self.subTest(edit=edit):
                (folder / "new").write_bytes(b"n" * (30 if "net/uplink" in edit else 300))
                traced = json.loads(self.ok("trace", "--json", *edit, cwd=folder))
                operations = traced["operations"]
                self.assertEqual(traced["bytes_programmed"], sum(o["length"] for o in operations if o["operation"] == "program"))
                self.ok("cut", "--after", len(operations), "-o", "cut/", *edit, cwd=folder)
                self.ok(*edit, "-o", "whole/", cwd=folder)
                for image in {o["image"] for o in operations}:
                    name = {"afs": "yfs.img", "efs": "efs.img"}[image]
                    self.assertEqual((folder / "cut" / name).read_bytes(), (folder / "whole" / name).read_bytes())
                tortured = json.loads(self.ok("torture", "--json", *edit, cwd=folder))
                self.assertEqual(tortured["lost"], [])
                self.assertGreater(tortured["cuts"], len(operations))
        self.refused("usage", 16, "cut", "--after", "9999", "-o", "x", "rm", "log/ring", cwd=folder, says=["operations"])
        (folder / "new").unlink()
        self.assertEqual(state_of(folder), before, "nothing was saved")


class Looking(ToolTest):
    def test_map(self):
        folder = self.sample()
        rows = self.ok("map", "yfs.img", cwd=folder).decode().splitlines()
        units = [row for row in rows if re.match(r" *\d+ (log|data|spare) ", row)]
        self.assertEqual(list(map(len, units)), [80] * 16)
        live = sum(f["size"] + 63 >> 6 for f in self.document("ls", cwd=folder)["files"] if f["place"].startswith("afs"))
        document = self.document("map", cwd=folder)["images"][0]
        self.assertEqual(sum(u["slots"].count("l") for u in document["units"] if u["kind"] == "data"), live)
        ascii_rows = self.ok("map", "--ascii", "--file", "log/ring", "yfs.img", cwd=folder)
        self.assertTrue(ascii_rows.isascii() and ascii_rows.count(b"@") > 90 and b"/home/boot/splash" in self.ok("map", "--eu", "5", cwd=folder))
        for name in ("m.svg", "m.html"):
            self.ok("map", "-o", name, cwd=folder)
            text = (folder / name).read_text()
            self.assertNotRegex(text, r"<script|href=|url\(")
            titles = xml.fromstring(re.search(r"<svg.*</svg>", text, re.S).group()).iter("{http://www.w3.org/2000/svg}title")
            self.assertTrue(any("/home/boot/splash" in t.text for t in titles))

    def test_diff(self):
        folder, other = self.sample(), self.sample()
        self.assertEqual(run("diff", folder, other, cwd=folder).returncode, 0)
        self.ok("put", "net/uplink", cwd=other, stdin=b"lte0")
        self.ok("rm", "calib/rf_map", cwd=other)
        done = run("diff", "--json", folder, other, cwd=folder)
        images = json.loads(done.stdout)["images"]
        self.assertEqual((done.returncode, [f["path"] for i in images for f in i["files"]]), (1, ["/home/net/uplink", "/home/calib/rf_map"]))
        self.assertTrue(all(i["parts"] for i in images))
        self.ok("wipe", cwd=folder)
        untouched = self.sample()
        self.assertEqual([run("diff", *flag, folder, untouched, cwd=folder).returncode for flag in ([], ["--contents"])], [1, 0])
        self.assertEqual(run("diff", folder, other, "-o", "d.html", cwd=folder).returncode, 1)
        self.assertIn('class="lit"', (folder / "d.html").read_text())

    def test_dumps_show_every_byte_as_it_is(self):
        folder = self.sample()
        for args, name in [(("eu", "2"), "yfs.img"), (("eu", "5"), "yfs.img"), (("bm", "0"), "efs.img"), (("block", "1"), "efs.img"),
                           (("cfg",), "zonc.bin"), (("cfg", "velor.cfg"), "velor.cfg"), (("ftbl",), "ftbl.bin")]:
            contents, fields = (folder / name).read_bytes(), self.document("dump", *args, cwd=folder)["fields"]
            for field in fields: self.assertTrue(contents[field["address"]:].startswith(bytes.fromhex(field["hex"])), (args, field))
            self.assertTrue(4 < len(fields) <= len(self.ok("dump", *args, cwd=folder).splitlines()), args)

    SCHEMAS = {"info": "set sku ftbl velor zonc yfs efs", "ls": "files", "stat net/mac": "path place size pieces", "df": "images",
               "map": "images", "check": "images", "dump eu 0": "path fields", "nvar ls": "values", "nvar get net/mac": "path size value",
               "nvar export": "sku values", "nvar diff . .": "differences", "diff . .": "same images", "cfg ls": "tables",
               "ftbl ls": "files", "size": "files afs_smallest efs", "scan yfs.img": "path partitions",
               "trace rm net/mac": "edit programs operations", "torture rm net/mac": "edit cuts lost"}

    def test_json_documents(self):
        folder = self.sample()
        for verb, keys in self.SCHEMAS.items():
            document = json.loads(self.ok(*verb.split(), *([] if verb == "nvar export" else ["--json"]), cwd=folder))
            self.assertRegex(document["schema"], r"^yfs\.[a-z-]+/1$")
            self.assertLessEqual(set(keys.split()), set(document), verb)

    def test_damaged_images_get_an_answer(self):
        rng = random.Random(7)
        verbs = ["info", "ls -l", "check", "map", "df", "dump eu 3", "dump bm 0", "dump block 1", "dump cfg", "dump ftbl", "scan yfs.img",
                 "cat --force boot/splash", "stat calib/rf_map", "extract --force out", "nvar ls", "nvar set net/uplink utf8:x -n",
                 "put -n net/uplink velor.cfg", "rm -n calib/rf_map", "reclaim -n", "wipe -n", "repair -n", "repair -n --lossy", "size",
                 "torture rm net/uplink", "diff yfs.img efs.img", "cfg ls", "ftbl ls", "build -o built", "set init ."]
        folder = self.sample()
        for round_number in range(24):
            shutil.copytree(self.root / "pristine", folder, dirs_exist_ok=True)
            for name in rng.sample(SET_FILES[:5], 2):
                data = bytearray((folder / name).read_bytes())
                for _ in range(rng.choice((1, 8, 200))):
                    at = rng.randrange(rng.choice((len(data), 64)))
                    data[at:at + 4] = rng.choice((rng.randbytes(4), b"\0\0\0\0", b"\xff\xff\xff\xff"))
                (folder / name).write_bytes(data[:rng.randrange(len(data))] if round_number % 6 == 0 else data)
            for verb in rng.sample(verbs, 10):
                done = run(*verb.split(), cwd=folder, timeout=60)
                with self.subTest(round=round_number, verb=verb):
                    self.assertIn(done.returncode, (0, 1, 4, 8, 16), done.stderr)
                    self.assertNotIn(b"Sanitizer", done.stderr)
                    if done.returncode in (8, 16): self.assertIn(b"yfs: error[", done.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[6:]])
