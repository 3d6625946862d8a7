#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: lean_programs_test.sh LIBDIR COMPILER EXAMPLES DIRECTORY
# Builds a child and its parent as products for small machines do: for size, as a whole, without type
# information and exceptions of their own. Classes of theirs derive from classes of the library that
# has both, and what the linker leaves out must not be what the library calls. Runs on a bus that is
# there already.
set -eu
libdir=$1
compiler=$2
examples=$3
directory=$4

PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
rm -rf "$directory"
mkdir -p "$directory"
for program in hello_child hello_parent; do
    # shellcheck disable=SC2046
    "$compiler" -std=c++17 -Wall -Wextra -Werror -Os -flto -fno-rtti -fno-exceptions \
        -ffunction-sections -fdata-sections -Wl,--gc-sections -o "$directory/$program" \
        "$examples/$program.cpp" $(pkg-config --cflags --libs vask) -Wl,-rpath,"$libdir"
done
reply=$("$directory/hello_parent" "$directory/hello_child")
[ "$reply" = "Hello, world!" ] || {
    echo "the parent hears: $reply"
    exit 1
}
