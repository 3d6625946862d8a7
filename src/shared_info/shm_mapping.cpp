// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_info/shm_mapping.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>
#include <optional>

#include "foundation/log_place.h"
#include "foundation/named_sem.h"
#include "foundation/shm_reserve.h"
#include "foundation/unique_fd.h"
#include "shared_info/source_unit.h"
#include "vask_object.h"

namespace {

// A removal waits so long for the holder of the semaphore.
constexpr int removal_patience_slices = 10;
static_assert(removal_patience_slices * sem_wait_slice_msec == 1000);

// A waiting process looks this often whether the semaphore still has its name.
constexpr int slices_between_looks = 5;

// What failed after the semaphore was opened. It is logged after the semaphore was given back and
// the signals were let through, because writing may block.
enum class map_step { wait, open, size, map };

struct map_failure {
    map_step step;
    int error;
};

// 0 or an error number.
int size_new_object(int fd, off_t size) {
    if (const int error = set_shm_size(fd, size)) {
        return error;
    }
    return reserve_shm(fd, 0, size);
}

// Is mistaken where a process has reserved memory behind the end of an object with holes. But such
// a process could make holes later as well, and nobody can prevent that.
bool has_all_memory(const struct stat& object) {
    return object.st_blocks >= object.st_size / 512 + (object.st_size % 512 != 0);
}

// 0 or an error number. An existing object that is shorter is refused: an access behind its end
// would be fatal, or lost. One with holes still needs memory: without it an access to a hole would
// be fatal as soon as the file system is full.
int check_existing_object(int fd, std::uint64_t size) {
    struct stat info;
    if (fstat(fd, &info) != 0) {
        return errno;
    }
    if (static_cast<std::uint64_t>(info.st_size) < size) {
        return EINVAL;
    }
    return has_all_memory(info) ? 0 : reserve_shm(fd, 0, static_cast<off_t>(size));
}

// 0 or an error number.
int map_object(int fd, vask_shm_context& ctx) {
    void* addr = mmap(nullptr, ctx.get_size(), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (addr == MAP_FAILED) {
        return errno;
    }
    ctx.set_addr(addr);
    return 0;
}

// -1 with errno on failure.
int open_object(const char* name, bool create, bool& created) {
    const int fd = shm_open(name, O_RDWR, 0666);
    if (fd != -1 || errno != ENOENT || !create) {
        return fd;
    }
    const int new_fd = shm_open(name, O_RDWR | O_CREAT, 0666);
    created = new_fd != -1;
    return new_fd;
}

std::optional<map_failure> size_and_map(int fd, bool created, vask_shm_context& ctx) {
    if (created) {
        if (const int error = size_new_object(fd, static_cast<off_t>(ctx.get_size()))) {
            return map_failure{map_step::size, error};
        }
    } else if (const int error = check_existing_object(fd, ctx.get_size())) {
        return map_failure{map_step::map, error};
    }
    if (const int error = map_object(fd, ctx)) {
        return map_failure{map_step::map, error};
    }
    ctx.set_created(created);
    return std::nullopt;
}

// Runs while the semaphore is held.
std::optional<map_failure> open_and_map(const char* name, bool create, vask_shm_context& ctx) {
    bool created = false;
    const unique_fd object(open_object(name, create, created));
    if (!object) {
        return map_failure{map_step::open, errno};
    }
    const std::optional<map_failure> failure = size_and_map(object.get(), created, ctx);
    if (created && failure) {
        // Left behind, it would be too short for everybody who comes later, or pass for filled in.
        shm_unlink(name);
    }
    return failure;
}

void report(const map_failure& failure) {
    switch (failure.step) {
        case map_step::wait:
            report_failed_sem_wait(failure.error);
            break;
        case map_step::open:
            vask_object::vask_p("vask", VASK_P_ERR,
                                VASK_AT("Failed to call shm_open: %d @ map_shared_info"),
                                failure.error);
            break;
        case map_step::size:
            vask_object::vask_p("vask", VASK_P_ERR,
                                VASK_AT("Failed to call ftruncate: %d @ map_shared_info"),
                                failure.error);
            break;
        case map_step::map:
            vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to mmap: %s @ map_shared_info"),
                                strerror(failure.error));
            break;
    }
}

bool semaphore_exists(const char* name) {
    struct stat info;
    return stat(named_sem_path(name).c_str(), &info) == 0;
}

// Null, after a line, when there is no memory for it or it would have no size.
std::unique_ptr<vask_shm_context> make_context(const char* name, unsigned long size, bool create) {
    std::unique_ptr<vask_shm_context> ctx(new (std::nothrow) vask_shm_context(name, size));
    if (!ctx) {
        vask_object::vask_p("vask", VASK_P_ERR,
                            VASK_AT("Failed to create vask_shm_context instance"));
    } else if (create && size == 0) {
        vask_object::vask_p("vask", VASK_P_ERR,
                            VASK_AT("Size must be larger than zero when create flag is true."));
        ctx.reset();
    }
    return ctx;
}

// Waits for a semaphore as long as its name may lead to it. 0 with the signals blocked; otherwise
// ETIMEDOUT for one that was removed, or what the wait fails with. A process may remove the
// semaphore of a dead holder without having it, and then nobody ever gives it to those that wait.
int take_sem_unless_removed(const char* name, sem_t* sem, signal_block& signals) {
    int error;
    do {
        error = take_sem_undisturbed(sem, signals, slices_between_looks);
    } while (error == ETIMEDOUT && !is_removed_named_sem(name, sem));
    return error;
}

// Opens the semaphore and takes it, with the signals blocked. Null without a line where there is
// none and none is to be created, and otherwise after a line.
sem_t* take_context_sem(const std::string& name, bool create, signal_block& signals) {
    for (;;) {
        if (!create && !semaphore_exists(name.c_str())) {
            return nullptr;
        }
        // Stays open when the rest fails.
        sem_t* sem = vask_object::create_named_sem(name.c_str(), 1, 1);
        if (sem == nullptr) {
            return nullptr;
        }
        const int error = take_sem_unless_removed(name.c_str(), sem, signals);
        if (error == ETIMEDOUT) {
            sem_close(sem);
            continue;
        }
        if (error != 0) {
            report({map_step::wait, error});
            return nullptr;
        }
        // A semaphore that was removed meanwhile excludes nobody who comes later. It goes on to the
        // next of those who wait for it, so that they all turn to the new one.
        if (is_named_sem(name.c_str(), sem)) {
            return sem;
        }
        sem_post(sem);
        signals.unblock();
        sem_close(sem);
    }
}

bool map_context(vask_shm_context& ctx, bool create, signal_block& signals) {
    // Made before the semaphore is taken, because there may be no memory for it.
    const std::string shm_name = ctx.get_shm_name();
    sem_t* sem = take_context_sem(ctx.get_sem_name(), create, signals);
    if (sem == nullptr) {
        return false;
    }
    const std::optional<map_failure> failure = open_and_map(shm_name.c_str(), create, ctx);
    if (failure) {
        const bool posted = sem_post(sem) == 0;
        signals.unblock();
        if (!posted) {
            vask_object::post_named_sem(sem);
        }
        report(*failure);
        return false;
    }
    ctx.set_sem(sem);
    return true;
}

int error_of(int result) {
    return result == 0 ? 0 : errno;
}

void report_failed_removal(const std::string& name, int error) {
    vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call shm_unlink(%s): %s"),
                        name.c_str(), strerror(error));
}

