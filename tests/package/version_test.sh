#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: version_test.sh VERSION SOURCES BUILD
# The version is that of project() in CMakeLists.txt; whatever else names one has to name the same.
set -eu
version=$1
sources=$2
build=$3
failed=0

expect() {
    if [ "$2" != "$3" ]; then
        echo "$1 says '$2', CMakeLists.txt says '$3'"
        failed=1
    fi
}

changes=$sources/CHANGELOG.md
expect CHANGELOG.md "$(sed -n 's/^## \([0-9][0-9.]*\).*/\1/p' "$changes" | head -n 1)" "$version"
if grep '^## ' "$changes" | grep -Evx '## (Unreleased|[0-9.]+ - [0-9]{4}-[0-9]{2}-[0-9]{2})'; then
    echo "CHANGELOG.md has a version without its day"
    failed=1
fi
[ "$(grep -m 1 '^## ' "$changes")" = "## Unreleased" ] || {
    echo "CHANGELOG.md has no place for what is not released"
    failed=1
}
expect vask_version.h "$(sed -n 's/^#define VASK_VERSION "\(.*\)"/\1/p' "$build/include/vask_version.h")" \
    "$version"
for page in vaskctl:tools/vaskctl vask-sealed:testkit/sealed; do
    name=${page%:*}
    expect "$name.1" "$(sed -n 's/^\.TH .* 1 .*"vask \([0-9.]*\)".*/\1/p' "$sources/${page#*:}/$name.1")" \
        "$version"
done
expect vask.pc "$(sed -n 's/^Version: //p' "$build/vask.pc")" "$version"
expect vask-config-version.cmake \
    "$(sed -n 's/^set(PACKAGE_VERSION "\(.*\)")/\1/p' "$build/vask-config-version.cmake")" "$version"
expect "the library's link" "$(readlink "$build/src/libvask.so.${version%%.*}")" "libvask.so.$version"
expect src/vask.map "$(sed -n 's/^VASK_\([0-9]*\) {.*/\1/p' "$sources/src/vask.map")" "${version%%.*}"
if [ -e "$sources/debian/changelog" ]; then
    expect debian/changelog \
        "$(sed -n '1s/.*(\([0-9.]*\)[-~)+].*/\1/p' "$sources/debian/changelog")" "$version"
fi
exit "$failed"
