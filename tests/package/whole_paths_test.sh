#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: whole_paths_test.sh SOURCES CMAKE GENERATOR COMPILER DIRECTORY LIBRARY
# Some distributors give whole paths for the directories of an installation. It has to end well, and
# pkg-config to name them. LIBRARY is installed as if it had been built here.
set -eu
sources=$1
cmake=$2
generator=$3
compiler=$4
directory=$5
library=$6

rm -rf "$directory"
"$cmake" -S "$sources" -B "$directory/build" -G "$generator" -DCMAKE_CXX_COMPILER="$compiler" \
    -DVASK_BUILD_TESTS=OFF -DVASK_BUILD_TESTKIT=OFF -DVASK_BUILD_TOOLS=OFF -DVASK_BUILD_EXAMPLES=OFF \
    -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=/usr/lib64 \
    -DCMAKE_INSTALL_INCLUDEDIR=/usr/include/products >/dev/null
cp -P "${library%.so}".so* "$directory/build/src"
DESTDIR=$directory/root "$cmake" --install "$directory/build" >/dev/null

PKG_CONFIG_PATH=$directory/root/usr/lib64/pkgconfig
export PKG_CONFIG_PATH
for expected in libdir=/usr/lib64 includedir=/usr/include/products/vask prefix=/usr; do
    variable=${expected%%=*}
    found=$(pkg-config --variable="$variable" vask)
    [ "$variable=$found" = "$expected" ] || {
        echo "vask.pc has the $variable '$found', not ${expected#*=}"
        exit 1
    }
    [ -d "$directory/root$found" ] || {
        echo "vask.pc names $found, where nothing is installed"
        exit 1
    }
done
