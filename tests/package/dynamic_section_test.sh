#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: dynamic_section_test.sh LIBRARY
# The library stays in memory once it is loaded, needs no display, and leaves libsoup to those who
# convert file URIs.
set -eu
library=$1
section=$(LC_ALL=C readelf -d "$library")

case $section in
*NODELETE*) ;;
*)
    echo "$library may be unloaded under its timers and its registered types"
    exit 1
    ;;
esac
for needless in libX11 libsoup; do
    case $section in
    *"$needless"*)
        echo "$library needs $needless"
        exit 1
        ;;
    esac
done
