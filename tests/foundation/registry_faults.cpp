#include "foundation/registry_faults.h"

#include <fcntl.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
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
    return next_file_function<int(int, struct stat*)>("fstat")(fd, info);
}

int ftruncate(int fd, off_t size) noexcept {
    if (now.fails_on("ftruncate", fd, registry_objects)) {
        return -1;
    }
    return next_file_function<int(int, off_t)>("ftruncate")(fd, size);
}

int posix_fallocate(int fd, off_t offset, off_t length) {
    if (now.fails_on("posix_fallocate", fd, registry_objects)) {
        return now.failing_error;
    }
    if (now.interrupted_fallocations > 0) {
        --now.interrupted_fallocations;
        return EINTR;
    }
    return next_file_function<int(int, off_t, off_t)>("posix_fallocate")(fd, offset, length);
}

ssize_t process_vm_readv(pid_t pid, const iovec* local, unsigned long local_count,
                         const iovec* remote, unsigned long remote_count,
                         unsigned long flags) noexcept {
    ++seen.process_vm_readv;
    if (now.fails("process_vm_readv")) {
        return -1;
    }
    const ssize_t result =
        syscall(SYS_process_vm_readv, pid, local, local_count, remote, remote_count, flags);
    if (now.sequence_is_restless) {
        *static_cast<uint32_t*>(local[local_count - 1].iov_base) += 2;
    }
    if (now.after_copy) {
        now.after_copy();
    }
    return result;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static double gained = 0;
    const bool counts = clock == CLOCK_MONOTONIC;
    if (counts && now.clock_readings == 0) {
        errno = EINVAL;
        return -1;
    }
    if (counts && now.clock_readings > 0) {
        --now.clock_readings;
    }
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (counts) {
        gained += now.clock_step_sec;
        time->tv_sec += static_cast<time_t>(gained);
    }
    return result;
}

}  // extern "C"
