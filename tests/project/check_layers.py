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
LIBRARY = ["frame", "ftl", "afs", "efs", "vfs", "cfgtable", "facade"]
OUTSIDE = ["inspect", "tool"]

PUBLIC = {
    "export.h": "frame", "le.h": "frame", "medium.h": "frame", "status.h": "frame", "ftl.h": "ftl", "afs.h": "afs",
    "make_volume.h": "afs", "efs.h": "efs", "make_efs.h": "efs", "dfs.h": "dispatch", "vfs.h": "vfs", "cfgtable.h": "cfgtable",
    "errors.h": "facade", "facade.h": "facade",
}
UMBRELLA = "yfs.h"

# The record of a mounted volume is handed down to the translation layer, which reads its geometry. Only the record:
# that no call goes with it is what the symbols prove.
RECORDS_ONLY = {("ftl", "yfs/afs.h")}

# What describes bytes and nothing else. inspect/ is a second reader, so it may share these, the checksums and the
# geometry that the file table gives, and no other code.
LAYOUTS = {"ftl/eu_layout.h", "afs/volume_layout.h", "efs/layout.h", "cfgtable/layout.h", "vfs/ftbl_layout.h"}
SHARED_NAMES = {"crc8", "crc14", "crc16", "EFS_crc16", "EFS_crc32", "EFS_files"} | {
    "g_efs_" + name for name in ("bm_num", "valid_block_num", "non_valid_block_num", "files_num", "layout_id",
                                 "wear_leveling_threshold")}

STANDARD = set("""
    algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits
    clocale cmath codecvt compare complex concepts condition_variable coroutine csetjmp csignal cstdarg cstddef cstdint
    cstdio cstdlib cstring ctime cuchar cwchar cwctype deque exception execution filesystem format forward_list fstream
    functional future initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory
    memory_resource mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator
    semaphore set shared_mutex source_location span sstream stack stdexcept stop_token streambuf string string_view
    syncstream system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray
    variant vector version stdbool.h stddef.h stdint.h""".split())

# The compiler's own headers, and the one file for each that needs it.
INSTRUCTIONS = {("frame/crc_lanes.cpp", "immintrin.h")}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')


def layer_of(path):
    """The layer of a file named from the root: its folder, but for dispatch and the public headers."""
    parts = path.split("/")
    if parts[0] == "include":
        return PUBLIC.get(parts[-1])
    if path.startswith("frame/dispatch"):
        return "dispatch"
    return parts[0]


def quoted_error(path, target, root):
    """Why the file `path` must not include "target"; None if it may."""
    here = layer_of(path)
    folder = target.split("/")[0]
    if folder == "yfs":
        there = PUBLIC.get(target.split("/")[-1])
        if there is None:
            if target == "yfs/" + UMBRELLA and here in OUTSIDE:
                return None
            return "a public header without a layer"
        known = root / "include" / target
    elif folder in LIBRARY + OUTSIDE:
        there = layer_of(target)
        known = root / target
    else:
        return "not a folder of the library"
    if not known.is_file():
        return "no such header"
    if here == there or (here, target) in RECORDS_ONLY:
        return None

    if here == "inspect":
        return None if folder == "yfs" or target in LAYOUTS else "inspect/ shares layouts and public headers only"
    if here == "tool":
        return None if folder in ("yfs", "inspect") or target in LAYOUTS else "the tool stands on public headers"
    if there in OUTSIDE or RANK[there] >= RANK[here]:
        return f"{here} must not look up to {there}"
    return None


def include_error(path, line, root):
    match = INCLUDE.match(line)
    if match is None:
        return None
    quoted, angled = match.groups()
    if quoted is not None:
        return quoted_error(path, quoted, root)
    if layer_of(path) not in RANK or angled in STANDARD or (path, angled) in INSTRUCTIONS:
        return None
    return f"<{angled}> is not of the standard library"


def sources(root):
    for folder in LIBRARY + OUTSIDE + ["include/yfs"]:
        for path in sorted((root / folder).glob("**/*")):
            if path.suffix in (".cpp", ".h"):
                yield path


def check_includes(root):
    found, lines = [], 0
    for path in sources(root):
        name = path.relative_to(root).as_posix()
        if name == "include/yfs/" + UMBRELLA:
            present = {p.name for p in path.parent.glob("*.h")} - {UMBRELLA}
            included = set(re.findall(r'"yfs/(\w+\.h)"', path.read_text()))
            found += [f"{name}: leaves out {missing}" for missing in sorted(present - included)]
            continue
        if layer_of(name) is None:
            found.append(f"{name}: a public header without a layer")
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            lines += INCLUDE.match(line) is not None
            error = include_error(name, line, root)
            if error is not None:
                found.append(f"{name}:{number}: {line.strip()}: {error}")
    return found, lines


