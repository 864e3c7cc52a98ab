"""What tests of the yfs command share: fresh copies of the sample set, real processes, and what they have to answer."""
import json
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

YFS, STOP_AT, SOURCE, SAMPLES = (pathlib.Path(arg).absolute() for arg in sys.argv[1:5])
SET_FILES = ["ftbl.bin", "velor.cfg", "zonc.bin", "yfs.img", "efs.img", "yfs.json"]


def run(*args, cwd, stdin=b"", **kwargs):
    return subprocess.run([YFS, *map(str, args)], cwd=cwd, input=stdin, capture_output=True, **kwargs)


def cfg_records(table):
    """{fileno: (flags, payload)} of a cfg table."""
    count = struct.unpack_from("<I", table)[0]
    records = (struct.unpack_from("<IIHH", table, 4 + 12 * i) for i in range(count))
    return {fileno: (flags, table[offset:offset + size]) for fileno, offset, size, flags in records}


def state_of(folder):
    """What a file is, beyond its bytes: a save would give it another inode."""
    return {path.name: (path.stat().st_ino, path.stat().st_mtime_ns, path.read_bytes())
            for path in sorted(folder.iterdir()) if path.is_file()}


class ToolTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory(prefix="yfs-tool-")
        cls.root = pathlib.Path(cls.scratch.name)
        made = run("sample", "pristine", cwd=cls.root)
        assert made.returncode == 0, made.stderr

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    def sample(self, **changes):
        """A folder with a fresh copy of the sample; keys of its set file changed, or dropped if None."""
        folder = pathlib.Path(tempfile.mkdtemp(dir=self.root))
        shutil.copytree(self.root / "pristine", folder, dirs_exist_ok=True)
        if changes:
            keys = json.loads((folder / "yfs.json").read_text()) | changes
            (folder / "yfs.json").write_text(json.dumps({k: v for k, v in keys.items() if v is not None}))
        return folder

    def ok(self, *args, cwd, stdin=b"", **kwargs):
        done = run(*args, cwd=cwd, stdin=stdin, **kwargs)
        self.assertEqual(done.returncode, 0, (args, done.stderr))
        return done.stdout

    def refused(self, fault, status, *args, cwd, stdin=b"", says=(), **kwargs):
        done = run(*args, cwd=cwd, stdin=stdin, **kwargs)
        text = done.stderr.decode()
        self.assertEqual((done.returncode, done.stdout), (status, b""), (args, text))
        self.assertIn(f"yfs: error[{fault}]: ", text)
        for part in says:
            self.assertIn(str(part), text)
        return text

    def document(self, *args, cwd):
        return json.loads(self.ok(*args, "--json", cwd=cwd))

    def values(self, folder):
        return {v["path"]: bytes.fromhex(v["value"]) for v in self.document("nvar", "ls", cwd=folder)["values"]}

    def contents(self, folder):
        return {f["path"]: self.ok("cat", f["path"], cwd=folder) for f in self.document("ls", cwd=folder)["files"]}


def overwrite(name, offset, data):
    def change(folder):
        contents = bytearray((folder / name).read_bytes())
        contents[offset:offset + len(data)] = data
        (folder / name).write_bytes(contents)
    return change


def replace(name, contents):
    return lambda folder: (folder / name).write_bytes(contents)
