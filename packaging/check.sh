#!/usr/bin/env bash
# check.sh BUILD [--update]: the packages in BUILD/packages as a user meets them: lintian has no error, the program, the manual and
# the completions work in a clean tree into which all three are unpacked, a C program and a CMake project build against
# that tree, and the library's binary interface is what libyfs.abi says (--update stores it).
set -euo pipefail
build=$(realpath "$1")
source=$(realpath "$(dirname "$0")/..")
tree=$build/tree
say() { printf '\n== %s\n' "$*"; }

say "lintian"
lintian --fail-on error "$build"/packages/*.deb 2>/dev/null

say "a clean tree of the three packages"
rm -rf "$tree"
for package in "$build"/packages/*.deb; do
    dpkg-deb --extract "$package" "$tree"
done
lib=$(dirname "$(find "$tree" -name libyfs.so.1)")
test -L "$lib/libyfs.so"
export LD_LIBRARY_PATH=$lib PATH=$tree/usr/bin:$PATH
cd "$build"
rm -rf sample
yfs sample sample
yfs --set sample/yfs.json check
ldd "$tree/usr/bin/yfs" | grep -F "$lib/libyfs.so.1"
for page in man1/yfs.1 man5/yfs-format.5; do
    gzip -t "$tree/usr/share/man/$page.gz"
done
bash -n "$tree/usr/share/bash-completion/completions/yfs"
test -s "$tree/usr/share/zsh/vendor-completions/_yfs"
test -s "$tree/usr/share/fish/vendor_completions.d/yfs.fish"

say "programs built against it"
"$source/tests/project/consumer_pkg_config.sh" "$source/tests/project/consumer/use.c" "$tree/usr" "${CC:-cc}" -std=c11
cmake -S "$source/tests/project/consumer" -B consumer -G Ninja -DLANGUAGE=CXX -DCMAKE_PREFIX_PATH="$tree/usr" >/dev/null
cmake --build consumer
./consumer/use

say "the binary interface"
baseline=$source/packaging/libyfs.abi
if [ "${2:-}" = --update ]; then
    abidw --exported-interfaces-only --headers-dir "$source/include/yfs" --drop-private-types --no-corpus-path --no-show-locs --no-comp-dir-path "$build/libyfs.so.1" >"$baseline"
fi
differences() { abidiff --exported-interfaces-only "$1" "$build/libyfs.so.1"; }
differences "$baseline"
# A check that can't fail is none: against a baseline with one function more, or one with a shorter record, it has to.
sed "s/<elf-function-symbols>/&<elf-symbol name='yfs_gone' type='func-type' binding='global-binding' visibility='default-visibility' is-defined='yes'\/>/" \
    "$baseline" >with_more.abi
sed "/class-decl name='_cfg_file_entry_t'/s/size-in-bits='96'/size-in-bits='64'/" "$baseline" >shorter.abi
for wrong in with_more shorter; do
    if cmp -s "$wrong.abi" "$baseline" || differences "$wrong.abi" >/dev/null; then
        echo "the comparison overlooks $wrong.abi" >&2
        exit 1
    fi
done
echo "the library's binary interface is the stored one"
