// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LIBRARY_LOCK_STATE_H
#define VASK_TEST_LIBRARY_LOCK_STATE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/forked_process.h"
#include "support/mapped_file.h"
#include "support/named_object.h"
#include "support/sem_value.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"

/** Lets the library's shared objects be made anew in every test. */
class shared_objects_removed {
public:
    ~shared_objects_removed() {
        std::vector<std::filesystem::path> own;
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
            const std::string name = entry.path().filename();
            for (const char* prefix : {"sem.vask_", "sem.test_", "vask_proc_pid_"}) {
                if (name.rfind(prefix, 0) == 0) {
                    own.push_back(entry.path());
                }
            }
            if (is_unfinished_semaphore(name)) {
                own.push_back(entry.path());
            }
        }
        for (const std::filesystem::path& path : own) {
            std::filesystem::remove_all(path);
        }
    }

private:
    // The C library makes one under a random name first, and leaves it when its maker is killed.
    static bool is_unfinished_semaphore(const std::string& name) {
        return name.rfind("sem.", 0) == 0 && name.size() == strlen("sem.XXXXXX");
    }
};

/** The library lock's semaphore as everybody else sees it. */
namespace library_lock {

constexpr const char* name = "vask_shm_lock";
constexpr const char* path = "/dev/shm/sem.vask_shm_lock";

constexpr int missing = -1;

/** 1 is free, 0 is held. */
inline int value() {
    return vask_test::sem_value(name, missing);
}

/** Whether this process has it open, or one that had its name before. */
inline bool is_open() {
    return vask_test::is_file_mapped(path);
}

inline ino_t identity() {
    struct stat info;
    return stat(path, &info) == 0 ? info.st_ino : 0;
}

/** Makes it with the given value; 0 is what a dead holder leaves behind. */
inline void create(unsigned int value) {
    const mode_t before = umask(0);
    sem_t* sem = sem_open(name, O_CREAT | O_EXCL, 0644, value);
    umask(before);
    if (sem == SEM_FAILED) {
        std::abort();
    }
    sem_close(sem);
}

/** What a waiter does that takes the holder for dead, up to its own wait. */
inline void replace(unsigned int value) {
    sem_unlink(name);
    create(value);
}

inline vask_test::log_line forced(const std::string& object) {
    return vask_test::line("WARN", object,
                           "Possibly, the lock-owner was unexpectedly dead. Force unlock the "
                           "semaphore.");
}

/** A process takes the lock and is killed. */
inline void leave_to_a_dead_holder() {
    const shared_value<std::atomic<bool>> holds;
    forked_process holder([&holds] {
        named_object object("holder");
        *holds = object.shm_lock();
        wait_for_a_signal();
        return 0;
    });
    if (!vask_test::wait_until_without_loop([&holds] { return holds->load(); })) {
        std::abort();
    }
    holder.kill_now();
}

}  // namespace library_lock

#endif
