#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: glue_test.sh CMAKE GENERATOR SOURCES DIRECTORY
# Generates sources of the library, in a fresh build tree of one build tool.
set -eu
cmake=$1
generator=$2
sources=$3
directory=$4

rm -rf "$directory"
"$cmake" -S "$sources" -B "$directory" -G "$generator" -DVASK_BUILD_TESTS=OFF \
    -DVASK_BUILD_EXAMPLES=OFF
"$cmake" --build "$directory" --target vask_glue
