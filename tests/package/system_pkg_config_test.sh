#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: system_pkg_config_test.sh CMAKE BUILD LIBDIR DIRECTORY
# Installs into /usr below DIRECTORY, and asks pkg-config as if that were the root: it must name no
# directory twice that compilers search anyway. LIBDIR is relative to the prefix.
set -eu
cmake=$1
build=$2
libdir=$3
directory=$4

rm -rf "$directory"
DESTDIR=$directory "$cmake" --install "$build" --prefix /usr >/dev/null
PKG_CONFIG_PATH=$directory/usr/$libdir/pkgconfig
export PKG_CONFIG_PATH

searched=$(pkg-config --libs-only-L vask | xargs)
[ -z "$searched" ] || {
    echo "vask.pc adds $searched to what is searched for libraries"
    exit 1
}
case " $(pkg-config --cflags-only-I vask) " in
*..*)
    echo "vask.pc names directories by a detour: $(pkg-config --cflags-only-I vask)"
    exit 1
    ;;
*" -I/usr/include/vask "*) ;;
*)
    echo "vask.pc does not lead to the headers: $(pkg-config --cflags-only-I vask)"
    exit 1
    ;;
esac
