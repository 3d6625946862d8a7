#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: examples_test.sh cmake|pkg_config LIBDIR CMAKE GENERATOR COMPILER EXAMPLES DIRECTORY
# Builds a copy of the examples against the library installed in LIBDIR and runs the shortest one and
# the tests.
set -eu
way=$1
libdir=$2
cmake=$3
generator=$4
compiler=$5
examples=$6
directory=$7

rm -rf "$directory"
mkdir -p "$directory"
cp -r "$examples" "$directory/source"
if [ "$way" = pkg_config ]; then
    PKG_CONFIG_PATH=$libdir/pkgconfig
    export PKG_CONFIG_PATH
    set -- -DVASK_FROM_PKG_CONFIG=ON
else
    set -- -Dvask_DIR="$libdir/cmake/vask"
fi
"$cmake" -S "$directory/source" -B "$directory/build" -G "$generator" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" \
    -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath,$libdir" "$@"
"$cmake" --build "$directory/build"

ctest --test-dir "$directory/build" --no-tests=error --output-on-failure
reply=$(dbus-run-session -- "$directory/build/hello_parent" "$directory/build/hello_child")
[ "$reply" = "Hello, world!" ] || {
    echo "the shortest example prints '$reply'"
    exit 1
}
