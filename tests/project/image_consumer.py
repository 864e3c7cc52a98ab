"""yfs_add_image() of the installed package: made once, made again when an input changes, and not otherwise.

Usage: image_consumer.py PREFIX CONSUMER
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import time

prefix, consumer = (pathlib.Path(arg).absolute() for arg in sys.argv[1:3])
yfs = prefix / "bin/yfs"


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


for generator in ("Ninja", "Unix Makefiles"):
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place)
        run(yfs, "sample", folder / "set")
        (folder / "set/up link.txt").write_text("wan1")
        keys = {"sku": 17, "ftbl": "ftbl.bin", "velor": "velor.cfg", "zonc": "zonc.bin", "yfs": "yfs.img", "values": {},
                "afs": {"size": 65536, "files": 128}, "files": {"/home/net/uplink": "up link.txt"}}
        (folder / "set/build.json").write_text(json.dumps(keys))
        run("cmake", "-G", generator, "-S", consumer, "-B", folder / "build", f"-DSET={folder}/set/build.json", f"-DCMAKE_PREFIX_PATH={prefix}")
        made = []
        for change in (None, None, "wan2"):
            time.sleep(1.1 if generator != "Ninja" else 0.1)
            if change: (folder / "set/up link.txt").write_text(change)
            said = run("cmake", "--build", folder / "build")
            content = run(yfs, "cat", "net/uplink", "-i", folder / "build/out/yfs.img", "--ftbl", folder / "set/ftbl.bin", "--sku", "17")
            made.append(("Building the images" in said, content))
        assert made == [(True, "wan1"), (False, "wan1"), (True, "wan2")], (generator, made)
print("made twice, by two build tools")
