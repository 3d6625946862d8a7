// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_BENCH_CHILD_COMMANDS_H
#define VASK_BENCH_CHILD_COMMANDS_H

// The commands of bench_child; bare_child knows the first one.
enum bench_command : int {
    BENCH_ECHO = 1,   // replies with its argument
    BENCH_COUNT = 2,  // counts itself
    BENCH_TOTAL = 3   // replies with the number of BENCH_COUNT since the last BENCH_TOTAL
};

#endif
