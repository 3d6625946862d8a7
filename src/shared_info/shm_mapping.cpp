#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <new>
#include <optional>

#include "foundation/named_sem.h"
#include "foundation/unique_fd.h"
#include "vask_object.h"
#include "vask_shared_info.h"

namespace {

const char source_unit[] = "vask_shared_info";

// What failed while the semaphore was held. The line about it is written after the semaphore was
// given back, because writing may block.
enum class map_step { open, size, map };

struct map_failure {
    map_step step;
    int error;
};

// Without memory behind it a page of a full file system would make the first write fatal. Does not
// change the object's size. 0 or an error number.
int reserve_memory(int fd, std::uint64_t size) {
    while (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) != 0) {
        if (errno != EINTR) {
            return errno == EOPNOTSUPP ? 0 : errno;
        }
    }
    return 0;
}

// 0 or an error number.
int size_new_object(int fd, std::uint64_t size) {
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
        return errno;
    }
    return reserve_memory(fd, size);
}

// 0 or an error number. An existing object that is shorter is refused: an access behind its end
// would be fatal, or lost.
int check_existing_object(int fd, std::uint64_t size) {
    struct stat info;
    if (fstat(fd, &info) != 0) {
        return errno;
    }
    return static_cast<std::uint64_t>(info.st_size) < size ? EINVAL : reserve_memory(fd, size);
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
        if (const int error = size_new_object(fd, ctx.get_size())) {
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
        case map_step::open:
            vask_object::vask_p("vask", VASK_P_ERR,
                                "<%s:%d> Failed to call shm_open: %d @ map_shared_info\n",
                                source_unit, __LINE__, failure.error);
            break;
        case map_step::size:
            vask_object::vask_p("vask", VASK_P_ERR,
                                "<%s:%d> Failed to call ftruncate: %d @ map_shared_info\n",
                                source_unit, __LINE__, failure.error);
            break;
        case map_step::map:
            vask_object::vask_p("vask", VASK_P_ERR,
                                "<%s:%d> Failed to mmap: %s @ map_shared_info\n", source_unit,
                                __LINE__, strerror(failure.error));
            break;
    }
}

bool semaphore_exists(const char* name) {
    struct stat info;
    return stat(named_sem_path(name).c_str(), &info) == 0;
}

}  // namespace

vask_shm_context* vask_shared_info::map_shm(const char* name, unsigned long size, bool create) {
    std::unique_ptr<vask_shm_context> ctx(new (std::nothrow) vask_shm_context(name, size));
    if (!ctx) {
        vask_object::vask_p("vask", VASK_P_ERR,
                            "<%s:%d> Failed to create vask_shm_context instance\n", source_unit,
                            __LINE__);
        return nullptr;
    }
    if (create && size == 0) {
        vask_object::vask_p("vask", VASK_P_ERR,
                            "<%s:%d> Size must be larger than zero when create flag is true.\n",
                            source_unit, __LINE__);
        return nullptr;
    }
    return map_shm_platform(ctx.get(), create) ? ctx.release() : nullptr;
}

bool vask_shared_info::map_shm_platform(vask_shm_context* ctx, bool create) {
    if (ctx == nullptr) {
        vask_object::vask_p("vask", VASK_P_BUG, "<%s:%d> context is NULL\n", source_unit, __LINE__);
        return false;
    }
    const std::string sem_name = ctx->get_sem_name();
    const std::string shm_name = ctx->get_shm_name();
    if (!create && !semaphore_exists(sem_name.c_str())) {
        return false;
    }
    // Stays open when the rest fails.
    sem_t* sem = vask_object::create_named_sem(sem_name.c_str(), 1, 1);
    if (!vask_object::wait_named_sem(sem)) {
        return false;
    }
    const std::optional<map_failure> failure = open_and_map(shm_name.c_str(), create, *ctx);
    if (failure) {
        vask_object::post_named_sem(sem);
        report(*failure);
        return false;
    }
    ctx->set_sem(sem);
    return true;
}

bool vask_shared_info::unmap_shm(vask_shm_context* ctx) {
    if (ctx == nullptr) {
        vask_object::vask_p("vask", VASK_P_BUG, "<%s:%d> ctx is NULL\n", source_unit, __LINE__);
        return false;
    }
    if (ctx->get_addr() != nullptr) {
        if (munmap(ctx->get_addr(), ctx->get_size()) != 0) {
            vask_object::vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to unmap map_shared_info: %s\n",
                                source_unit, __LINE__, strerror(errno));
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
        vask_object::vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to call shm_unlink(%s): %s\n",
                            source_unit, __LINE__, shm_name.c_str(), strerror(errno));
        return false;
    }
    return true;
}

sem_t* vask_object::get_sem_for_shm(const char* name) {
    return create_named_sem(vask_shm_context(name, 0).get_sem_name().c_str(), 1, 1);
}
