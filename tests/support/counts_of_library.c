/* SPDX-FileCopyrightText: 2026 The libvask authors */
/* SPDX-License-Identifier: MIT */

// Part of the library in the coverage build. The function that writes its counts is hidden, so the
// library hands it to the program, if that is one of the tests.

void __gcov_dump(void);

extern void (*vask_test_write_counts)(void) __attribute__((weak));

__attribute__((constructor)) static void hand_over(void) {
    if (&vask_test_write_counts) {
        vask_test_write_counts = __gcov_dump;
    }
}
