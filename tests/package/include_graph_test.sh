#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Plants includes that are not allowed into a copy of the sources: each has to be noticed.
#
# usage: include_graph_test.sh PYTHON SOURCE_DIRECTORY SCRATCH_DIRECTORY
set -eu

plant() {
    file=$1 line=$2 complaint=$3
    rm -rf "$scratch"
    mkdir -p "$scratch/scripts"
    cp -r "$sources/src" "$sources/include" "$scratch"
    cp "$sources/scripts/include-graph" "$scratch/scripts"
    echo "$line" >>"$scratch/$file"
    if output=$("$python" "$scratch/scripts/include-graph" check 2>&1); then
        echo "not noticed: $line in $file"
        exit 1
    fi
    case $output in
    *"$complaint"*) ;;
    *)
        echo "$output"
        echo "did not say: $complaint"
        exit 1
        ;;
    esac
}

python=$1
sources=$2
scratch=$3
plant src/foundation/vask_error.cpp '#include "vask_child.h"' 'foundation must not include'
plant src/bus/session_bus.h '#include "child/vask_child_glue.h"' 'bus must not include'
plant include/vask_object.h '#include "vask_app.h"' 'foundation must not include'
plant src/socket/socket_channel.h '#include "socket/peer_link.h"
#include "socket/socket_channel.h"' 'these include each other'
plant src/socket/socket_channel.h '#include "socket/no_such.h"' "which is nobody's"
sed 's/child --> bus/child --> bridge/' "$sources/src/README.md" >"$scratch/src/README.md"
if "$python" "$scratch/scripts/include-graph" check 2>/dev/null; then
    echo "a wrong picture was not noticed"
    exit 1
fi
