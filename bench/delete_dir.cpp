// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Removing directories: wide, deep, and both.

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "table_row.h"
#include "vask_object.h"

namespace {

std::string make_directory() {
    char name[] = "/tmp/bench_XXXXXX";
    return mkdtemp(name);
}

void fill(const std::string& directory, int files) {
    for (int i = 0; i < files; ++i) {
        const std::string path = directory + "/file" + std::to_string(i);
        close(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    }
}

std::string make_full_directory() {
    const std::string directory = make_directory();
    fill(directory, 10000);
    return directory;
}

std::string make_deep_directory() {
    const std::string directory = make_directory();
    std::string path = directory;
    for (int level = 0; level < 400; ++level) {
        path += "/d";
        mkdir(path.c_str(), 0755);
    }
    return directory;
}

std::string make_tree() {
    const std::string directory = make_directory();
    for (int upper = 0; upper < 10; ++upper) {
        const std::string upper_path = directory + "/dir" + std::to_string(upper);
        mkdir(upper_path.c_str(), 0755);
        for (int lower = 0; lower < 10; ++lower) {
            const std::string path = upper_path + "/dir" + std::to_string(lower);
            mkdir(path.c_str(), 0755);
            fill(path, 100);
        }
    }
    return directory;
}

bool remove_by_rm(const std::string& directory) {
    const char* argv[] = {"rm", "-r", directory.c_str(), nullptr};
    pid_t pid = -1;
    int status = -1;
    return posix_spawnp(&pid, "rm", nullptr, nullptr, const_cast<char**>(argv), environ) == 0 &&
           waitpid(pid, &status, 0) == pid && status == 0;
}

// The directory itself as well, as rm does it.
bool remove_by_delete_dir(const std::string& directory) {
    return vask_object::delete_dir(directory.c_str()) && rmdir(directory.c_str()) == 0;
}

struct tree_kind {
    const char* name;
    std::string (*make)();
    const char* limit;
};

struct remover_kind {
    const char* name;
    bool (*remove)(const std::string&);
    void (*describe)(benchmark::State& state, const tree_kind& tree);
};

void remove_directory(benchmark::State& state, const tree_kind& tree, const remover_kind& remover) {
    using clock = std::chrono::steady_clock;
    for (auto _ : state) {
        const std::string directory = tree.make();
        const clock::time_point start = clock::now();
        const bool removed = remover.remove(directory);
        state.SetIterationTime(std::chrono::duration<double>(clock::now() - start).count());
        if (!removed || access(directory.c_str(), F_OK) == 0) {
            state.SkipWithError("The directory is still there");
            break;
        }
    }
    remover.describe(state, tree);
}

const tree_kind trees[] = {{"10,000 files", make_full_directory, "0.95"},
                           {"400 levels", make_deep_directory, "0.92"},
                           {"a tree of 10,000 files", make_tree, "0.95"}};

const remover_kind removers[] = {
    {"rm -r", remove_by_rm, [](benchmark::State& state, const tree_kind&) { is_baseline(state); }},
    {"delete_dir", remove_by_delete_dir,
     [](benchmark::State& state, const tree_kind& tree) { has_ratio_limit(state, tree.limit); }},
};

bool register_all() {
    for (const tree_kind& tree : trees) {
        for (const remover_kind& remover : removers) {
            const std::string name = std::string("Removal of ") + tree.name + "/" + remover.name;
            benchmark::RegisterBenchmark(name.c_str(), [&](benchmark::State& state) {
                remove_directory(state, tree, remover);
            })->UseManualTime();
        }
    }
    return true;
}

const bool registered = register_all();

}  // namespace
