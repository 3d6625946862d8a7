// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Starting a program from a small parent and from one with much touched memory.

#include <glib.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "inherited_descriptors.h"
#include "table_row.h"
#include "vask_object.h"

namespace {

char program[] = "/bin/true";

class touched_memory {
public:
    explicit touched_memory(size_t size) : m_size(size), m_start(nullptr) {
        if (m_size == 0) {
            return;
        }
        m_start = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        // Huge pages would hide what a fork has to copy for a heap that has grown piece by piece.
        madvise(m_start, m_size, MADV_NOHUGEPAGE);
        memset(m_start, 1, m_size);
    }

    ~touched_memory() {
        if (m_size != 0) {
            munmap(m_start, m_size);
        }
    }

private:
    const size_t m_size;
    void* m_start;
};

strlist own_environment() {
    strlist list;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        list.emplace_back(*entry);
    }
    return list;
}

int start_by_posix_spawn() {
    char* argv[] = {program, nullptr};
    pid_t pid = 0;
    return posix_spawn(&pid, program, nullptr, nullptr, argv, environ) == 0 ? pid : 0;
}

int start_in(const char* directory) {
    static const strlist argv = {program};
    static const strlist envs = own_environment();
    int pid = 0;
    vask_object::spawn_async(&argv, &envs, &pid, directory);
    return pid;
}

int start_by_spawn_async() {
    return start_in(nullptr);
}

int start_by_spawn_async_in_directory() {
    return start_in("/");
}

int start_by_g_spawn_async() {
    char* argv[] = {program, nullptr};
    GPid pid = 0;
    g_spawn_async(nullptr, argv, environ, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, &pid,
                  nullptr);
    return pid;
}

struct parent_kind {
    const char* name;
    size_t touched_memory;
};

// What the parent's main loop is stopped for, and what the whole start costs.
struct interval_kind {
    const char* name;
    bool ends_when_call_returns;
};

struct starter_kind {
    const char* name;
    int (*start)();
    // A descriptor that the child must not get though an exec would leave it open.
    bool beside_inheritable_descriptor;
    // A signal that the child must get though its parent does not.
    bool with_sigterm_blocked;
    void (*describe)(benchmark::State& state, const parent_kind& parent);
};

void start_and_reap(benchmark::State& state, const parent_kind& parent,
                    const interval_kind& interval, const starter_kind& starter) {
    using clock = std::chrono::steady_clock;
    close_all_descriptors_on_exec();
    const int inheritable = starter.beside_inheritable_descriptor ? dup(STDIN_FILENO) : -1;
    sigset_t sigterm;
    sigemptyset(&sigterm);
    sigaddset(&sigterm, SIGTERM);
    if (starter.with_sigterm_blocked) {
        pthread_sigmask(SIG_BLOCK, &sigterm, nullptr);
    }
    touched_memory memory(parent.touched_memory);
    for (auto _ : state) {
        const clock::time_point start = clock::now();
        const int pid = starter.start();
        const clock::time_point returned = clock::now();
        int status = -1;
        if (pid <= 0 || waitpid(pid, &status, 0) != pid || status != 0) {
            state.SkipWithError("The program did not run");
            break;
        }
        const clock::time_point reaped = clock::now();
        const clock::time_point end = interval.ends_when_call_returns ? returned : reaped;
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    if (inheritable != -1) {
        close(inheritable);
    }
    pthread_sigmask(SIG_UNBLOCK, &sigterm, nullptr);
    starter.describe(state, parent);
}

const parent_kind parents[] = {{"small parent", 0}, {"1 GiB parent", size_t{1} << 30}};

const interval_kind intervals[] = {{"until the call returns", true},
                                   {"until the child is reaped", false}};

void describe_spawn_async(benchmark::State& state, const parent_kind& parent) {
    if (parent.touched_memory != 0) {
        has_ratio_limit(state, "1.30");
    }
}

const starter_kind starters[] = {
    {"posix_spawn", start_by_posix_spawn, false, false,
     [](benchmark::State& state, const parent_kind&) { is_baseline(state); }},
    {"spawn_async", start_by_spawn_async, false, false, describe_spawn_async},
    {"spawn_async, inheritable descriptor open", start_by_spawn_async, true, false,
     describe_spawn_async},
    {"spawn_async, working directory", start_by_spawn_async_in_directory, false, false,
     describe_spawn_async},
    {"spawn_async, SIGTERM blocked", start_by_spawn_async, false, true, describe_spawn_async},
    {"spawn_async, all of these", start_by_spawn_async_in_directory, true, true,
     describe_spawn_async},
    {"g_spawn_async", start_by_g_spawn_async, false, false,
     [](benchmark::State&, const parent_kind&) {}},
};

bool register_all() {
    for (const parent_kind& parent : parents) {
        for (const interval_kind& interval : intervals) {
            for (const starter_kind& starter : starters) {
                const std::string name = std::string("Spawn, ") + parent.name + ", " +
                                         interval.name + "/" + starter.name;
                benchmark::RegisterBenchmark(name.c_str(),
                                             [&](benchmark::State& state) {
                                                 start_and_reap(state, parent, interval, starter);
                                             })
                    ->UseManualTime()
                    ->MinTime(0.01);
            }
        }
    }
    return true;
}

const bool registered = register_all();

}  // namespace
