#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: refused_options_test.sh SOURCES CMAKE GENERATOR COMPILER DIRECTORY REASON OPTION
# Configuring with this option has to fail, with the reason somewhere in what it prints.
set -eu
sources=$1
cmake=$2
generator=$3
compiler=$4
directory=$5
reason=$6
option=$7

rm -rf "$directory"
if said=$("$cmake" -S "$sources" -B "$directory" -G "$generator" -DCMAKE_CXX_COMPILER="$compiler" \
    "$option" 2>&1); then
    echo "$option is not refused"
    exit 1
fi
# CMake breaks its lines where it likes.
printf '%s\n' "$said" | xargs -d '\n' | tr -s ' ' | grep -qF "$reason" && exit 0
printf '%s\n' "$said"
echo "$option is refused without the reason: $reason"
exit 1
