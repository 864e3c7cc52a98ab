#!/usr/bin/env python3
"""Calls go downward only. Proved twice: from the #include lines of the sources, and from the symbols of the objects.

    check_layers.py ROOT               reads every source and header of the library, of inspect/ and of tool/
    check_layers.py --objects LIST     reads nm of the objects named in LIST, lines of "layer path"
    check_layers.py --self-test        plants one violation of each rule and wants each found
"""
import pathlib
import re
import subprocess
import sys
import tempfile

# frame/ counts as two layers: dispatch.cpp stands above afs/ and efs/, the rest below ftl/.
RANK = {"frame": 0, "ftl": 1, "afs": 2, "efs": 2, "dispatch": 3, "vfs": 4, "cfgtable": 5, "facade": 6}
OUTSIDE = ["inspect", "tool"]
PUBLIC = {"export.h": "frame", "le.h": "frame", "medium.h": "frame", "status.h": "frame", "ftl.h": "ftl", "afs.h": "afs",
          "make_volume.h": "afs", "efs.h": "efs", "make_efs.h": "efs", "dfs.h": "dispatch", "vfs.h": "vfs",
          "cfgtable.h": "cfgtable", "errors.h": "facade", "facade.h": "facade"}
UMBRELLA = "yfs.h"
# The record of a mounted volume is handed down to the translation layer, which reads its geometry. Only the record:
# that no call goes with it is what the symbols prove.
RECORDS_ONLY = {("ftl", "yfs/afs.h")}
# What describes bytes and nothing else. inspect/ is a second reader, so it may share these, the checksums and the
# geometry that the file table gives, and no other code.
INSTRUCTIONS = {("frame/crc_lanes.cpp", "immintrin.h")}  # the processor's own, and the one file that needs it
LAYOUTS = {"ftl/eu_layout.h", "afs/volume_layout.h", "efs/layout.h", "cfgtable/layout.h", "vfs/ftbl_layout.h"}
SHARED_NAMES = re.compile(r"crc(8|14|16)|EFS_(crc16|crc32|files)|"
                          r"g_efs_((non_)?valid_block_num|bm_num|files_num|layout_id|wear_leveling_threshold)")


def layer_of(path):
    """The layer of a file named from the root: its folder, but for dispatch and the public headers."""
    folder, *_, name = path.split("/")
    if folder == "include": return PUBLIC.get(name)
    return "dispatch" if path.startswith("frame/dispatch") else folder


def may_include(path, line, root):
    match = re.match(r'\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)', line)
    if match is None: return True
    here, (quoted, angled) = layer_of(path), match.groups()
    if angled: return here in OUTSIDE or (path, angled) in INSTRUCTIONS or re.fullmatch(r"[a-z_]+|std(bool|def|int)\.h", angled)
    place = "include/" + quoted if quoted.startswith("yfs/") else quoted
    there = layer_of(place)
    if "/" not in quoted or not (root / place).is_file(): return False
    if here == there or (here, quoted) in RECORDS_ONLY: return True
    if here in OUTSIDE: return place != quoted or quoted in LAYOUTS or (here, there) == ("tool", "inspect")
    return RANK.get(there, 9) < RANK[here]


def check_includes(root):
    found, lines = [], 0
    for path in sorted(p for folder in [*RANK, *OUTSIDE, "include/yfs"] for p in (root / folder).glob("**/*.*")):
        name, text = path.relative_to(root).as_posix(), path.read_text() if path.suffix in (".cpp", ".h") else ""
        if name == "include/yfs/" + UMBRELLA:
            left_out = {p.name for p in path.parent.glob("*.h")} - {UMBRELLA} - set(re.findall(r'"yfs/(\w+\.h)"', text))
            found += [f"{name}: leaves out {header}" for header in sorted(left_out)]
        elif layer_of(name) is None:
            found.append(f"{name}: a public header without a layer")
        else:
            lines += text.count("#include")
            found += [f"{name}: {line.strip()}" for line in text.splitlines() if not may_include(name, line, root)]
    return found, lines


