#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: exported_symbols.sh check|update NM LIBRARY LIST WORD_SIZE
# Compares the symbols that the library exports with the list, or writes the list anew.
set -eu
action=$1
nm=$2
library=$3
list=$4
word_size=$5

# With the node before it: "VASK_2: vask_app::vask_app()". Once each, since compilers differ in how
# many variants of a constructor they emit.
exported_symbols() {
    "$nm" -DC --defined-only "$library" |
        sed -E 's/^[0-9a-f]* +[A-Za-z] //; s/^(.*[^@])@+(VASK_[0-9.]+)$/\2: \1/' |
        grep -vxE '(VASK_[0-9.]+: )?VASK_[0-9.]+' | LC_ALL=C sort -u
}

if [ "$action" = update ]; then
    exported_symbols >"$list"
    exit 0
fi

# The list is of 8-byte words; where they have 4, size_t and ssize_t are other types.
with_size_t_of_any_word() {
    if [ "$word_size" = 4 ]; then
        sed 's/\<int\>/long/g'
    else
        cat
    fi
}

expected=$(mktemp)
trap 'rm "$expected"' EXIT
with_size_t_of_any_word <"$list" >"$expected"
exported_symbols | with_size_t_of_any_word |
    diff -u --label "listed in $list" --label "exported by $library" "$expected" - && exit 0
cat <<END

The library exports other symbols than the list says. Programs that were linked against an earlier
build break when one disappears (lines with -), and whatever appears (lines with +) has to be kept
from now on. If that is what you want, name the symbol in src/vask.map, write the list anew and
commit both with your change:
    cmake --build BUILD_DIRECTORY --target update_exported_symbols
END
exit 1
