// Removing a directory of 10,000 files.

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "table_row.h"
#include "vask_object.h"

namespace {

constexpr int files = 10000;

std::string make_full_directory() {
    char name[] = "/tmp/bench_XXXXXX";
    const std::string directory = mkdtemp(name);
    for (int i = 0; i < files; ++i) {
        const std::string path = directory + "/file" + std::to_string(i);
        close(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
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

void remove_directory(benchmark::State& state, bool (*remove)(const std::string&)) {
    using clock = std::chrono::steady_clock;
    for (auto _ : state) {
        const std::string directory = make_full_directory();
        const clock::time_point start = clock::now();
        const bool removed = remove(directory);
        state.SetIterationTime(std::chrono::duration<double>(clock::now() - start).count());
        if (!removed || access(directory.c_str(), F_OK) == 0) {
            state.SkipWithError("The directory is still there");
            break;
        }
    }
}

void rm(benchmark::State& state) {
    remove_directory(state, remove_by_rm);
    is_baseline(state);
}

void delete_dir(benchmark::State& state) {
    remove_directory(state, remove_by_delete_dir);
}

BENCHMARK(rm)->Name("Removal of 10,000 files/rm -r")->UseManualTime();
BENCHMARK(delete_dir)->Name("Removal of 10,000 files/delete_dir")->UseManualTime();

}  // namespace
