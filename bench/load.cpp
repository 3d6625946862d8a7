// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What it costs a program that the library is loaded: time and page faults of its start, the memory
// of a child that waits for commands, and the size of the library itself.

#include <elf.h>
#include <link.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "inherited_descriptors.h"
#include "met_child.h"
#include "table_row.h"

namespace {

// An empty program that is linked to what its name says.
std::string empty_program(const char* name) {
    return std::string(VASK_BENCH_CHILD_DIR "/bench_empty_") + name;
}

// What its last start took.
rusage start(benchmark::State& state, const char* name) {
    close_all_descriptors_on_exec();
    const std::string path = empty_program(name);
    char* argv[] = {const_cast<char*>(path.c_str()), nullptr};
    rusage usage = {};
    for (auto _ : state) {
        pid_t pid = -1;
        int status = -1;
        if (posix_spawn(&pid, path.c_str(), nullptr, nullptr, argv, environ) != 0 ||
            wait4(pid, &status, 0, &usage) != pid || status != 0) {
            state.SkipWithError("The program does not run");
            break;
        }
    }
    return usage;
}

void count_page_faults(benchmark::State& state, const char* name) {
    shows_amount(state, start(state, name).ru_minflt, "faults");
}

long private_dirty_kb(pid_t pid) {
    std::ifstream smaps("/proc/" + std::to_string(pid) + "/smaps_rollup");
    std::string word;
    while (smaps >> word) {
        long kb = 0;
        if (word == "Private_Dirty:" && smaps >> kb) {
            return kb;
        }
    }
    return -1;
}

void measure_idle_child(benchmark::State& state) {
    long kb = -1;
    for (auto _ : state) {
        kb = private_dirty_kb(met_child::get().bridge().get_child_pid());
    }
    if (kb < 0) {
        state.SkipWithError("The child's memory cannot be read");
    }
    shows_amount(state, kb, "KB");
    has_amount_limit(state, "650");
}

// What size(1) calls text: all that is mapped and not written to. 0 for what is no library.
double text_kb(const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.size() < sizeof(ElfW(Ehdr))) {
        return 0;
    }
    const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(bytes.data());
    const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(&bytes[header->e_shoff]);
    double size = 0;
    for (int i = 0; i < header->e_shnum; ++i) {
        if ((sections[i].sh_flags & (SHF_ALLOC | SHF_WRITE)) == SHF_ALLOC) {
            size += static_cast<double>(sections[i].sh_size);
        }
    }
    return size / 1000;
}

void show_text(benchmark::State& state, const char* library) {
    double kb = 0;
    for (auto _ : state) {
        kb = text_kb(library);
    }
    if (kb == 0) {
        state.SkipWithError("The library cannot be read");
    }
    shows_amount(state, kb, "KB");
}

void add_starts() {
    const std::string group = "An empty program that loads/";
    const auto add = [&](const std::string& name, auto body) {
        benchmark::RegisterBenchmark((group + name).c_str(), body)->UseRealTime();
    };
    add("dbus-glib, GObject and libstdc++", [](benchmark::State& state) {
        start(state, "beside");
        is_baseline(state);
    });
    add("the library", [](benchmark::State& state) {
        start(state, "vask");
        has_ratio_limit(state, "1.08");
    });
    add("nothing", [](benchmark::State& state) { start(state, "alone"); });
}

void add_amounts() {
    const std::string group = "Page faults of a program that loads/";
    const auto add = [&](const std::string& name, auto body) {
        benchmark::RegisterBenchmark(name.c_str(), body)->Iterations(1);
    };
    add(group + "dbus-glib, GObject and libstdc++", [](benchmark::State& state) {
        count_page_faults(state, "beside");
        is_baseline(state);
    });
    add(group + "the library", [](benchmark::State& state) {
        count_page_faults(state, "vask");
        has_amount_limit(state, "320");
    });
    add("Private dirty memory of an idle child/child", measure_idle_child);
    const std::string text = "Text of the library/";
    add(text + "as measured",
        [](benchmark::State& state) { show_text(state, VASK_BENCH_LIBRARY); });
    if (const char* lean_library = getenv("VASK_BENCH_LEAN_LIBRARY")) {
        add(text + "lean", [lean_library](benchmark::State& state) {
            show_text(state, lean_library);
            has_amount_limit(state, "219");
        });
    }
}

const bool registered = (add_starts(), add_amounts(), true);

}  // namespace
