#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: cmake_package_test.sh CMAKE GENERATOR PREFIX COMPILER DIRECTORY
# Builds the consumer project with find_package() against the library installed in PREFIX, or built
# there.
set -eu
cmake=$1
generator=$2
prefix=$3
compiler=$4
directory=$5
here=$(dirname "$0")
. "$here/expect_consumer_output.sh"

rm -rf "$directory"
"$cmake" -S "$here/consumer" -B "$directory" -G "$generator" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_EXE_LINKER_FLAGS=-Wl,--no-as-needed
case $(sed -n 's/^vask_DIR:PATH=//p' "$directory/CMakeCache.txt") in
"$prefix" | "$prefix"/*) ;;
*)
    echo "another installation was found"
    exit 1
    ;;
esac
"$cmake" --build "$directory"
case $(LC_ALL=C readelf -d "$directory/consumer") in
*libgthread*)
    echo "Programs are linked to libgthread, of which they use nothing"
    exit 1
    ;;
esac
expect_consumer_output "$directory/consumer"
