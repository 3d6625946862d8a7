// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_BENCH_INHERITED_DESCRIPTORS_H
#define VASK_BENCH_INHERITED_DESCRIPTORS_H

#include <linux/close_range.h>
#include <stdlib.h>
#include <unistd.h>

// The benchmark library and whoever started this program have left descriptors open that a child
// would inherit from those who do not close them, such as posix_spawn without file actions.
inline void close_all_descriptors_on_exec() {
    if (close_range(3, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
        abort();
    }
}

#endif