// The semaphore of what is to be removed.
struct sem_for_removal {
    sem_t* held;  // null where there is none, it cannot be opened, or nobody gives it back
    bool exists;
};

sem_for_removal take_sem_for_removal(const char* name, signal_block& signals) {
    for (;;) {
        sem_t* sem = open_existing_named_sem(name);
        if (sem == nullptr) {
            return {nullptr, errno != ENOENT};
        }
        const bool is_taken = take_sem_undisturbed(sem, signals, removal_patience_slices) == 0;
        if (is_taken && is_named_sem(name, sem)) {
            return {sem, true};
        }
        if (is_taken) {
            sem_post(sem);
            signals.unblock();
        }
        // A semaphore that has come meanwhile has holders of its own, and they may live.
        const bool is_given_up = !is_taken && !is_removed_named_sem(name, sem);
        sem_close(sem);
        if (is_given_up) {
            return {nullptr, true};
        }
    }
}

}  // namespace

std::unique_ptr<vask_shm_context> map_shm_undisturbed(const char* name, unsigned long size,
                                                      bool create, signal_block& signals) {
    std::unique_ptr<vask_shm_context> ctx = make_context(name, size, create);
    if (ctx && !map_context(*ctx, create, signals)) {
        ctx.reset();
    }
    return ctx;
}

// A process that waits for the semaphore meanwhile gets it when both are gone, sees that the name
// leads to another one or to none, and begins again. A process that has both mapped goes on with
// what others cannot reach.
void remove_shm_and_sem(const std::string& name) {
    const vask_shm_context names(name.c_str(), 0);
    const std::string shm_name = names.get_shm_name();
    const std::string sem_name = names.get_sem_name();

    signal_block signals;
    const sem_for_removal sem = take_sem_for_removal(sem_name.c_str(), signals);
    const int shm_error = error_of(shm_unlink(shm_name.c_str()));
    // One that has come meanwhile belongs to a new object.
    const int sem_error = sem.exists ? error_of(sem_unlink(sem_name.c_str())) : ENOENT;
    if (sem.held != nullptr) {
        sem_post(sem.held);
        sem_close(sem.held);
    }
    signals.unblock();

    if (shm_error != 0) {
        report_failed_removal(shm_name, shm_error);
    }
    if (sem_error != 0) {
        report_failed_sem_removal(sem_name.c_str(), sem_error);
    }
}

vask_shm_context* vask_shared_info::map_shm(const char* name, unsigned long size, bool create) {
    signal_block signals;
    return map_shm_undisturbed(name, size, create, signals).release();
}

bool vask_shared_info::map_shm_platform(vask_shm_context* ctx, bool create) {
    if (ctx == nullptr) {
        vask_object::vask_p("vask", VASK_P_BUG, VASK_AT("context is NULL"));
        return false;
    }
    signal_block signals;
    return map_context(*ctx, create, signals);
}

bool vask_shared_info::unmap_shm(vask_shm_context* ctx) {
    if (ctx == nullptr) {
        vask_object::vask_p("vask", VASK_P_BUG, VASK_AT("ctx is NULL"));
        return false;
    }
    if (ctx->get_addr() != nullptr) {
        if (munmap(ctx->get_addr(), ctx->get_size()) != 0) {
            vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to unmap map_shared_info: %s"),
                                strerror(errno));
            return false;
        }
        ctx->set_addr(nullptr);
    }
    if (ctx->get_sem() != nullptr) {
        sem_close(ctx->get_sem());
        ctx->set_sem(nullptr);
    }
    delete ctx;
    return true;
}

bool vask_shared_info::destroy_shm(const char* name) {
    const std::string shm_name = vask_shm_context(name, 0).get_shm_name();
    if (shm_unlink(shm_name.c_str()) != 0) {
        report_failed_removal(shm_name, errno);
        return false;
    }
    return true;
}

sem_t* vask_object::get_sem_for_shm(const char* name) {
    return create_named_sem(vask_shm_context(name, 0).get_sem_name().c_str(), 1, 1);
}
