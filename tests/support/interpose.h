// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_INTERPOSE_H
#define VASK_TEST_INTERPOSE_H

#include <dlfcn.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

namespace vask_test {

/** The function that a definition of the same name in the test program hides. */
template <typename Function>
Function* next_function(const char* name) {
    void* address = dlsym(RTLD_NEXT, name);
    if (!address) {
        std::abort();
    }
    return reinterpret_cast<Function*>(address);
}

/** A function's name with something before and behind it. It takes no memory: there may be none. */
struct decorated_name {
    decorated_name(const char* before, const char* name, const char* behind) {
        snprintf(text, sizeof text, "%s%s%s", before, name, behind);
    }
    char text[64];
};

/** The same for a function with an off_t, which has another name where a word is too short. */
template <typename Function>
Function* next_file_function(const char* name) {
    return next_function<Function>(
        decorated_name("", name, sizeof(off_t) > sizeof(long) ? "64" : "").text);
}

/** The same for a function of times, which has another name where a word is too short for time_t.
 */
template <typename Function>
Function* next_time_function(const char* name) {
    const bool has_own_name = sizeof(time_t) > sizeof(long);
    return next_function<Function>(has_own_name ? decorated_name("__", name, "64").text
                                                : decorated_name("", name, "").text);
}

/** The fstat() that a definition in the test program hides. */
inline int next_fstat(int fd, struct stat* info) {
    using function = int(int, struct stat*);
    return sizeof(time_t) > sizeof(long) ? next_function<function>("__fstat64_time64")(fd, info)
                                         : next_file_function<function>("fstat")(fd, info);
}

#ifdef SYS_mmap2
constexpr long mmap_call = SYS_mmap2;
constexpr off_t mmap_offset_unit = 4096;
#else
constexpr long mmap_call = SYS_mmap;
constexpr off_t mmap_offset_unit = 1;
#endif

/** Maps memory as mmap() does. Looking for the next mmap() would map memory itself. */
inline void* mmap_by_system_call(void* address, size_t size, int protection, int flags, int fd,
                                 off_t offset) {
    return reinterpret_cast<void*>(
        syscall(mmap_call, address, size, protection, flags, fd, offset / mmap_offset_unit));
}

}  // namespace vask_test

#endif
