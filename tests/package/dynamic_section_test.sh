#!/bin/sh
# Usage: dynamic_section_test.sh LIBRARY
# The library stays in memory once it is loaded, and needs no display.
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
case $section in
*libX11*)
    echo "$library needs libX11"
    exit 1
    ;;
esac
