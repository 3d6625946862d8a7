#!/bin/sh
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: wide_times_test.sh NM LIBRARY
# On a machine whose words have 32 bits: the library calls no function of the C library that takes a
# time or a file state of 32 bits.
set -eu
called=$("$1" -D --undefined-only "$2" | sed -E 's/^ *U //; s/@.*//')
printf '%s\n' "$called" | grep -qx '__clock_gettime64' || {
    echo "does not read a clock of 64 bits; it calls:"
    echo "$called"
    exit 1
}
narrow=$(printf '%s\n' "$called" | grep -xE "$(tr -s ' \n' '|' <<END
clock_gettime|clock_nanosleep|nanosleep|gettimeofday|time|localtime|localtime_r|gmtime|gmtime_r|mktime
stat|fstat|lstat|fstatat|statvfs|fstatvfs|open|openat|lseek|ftruncate|fallocate|mmap|pread|pwrite
stat64|fstat64|lstat64|fstatat64|futimens|utimensat|utimes|sem_timedwait|sem_clockwait|sigtimedwait
readdir|fopen|pselect|select|ppoll|recvmsg|sendmsg|getsockopt|setsockopt|ioctl|fcntl|fcntl64|wait3|wait4|getrusage
END
)") || exit 0
echo "calls functions of 32-bit times or file sizes:"
echo "$narrow"
exit 1
