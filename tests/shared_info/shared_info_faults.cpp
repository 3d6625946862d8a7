// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_info/shared_info_faults.h"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "support/counted_memory.h"
#include "support/interpose.h"

using vask_test::next_file_function;
using vask_test::next_function;
using vask_test::next_time_function;

namespace shared_info_faults {

plan now;
counts seen;

namespace {

constexpr char context_objects[] = "vask_shm_context_shm_";

const bool allocations_are_watched = [] {
    vask_test::refuses_allocation = [](std::size_t) {
        return now.failing_call == "allocation under the semaphore" &&
               seen.sem_wait > seen.sem_post;
    };
    return true;
}();

template <typename Wait>
int wait_once(const Wait& wait) {
    ++seen.sleeping_waits;
    if (now.fails("sem_wait")) {
        return -1;
    }
    if (now.interrupted_waits > 0) {
        --now.interrupted_waits;
        errno = EINTR;
        return -1;
    }
    const int result = wait();
    seen.sem_wait += result == 0;
    return result;
}

}  // namespace

}  // namespace shared_info_faults

using namespace shared_info_faults;

extern "C" {

int shm_open(const char* name, int flags, mode_t mode) {
    if (now.fails("shm_open") || ((flags & O_CREAT) != 0 && now.fails("creating shm_open"))) {
        return -1;
    }
    const int fd = next_function<int(const char*, int, mode_t)>("shm_open")(name, flags, mode);
    if (fd >= 0 && (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) {
        ++seen.inheritable_opens;
    }
    return fd;
}

int ftruncate(int fd, off_t size) noexcept {
    if (now.fails_on("ftruncate", fd, context_objects)) {
        return -1;
    }
    return next_file_function<int(int, off_t)>("ftruncate")(fd, size);
}

int fallocate(int fd, int mode, off_t offset, off_t length) {
    ++seen.fallocate;
    if (now.fails_on("fallocate", fd, context_objects)) {
        return -1;
    }
    if (now.interrupted_fallocations > 0) {
        --now.interrupted_fallocations;
        errno = EINTR;
        return -1;
    }
    if (now.longest_fallocation > 0 && length > now.longest_fallocation) {
        errno = EINTR;
        return -1;
    }
    return next_file_function<int(int, int, off_t, off_t)>("fallocate")(fd, mode, offset, length);
}

int fstat(int fd, struct stat* info) noexcept {
    if (now.fails_on("fstat", fd, context_objects)) {
        return -1;
    }
    return vask_test::next_fstat(fd, info);
}

void* mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
    if (fd >= 0 && now.fails_on("mmap", fd, context_objects)) {
        return MAP_FAILED;
    }
    return vask_test::mmap_by_system_call(address, size, protection, flags, fd, offset);
}

// The calls of the way back leave another errno behind, as they may.

int close(int fd) {
    const bool was_context = !now.failing_call.empty() && vask_test::leads_to(fd, context_objects);
    const int result = next_function<int(int)>("close")(fd);
    if (was_context) {
        errno = ENOTTY;
    }
    return result;
}

int shm_unlink(const char* name) {
    const int result = next_function<int(const char*)>("shm_unlink")(name);
    if (result == 0) {
        errno = ENOTTY;
    }
    return result;
}

int sem_wait(sem_t* sem) {
    return wait_once([sem] { return next_function<int(sem_t*)>("sem_wait")(sem); });
}

int sem_clockwait(sem_t* sem, clockid_t clock, const timespec* deadline) {
    return now.is_patient ? sem_wait(sem) : wait_once([=] {
        return next_time_function<int(sem_t*, clockid_t, const timespec*)>("sem_clockwait")(
            sem, clock, deadline);
    });
}

// A semaphore whose wait shall fail or be interrupted has to be waited for.
int sem_trywait(sem_t* sem) noexcept {
    const bool is_busy = now.busy_tries > 0 && now.busy_tries-- > 0;
    if (is_busy || now.failing_call == "sem_wait" || now.interrupted_waits > 0) {
        errno = EAGAIN;
        return -1;
    }
    const int result = next_function<int(sem_t*)>("sem_trywait")(sem);
    seen.sem_wait += result == 0;
    return result;
}

int sem_post(sem_t* sem) noexcept {
    if (now.before_post) {
        now.before_post();
    }
    if (now.fails("sem_post")) {
        return -1;
    }
    ++seen.sem_post;
    const int result = next_function<int(sem_t*)>("sem_post")(sem);
    if (result == 0) {
        errno = ENOTTY;
    }
    return result;
}

int sem_close(sem_t* sem) noexcept {
    ++seen.sem_close;
    return next_function<int(sem_t*)>("sem_close")(sem);
}

}  // extern "C"

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (now.failing_call == "allocation") {
        return nullptr;
    }
    return ::operator new(size);
}
