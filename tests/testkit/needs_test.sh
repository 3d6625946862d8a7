#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: needs_test.sh NM LIBRARY
# What needs GoogleTest is in headers, and a test of a plug-in does not link libvask.
set -eu
needed=$("$1" --undefined-only --demangle "$2" | grep -E 'testing::|\<vask_[a-z]+(_[a-z]+)*(::|\()' |
    grep -v 'vask_test::' || true)
[ -z "$needed" ] || {
    echo "The library of the test kit needs:"
    echo "$needed"
    exit 1
}
