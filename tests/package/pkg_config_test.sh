#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: pkg_config_test.sh LIBDIR COMPILER DIRECTORY
# Builds the consumer program with what pkg-config says of the library installed in LIBDIR.
set -eu
libdir=$1
compiler=$2
directory=$3
here=$(dirname "$0")
. "$here/expect_consumer_output.sh"

PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
[ "$(realpath "$(pkg-config --variable=libdir vask)")" = "$(realpath "$libdir")" ] || {
    echo "vask.pc points to $(pkg-config --variable=libdir vask), but is installed in $libdir"
    exit 1
}
needless=$(pkg-config --print-requires-private vask)
[ -z "$needless" ] || {
    echo "Programs only link the shared library, but have to have what pkg-config finds of: $needless"
    exit 1
}
rm -rf "$directory"
mkdir -p "$directory"
# shellcheck disable=SC2046
"$compiler" -std=c++11 -Wall -Wextra -Wpedantic -Werror -o "$directory/consumer" \
    -DEXPECTED_VERSION="\"$(pkg-config --modversion vask)\"" \
    -DEXPECTED_BUS_PREFIX="\"$(pkg-config --variable=bus_prefix vask)\"" \
    "$here/consumer/consumer.cpp" $(pkg-config --cflags --libs vask) -Wl,-rpath,"$libdir"
expect_consumer_output "$directory/consumer"
