#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: runner_test.sh ctest|meson|hand LIBDIR DIRECTORY [CMAKE GENERATOR]
# Runs a product's tests under the installed vask-sealed in the way that is named: the one that leaves
# nothing has to pass, and each of the others to fail.
set -eu
way=$1
libdir=$2
directory=$3
here=$(dirname "$0")
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH

rm -rf "$directory"
mkdir -p "$directory"
# Two lines for a test: its name, and PASS or FAIL.
results=$directory/results
case $way in
ctest)
    "$4" -S "$here/ctest" -B "$directory/build" -G "$5" -Dvask_DIR="$libdir/cmake/vask" >"$directory/log"
    "$4" --build "$directory/build" >>"$directory/log"
    (cd "$directory/build" && ctest) >>"$directory/log" || true
    sed -n 's/^ *[0-9]*\/[0-9]* Test *#[0-9]*: \([a-z]*\) \.*\(\**\) *\([A-Z][a-z]*\).*/\1 \3/p' \
        "$directory/log" | sed 's/Passed/PASS/; s/Failed/FAIL/' >"$results"
    ;;
meson)
    cp "$here/meson/meson.build" "$here/probe.c" "$directory"
    meson setup "$directory/build" "$directory" >"$directory/log"
    meson test -C "$directory/build" >>"$directory/log" || true
    sed -n 's/^ *[0-9]*\/[0-9]* \([a-z]*\) *\([A-Z]*\) .*/\1 \2/p' "$directory/log" |
        sed 's/OK/PASS/' >"$results"
    ;;
hand)
    ${CC:-cc} -o "$directory/probe" "$here/probe.c"
    sealed=$(pkg-config --variable=sealed vask-test)
    for leaves in nothing process descriptor semaphore time failure; do
        if "$sealed" --bus --timeout 1 -- "$directory/probe" "$leaves" 2>>"$directory/log"; then
            echo "$leaves PASS"
        else
            echo "$leaves FAIL"
        fi
    done >"$results"
    ;;
esac

sort "$results" >"$results.sorted"
diff - "$results.sorted" <<EOF || {
descriptor FAIL
failure FAIL
nothing PASS
process FAIL
semaphore FAIL
time FAIL
EOF
    cat "$directory/log"
    exit 1
}
