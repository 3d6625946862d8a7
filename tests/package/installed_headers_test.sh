#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: installed_headers_test.sh SOURCE_HEADERS INSTALLED_HEADERS
# Both directories must hold the same headers with the same text, but for the one that is configured.
[ -e "$2/vask_version.h" ] && diff -r -x vask_version.h -x vask_version.h.in "$1" "$2" && exit 0
echo "A header in $1 is missing among the installed ones, or differs:"
echo "public headers are listed in cmake/vask_install.cmake."
exit 1
