#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: abi.sh check|update LIBRARY HEADERS BASELINE SCRATCH_DIRECTORY
# Compares types, sizes, offsets, virtual tables and functions that the library exports with the
# baseline, or writes the baseline anew.
set -eu
action=$1
library=$2
headers=$3
baseline=$4
scratch=$5

describe() {
    abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only \
        --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-architecture \
        --out-file "$1" "$library"
    # Where the sources were when it was built is nobody's business.
    sed -i "s|path='[^']*/src/|path='src/|" "$1"
}

if [ "$action" = update ]; then
    describe "$baseline"
    exit 0
fi

describe "$scratch/now.abi"
status=0
abidiff --no-show-locs "$baseline" "$scratch/now.abi" || status=$?
[ "$status" -ne 0 ] || exit 0
cat <<END

Programs that were compiled against an earlier build may break with this one. Decide: take the change
back; or, if it only adds functions or classes (docs/abi.md says what is harmless), make the new
description the baseline and commit it with your change:
    cmake --build BUILD_DIRECTORY --target update_abi
A change that is not harmless needs a new major version: another soname and another symbol node.
END
exit 1
