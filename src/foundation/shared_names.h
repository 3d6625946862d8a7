// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SHARED_NAMES_H
#define VASK_SHARED_NAMES_H

#include <string>

// The names under which processes meet in shared memory. Everybody who looks at an object of the
// library from outside takes them from here, too.

// Where the objects and the files of named semaphores lie.
constexpr char shm_directory[] = "/dev/shm/";
constexpr char named_sem_file_prefix[] = "sem.";

// In front of a registry's name.
constexpr char registry_prefix[] = "vask_proc_pid_";

constexpr char library_lock_name[] = "vask_shm_lock";

// In front of a shared-memory context's name: its memory object and its semaphore.
constexpr char context_shm_prefix[] = "vask_shm_context_shm_";
constexpr char context_sem_prefix[] = "vask_shm_context_sem_";

// The file that stands for a named semaphore.
inline std::string named_sem_path(const char* name) {
    while (*name == '/') {
        ++name;
    }
    return std::string(shm_directory) + named_sem_file_prefix + name;
}

#endif
