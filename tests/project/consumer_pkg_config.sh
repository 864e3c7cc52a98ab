#!/usr/bin/env bash
# consumer_pkg_config.sh SOURCE PREFIX COMPILER...: builds SOURCE by what pkg-config says of the library under PREFIX,
# and runs it.
set -euo pipefail
source=$1 prefix=$2
shift 2

pc=$(dirname "$(find "$prefix" -name yfs.pc)")
export PKG_CONFIG_PATH=$pc
program=$prefix/$(basename "$source").run
# shellcheck disable=SC2046  # several flags
"$@" "$source" -o "$program" $(pkg-config --cflags --libs yfs)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir yfs) "$program"
