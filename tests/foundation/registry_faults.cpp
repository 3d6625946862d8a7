// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/registry_faults.h"

#include <fcntl.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "support/interpose.h"

using vask_test::next_file_function;
using vask_test::next_function;

namespace registry_faults {

plan now;
counts seen;

namespace {

constexpr char registry_objects[] = "vask_proc_pid_";

// Only shm_open() adds this flag.
bool is_opened_by_library(int fd) {
    return (fcntl(fd, F_GETFL) & O_NOFOLLOW) != 0 && vask_test::leads_to(fd, registry_objects);
}

bool may_write(int fd) {
    return (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDWR;
}

// A lookup reads the sequence, the record and the sequence again, and then perhaps entries alone.
void observe_lookup(void* bytes, size_t size, off_t offset) {
    static bool record_was_read = false;
    const bool is_sequence = offset == 0 && size == sizeof(uint32_t);
    if (is_sequence && record_was_read && now.sequence_is_restless) {
        *static_cast<uint32_t*>(bytes) += 2;
    }
    record_was_read = !is_sequence && offset == 0;
    seen.lookup_steps.push_back(is_sequence ? 's' : offset == 0 ? 'r' : 'e');
    if (record_was_read && now.after_copy) {
        now.after_copy(bytes);
    }
    if (!is_sequence && offset != 0 && now.after_further_copy) {
        now.after_further_copy();
    }
}

}  // namespace

}  // namespace registry_faults

using namespace registry_faults;

extern "C" {

int shm_open(const char* name, int flags, mode_t mode) {
    if (now.fails("shm_open")) {
        return -1;
    }
    if ((flags & O_CREAT) != 0) {
        ++seen.shm_open_creating;
        if (now.creating_is_forbidden) {
            errno = EACCES;
            return -1;
        }
    }
    return next_function<int(const char*, int, mode_t)>("shm_open")(name, flags, mode);
}

void* mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
    if (fd >= 0) {
        if (now.fails_on("mmap", fd, registry_objects)) {
            return MAP_FAILED;
        }
        if (vask_test::leads_to(fd, registry_objects)) {
            seen.largest_mapping = std::max(seen.largest_mapping, size);
        }
    }
    return vask_test::mmap_by_system_call(address, size, protection, flags, fd, offset);
}

void* mremap(void* address, size_t old_size, size_t new_size, int flags, ...) noexcept {
    if (now.fails("mremap")) {
        return MAP_FAILED;
    }
    ++seen.mremap;
    seen.largest_mapping = std::max(seen.largest_mapping, new_size);
    va_list args;
    va_start(args, flags);
    void* wanted = (flags & MREMAP_FIXED) != 0 ? va_arg(args, void*) : nullptr;
    va_end(args);
    return reinterpret_cast<void*>(syscall(SYS_mremap, address, old_size, new_size, flags, wanted));
}

int fstat(int fd, struct stat* info) noexcept {
    if (now.fails_on("fstat", fd, registry_objects)) {
        return -1;
    }
    return vask_test::next_fstat(fd, info);
}

int ftruncate(int fd, off_t size) noexcept {
    if (now.fails_on("ftruncate", fd, registry_objects)) {
        return -1;
    }
    return next_file_function<int(int, off_t)>("ftruncate")(fd, size);
}

ssize_t pread(int fd, void* bytes, size_t size, off_t offset) {
    if (!is_opened_by_library(fd)) {
        return next_file_function<ssize_t(int, void*, size_t, off_t)>("pread")(fd, bytes, size,
                                                                               offset);
    }
    if (now.fails("pread")) {
        return -1;
    }
    if (may_write(fd) && now.longest_read > 0) {
        size = std::min(size, now.longest_read);
    }
    const ssize_t result =
        next_file_function<ssize_t(int, void*, size_t, off_t)>("pread")(fd, bytes, size, offset);
    if (!may_write(fd)) {
        observe_lookup(bytes, size, offset);
    }
    return result;
}

// What a library that is compiled with _FORTIFY_SOURCE calls in its place.
ssize_t __pread_chk(int fd, void* bytes, size_t size, off_t offset, size_t) {
    return pread(fd, bytes, size, offset);
}

ssize_t __pread64_chk(int fd, void* bytes, size_t size, off_t offset, size_t) {
    return pread(fd, bytes, size, offset);
}

ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
    if (is_opened_by_library(fd)) {
        if (now.writes_before_failure > 0) {
            --now.writes_before_failure;
        } else if (now.fails("pwrite")) {
            // An interruption has been handled.
            if (errno == EINTR || (now.failing_writes > 0 && --now.failing_writes == 0)) {
                now.failing_call = "";
            }
            return -1;
        }
        ++seen.pwrite;
    }
    return next_file_function<ssize_t(int, const void*, size_t, off_t)>("pwrite")(fd, bytes, size,
                                                                                  offset);
}

}  // extern "C"
