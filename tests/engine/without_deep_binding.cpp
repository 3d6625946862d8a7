// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// For sanitizers, whose functions a plug-in that is bound deeply would go past.

#include <dlfcn.h>

#include "support/interpose.h"

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file,
                                                               int mode) noexcept {
    static const auto original = vask_test::next_function<void*(const char*, int)>("dlopen");
    return original(file, mode & ~RTLD_DEEPBIND);
}
