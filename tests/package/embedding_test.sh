#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: embedding_test.sh SOURCES CMAKE GENERATOR COMPILER DIRECTORY VERSION
# Builds a product with the library's sources in it, which keep to themselves: no test and no installed
# file of theirs is the product's, unless it asks. Then the product installs the library, too, with the
# bus prefix that it has chosen, and another project is built against that.
set -eu
sources=$1
cmake=$2
generator=$3
compiler=$4
directory=$5
version=$6
here=$(dirname "$0")
. "$here/expect_consumer_output.sh"

fail() {
    echo "$1"
    exit 1
}

rm -rf "$directory"
unset DESTDIR
configure() {
    "$cmake" -S "$here/embedding" -B "$directory/build" -G "$generator" \
        -DCMAKE_CXX_COMPILER="$compiler" -DLIBRARY_SOURCES="$sources" \
        -DLIBRARY_VERSION="$version" "$@"
}

configure
"$cmake" --build "$directory/build" --parallel 2
expect_consumer_output "$directory/build/product"
ctest --test-dir "$directory/build" --show-only | grep -x 'Total Tests: 0' ||
    fail "the product has tests of the library"
"$cmake" --install "$directory/build" --prefix "$directory/alone"
[ "$(cd "$directory/alone" && find . -type f)" = ./bin/product ] ||
    fail "the product installs what is the library's: $(find "$directory/alone")"

configure -DVASK_INSTALL=ON
"$cmake" --build "$directory/build"
"$cmake" --install "$directory/build" --prefix "$directory/both"
prefix=org.example_1.product
[ -e "$directory/both/share/dbus-1/interfaces/$prefix.vask.Child.xml" ] ||
    fail "the bus interface has another name"
page=$directory/both/share/man/man7/vask.7
grep -q "$prefix\.vask\.Child_PID" "$page" || fail "the manual page has another prefix"
grep -q '/org/example_1/product/vask/Child' "$page" || fail "the manual page has another path"
! grep '@\|com\.example' "$page" || fail "the manual page has another prefix as well"
libdir=$(find "$directory/both" -name pkgconfig -printf '%h')
[ "$(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --variable=bus_prefix vask)" = "$prefix" ] ||
    fail "vask.pc has another prefix"
sh "$here/cmake_package_test.sh" "$cmake" "$generator" "$directory/both" "$compiler" \
    "$directory/consumer"
