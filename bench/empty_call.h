// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_BENCH_EMPTY_CALL_H
#define VASK_BENCH_EMPTY_CALL_H

// Does nothing, in a shared library: what any call of a message function costs.
__attribute__((visibility("default"))) void empty_call(const void* object, int level,
                                                       const char* format, ...);

#endif
