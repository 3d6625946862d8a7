#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Passes when no public header names a type whose size an application chooses by a macro: on machines
of 32 bits the library has 64-bit times and file sizes, whoever includes its headers may have others.

usage: header_types.py HEADER...
"""

import pathlib
import re
import sys

# Of _TIME_BITS and _FILE_OFFSET_BITS.
TYPES = """
    time_t timeval timespec itimerval itimerspec timex utimbuf timeb rusage msghdr cmsghdr mq_attr
    off_t ino_t blkcnt_t fsblkcnt_t fsfilcnt_t rlim_t fpos_t stat statvfs statfs dirent glob_t flock
    rlimit aiocb FTW GStatBuf stat64 ntptimeval
""".split()


def without_comments(text):
    return re.sub(r"//[^\n]*|/\*.*?\*/", " ", text, flags=re.DOTALL)


def named_types(text):
    return sorted(set(re.findall(rf"\b({'|'.join(TYPES)})\b", without_comments(text))))


# What cannot find anything would always pass.
assert named_types("/* off_t */ void f(struct stat*, std::time_t); // ino_t") == ["stat", "time_t"]

failed = False
for name in sys.argv[1:]:
    for found in named_types(pathlib.Path(name).read_text()):
        print(f"{name}: {found} has another size in programs that are compiled otherwise")
        failed = True
sys.exit(failed or len(sys.argv) < 2)