def read_objects(listing):
    """The objects of the listing as pairs of layer and (names that it defines, names that it wants)."""
    pairs = [line.split(" ", 1) for line in pathlib.Path(listing).read_text().splitlines() if line]
    names = {path: (set(), set()) for _, path in pairs}
    table = subprocess.run(["nm", "-A", *names], check=True, capture_output=True, text=True).stdout
    for path, kind, name in re.findall(r"^(.+?):.* ([TDRBGU]) (\S+)$", table, re.M):
        names[path][kind == "U"].add(name)  # weak ones are inline functions, and every folder has its own copy
    return [("dispatch" if "/dispatch." in path else layer, names[path]) for layer, path in pairs]


def check_calls(objects):
    """Who asks for a name that a layer above, or beside, defines?"""
    home = {name: layer for layer, (defined, _) in objects for name in defined}
    calls = [(layer, home[name], name) for layer, (_, wanted) in objects for name in sorted(wanted) if home.get(name, layer) != layer]
    bad = lambda layer, there, name: (not SHARED_NAMES.fullmatch(name) if layer == "inspect" else RANK.get(there, 9) >= RANK[layer])
    return [f"{call[0]} calls up to {call[1]}: {call[2]}" for call in calls if bad(*call)], len(calls)


def self_test():
    planted = {"ftl/a.cpp": '"afs/volume_layout.h"', "afs/a.cpp": '"yfs/efs.h"', "afs/b.cpp": '"yfs/dfs.h"', "frame/a.cpp": '"yfs/ftl.h"',
               "efs/a.cpp": '"vfs/ftbl_layout.h"', "tool/a.cpp": '"ftl/ftl_internal.h"', "facade/a.cpp": "<fmt/format.h>",
               "vfs/a.cpp": '"tool/tool.h"', "inspect/a.cpp": '"ftl/flash_io.h"', "cfgtable/a.cpp": '"frame/gone.h"',
               "include/yfs/medium.h": '"yfs/afs.h"', "include/yfs/stray.h": "<array>", "include/yfs/yfs.h": '"yfs/afs.h"'}
    sound = {"afs/c.cpp": '"ftl/ftl_internal.h"', "ftl/b.cpp": '"yfs/afs.h"', "frame/dispatch.cpp": '"yfs/efs.h"',
             "inspect/b.cpp": '"afs/volume_layout.h"', "inspect/c.cpp": '"yfs/medium.h"', "tool/b.cpp": "<fmt/format.h>"}
    bare = ["ftl/ftl_internal.h", "ftl/flash_io.h", "afs/volume_layout.h", "vfs/ftbl_layout.h", "tool/tool.h",
            *(f"include/yfs/{name}.h" for name in ("afs", "efs", "dfs", "ftl"))]
    with tempfile.TemporaryDirectory() as folder:
        for path, target in (dict.fromkeys(bare, "<array>") | sound | planted).items():
            (pathlib.Path(folder) / path).parent.mkdir(parents=True, exist_ok=True)
            (pathlib.Path(folder) / path).write_text(f"  #  include {target}\n")
        blamed = {line.split(":")[0] for line in check_includes(pathlib.Path(folder))[0]}
    wrong = [f"not found: {path}" for path in planted.keys() - blamed] + [f"found without cause: {path}" for path in blamed - planted.keys()]
    low, high, reader = ({"crc16", "write"}, {"above"}), ({"above_too"}, {"write"}), (set(), {"crc16", "write"})
    calls, _ = check_calls([("ftl", low), ("afs", ({"above"}, {"crc16"})), ("efs", high), ("inspect", reader)])
    return wrong + ([] if calls == ["ftl calls up to afs: above", "inspect calls up to ftl: write"] else calls), len(planted) + 2


def main(option, *listing):
    found, looked_at = (self_test() if option == "--self-test" else check_calls(read_objects(*listing)) if option == "--objects"
                        else check_includes(pathlib.Path(option)))
    print("\n".join(found + [f"{looked_at} looked at, {len(found)} wrong"]))
    return 1 if found or looked_at == 0 else 0


sys.exit(main(*sys.argv[1:]))
