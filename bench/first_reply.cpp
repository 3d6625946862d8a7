// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// From the start of a child until the parent holds the reply to its first command.

#include <glib.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "bus/bus_names.h"
#include "child_commands.h"
#include "inherited_descriptors.h"
#include "libdbus_caller.h"
#include "table_row.h"
#include "vask_app_bridge.h"

namespace {

using bench_clock = std::chrono::steady_clock;

const char argument[] = "hello";
char vask_child_program[] = VASK_BENCH_CHILD_DIR "/bench_child";
char bare_child_program[] = VASK_BENCH_CHILD_DIR "/bare_child";

void set_time_since(benchmark::State& state, bench_clock::time_point start) {
    state.SetIterationTime(std::chrono::duration<double>(bench_clock::now() - start).count());
}

void check_echo(benchmark::State& state, const char* reply) {
    if (reply == nullptr || strcmp(reply, argument) != 0) {
        state.SkipWithError("The child did not echo the argument");
    }
}

// Before the bridge's destructor does, which naps while it waits: the next child would start on a
// colder CPU than those of the other rows.
void end_child(vask_app_bridge& bridge) {
    if (bridge.get_child_pid() > 0) {
        kill(bridge.get_child_pid(), SIGTERM);
    }
    while (bridge.main_worker() != nullptr) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

void by_bridge(benchmark::State& state) {
    close_all_descriptors_on_exec();
    strlist argv = {vask_child_program};
    for (auto _ : state) {
        vask_app_bridge bridge("bench", false);
        const bench_clock::time_point start = bench_clock::now();
        bridge.spawn(argv, vask_object::__empty_strlist);
        while (bridge.main_worker() != nullptr && bridge.get_child_bus_addr() == nullptr) {
            g_main_context_iteration(nullptr, TRUE);
        }
        char* reply = nullptr;
        bridge.send_cmd(BENCH_ECHO, &reply, argument);
        set_time_since(state, start);
        check_echo(state, reply);
        g_free(reply);
        end_child(bridge);
    }
    has_ratio_limit(state, "1.10");
}

void by_libdbus(benchmark::State& state, char* program) {
    libdbus_caller caller;
    caller.watch_names();
    char* argv[] = {program, nullptr};
    for (auto _ : state) {
        const bench_clock::time_point start = bench_clock::now();
        pid_t pid = 0;
        if (posix_spawn(&pid, program, nullptr, nullptr, argv, environ) != 0) {
            state.SkipWithError("The child did not start");
            break;
        }
        const std::string name = vask_object::vask_sprintf(VASK_CHILD_NAME_FORMAT, pid);
        caller.wait_for_owner(name.c_str());
        const auto reply = caller.call(name.c_str(), BENCH_ECHO, argument);
        set_time_since(state, start);
        check_echo(state, reply ? reply->c_str() : nullptr);
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
}

void posix_spawn_and_libdbus(benchmark::State& state) {
    by_libdbus(state, vask_child_program);
    is_baseline(state);
}

void libdbus_child(benchmark::State& state) {
    by_libdbus(state, bare_child_program);
}

BENCHMARK(posix_spawn_and_libdbus)
    ->Name("Spawn to first reply/posix_spawn and libdbus, same child")
    ->UseManualTime();
BENCHMARK(by_bridge)->Name("Spawn to first reply/bridge")->UseManualTime();
BENCHMARK(libdbus_child)
    ->Name("Spawn to first reply/posix_spawn and libdbus, child of libdbus alone")
    ->UseManualTime();

}  // namespace