def read_objects(listing):
    """The objects of the listing as pairs of layer and (names that it defines, names that it wants)."""
    pairs = [line.split(" ", 1) for line in pathlib.Path(listing).read_text().splitlines() if line]
    names = {path: (set(), set()) for _, path in pairs}
    table = subprocess.run(["nm", "-A", *names], check=True, capture_output=True, text=True).stdout
    for line in table.splitlines():
        path, rest = line.split(":", 1)
        *_, kind, name = rest.split()
        if kind in "TDRBG":  # weak ones are inline functions, and every folder has its own copy
            names[path][0].add(name)
        elif kind == "U":
            names[path][1].add(name)
    return [("dispatch" if "/dispatch." in path else layer, names[path]) for layer, path in pairs]


def check_calls(objects):
    """`objects`: pairs of layer and (defined, wanted). Who asks for a name that a layer above, or beside, defines?"""
    home = {name: layer for layer, (defined, _) in objects for name in defined}
    found, calls = [], 0
    for layer, (_, wanted) in objects:
        for name in sorted(wanted):
            there = home.get(name, layer)
            if there == layer:
                continue
            calls += 1
            if layer == "inspect":
                bad = name not in SHARED_NAMES
            else:
                bad = there in OUTSIDE or RANK[there] >= RANK[layer]
            if bad:
                found.append(f"{layer} calls up to {there}: {name}")
    return found, calls


def self_test():
    planted = {
        "ftl/a.cpp": ['#include "afs/volume_layout.h"', "looks up from the translation layer"],
        "afs/a.cpp": ['#include "yfs/efs.h"', "looks aside at the other file system"],
        "afs/b.cpp": ['  #  include "yfs/dfs.h"', "looks up to dispatch"],
        "frame/a.cpp": ['#include "yfs/ftl.h"', "looks up from the medium"],
        "efs/a.cpp": ['#include "vfs/ftbl_layout.h"', "reads a format of a layer above"],
        "tool/a.cpp": ['#include "ftl/ftl_internal.h"', "reads what a folder keeps to the layers above it"],
        "facade/a.cpp": ["#include <fmt/format.h>", "takes a third party's header into the library"],
        "vfs/a.cpp": ['#include "tool/tool.h"', "looks up to the tool"],
        "inspect/a.cpp": ['#include "ftl/flash_io.h"', "shares code with the path that it checks"],
        "cfgtable/a.cpp": ['#include "frame/gone.h"', "names a header that isn't there"],
        "include/yfs/medium.h": ['#include "yfs/afs.h"', "looks up from a public header"],
        "include/yfs/stray.h": ["", "belongs to no layer"],
        "include/yfs/yfs.h": ['#include "yfs/afs.h"', "leaves headers out"],
    }
    sound = {
        "afs/c.cpp": '#include "ftl/ftl_internal.h"\n',
        "ftl/b.cpp": '#include "ftl/ftl_internal.h"\n#include "yfs/afs.h"\n#include <array>\n',
        "frame/dispatch.cpp": '#include "yfs/dfs.h"\n#include "yfs/efs.h"\n',
        "inspect/b.cpp": '#include "afs/volume_layout.h"\n#include "yfs/medium.h"\n',
    }
    bare = ["ftl/ftl_internal.h", "ftl/flash_io.h", "afs/volume_layout.h", "vfs/ftbl_layout.h", "tool/tool.h",
            "include/yfs/afs.h", "include/yfs/efs.h", "include/yfs/dfs.h", "include/yfs/ftl.h"]
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        texts = dict.fromkeys(bare, "") | sound | {path: line + "\n" for path, (line, _) in planted.items()}
        for path, text in texts.items():
            (root / path).parent.mkdir(parents=True, exist_ok=True)
            (root / path).write_text(text)
        found, _ = check_includes(root)
    blamed = {line.split(":")[0] for line in found}
    wrong = [f"not found: {path} {planted[path][1]}" for path in planted.keys() - blamed]
    wrong += [f"found without cause: {path}" for path in sorted(blamed - planted.keys())]

    low, high, reader = ({"crc16", "write"}, {"above"}), ({"above_too"}, {"write"}), (set(), {"crc16", "write"})
    calls, _ = check_calls([("ftl", low), ("afs", ({"above"}, {"crc16"})), ("efs", high), ("inspect", reader)])
    if calls != ["ftl calls up to afs: above", "inspect calls up to ftl: write"]:
        wrong.append(f"the calls were judged so: {calls}")
    return wrong, len(planted) + 2


def main(arguments):
    if arguments == ["--self-test"]:
        found, looked_at = self_test()
        what = "planted violations"
    elif arguments[:1] == ["--objects"]:
        found, looked_at = check_calls(read_objects(arguments[1]))
        what = "names that one layer takes from another"
    else:
        found, looked_at = check_includes(pathlib.Path(arguments[0]))
        what = "include lines"
    print("\n".join(found + [f"{looked_at} {what}, {len(found)} wrong"]))
    return 1 if found or looked_at == 0 else 0


sys.exit(main(sys.argv[1:]))
