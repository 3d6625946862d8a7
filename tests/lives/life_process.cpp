// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "life_process.h"

#include <dirent.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <thread>

#include "life.h"
#include "vask_test/timeout_factor.h"

namespace vask_test {

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int longest_life_sec = 90;
constexpr int abort_sec = 5;
constexpr int faulty = 3;
// Not 0: who ends the process in the middle of a life, even in success, has done so by mistake.
constexpr int faultless = 4;
constexpr const char* blame_mark = "WRONG AT THE END: ";

[[noreturn]] void be_born(const program& steps, int output) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close(output);
    std::string blame;
    {
        life the_life;
        blame = the_life.play(steps);
    }
    if (!blame.empty()) {
        std::fprintf(stderr, "%s%s\n", blame_mark, blame.c_str());
    }
    // Not _exit(): what has leaked is found on the way.
    std::exit(blame.empty() ? faultless : faulty);
}

bool ends_within(pid_t pid, int seconds, int* status) {
    const auto end = clock_type::now() + std::chrono::milliseconds(
                                             static_cast<long>(1000 * seconds * timeout_factor()));
    while (waitpid(pid, status, WNOHANG) == 0) {
        if (clock_type::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::string contents_of(int file) {
    std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
    const ssize_t count = pread(file, &text[0], text.size(), 0);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

// Numbers and addresses differ from run to run.
std::string without_numbers(const std::string& text) {
    return std::regex_replace(text, std::regex("0x[0-9a-f]+|[0-9]+"), "N");
}

std::string fault_in(const std::string& output, int status, bool hangs) {
    std::smatch match;
    const std::regex sanitizer("(ERROR: [A-Za-z]*Sanitizer: [^ \n]*|runtime error: [^\n]*)");
    if (std::regex_search(output, match, sanitizer)) {
        return without_numbers(match[1]);
    }
    const std::size_t blame = output.find(blame_mark);
    if (blame != std::string::npos) {
        return without_numbers(output.substr(blame, output.find('\n', blame) - blame));
    }
    if (hangs) {
        return "it does not end";
    }
    if (WIFSIGNALED(status)) {
        return "signal " + std::to_string(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == faultless ? "" : "status " + std::to_string(WEXITSTATUS(status));
}

// A life that was ended may have held a lock; the next one is not to wait for it.
void clean_shared_memory() {
    DIR* directory = opendir("/dev/shm");
    while (const dirent* entry = directory ? readdir(directory) : nullptr) {
        if (std::string(entry->d_name).find("vask_") != std::string::npos) {
            unlinkat(dirfd(directory), entry->d_name, 0);
        }
    }
    closedir(directory);
}

}  // namespace

life_end live(const program& steps) {
    const int output = memfd_create("life", 0);
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        be_born(steps, output);
    }
    int status = 0;
    const bool hangs = !ends_within(pid, longest_life_sec, &status);
    if (hangs) {
        kill(pid, SIGABRT);
        if (!ends_within(pid, abort_sec, &status)) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
        }
    }
    kill(-pid, SIGKILL);
    clean_shared_memory();
    life_end end;
    end.output = contents_of(output);
    end.fault = fault_in(end.output, status, hangs);
    close(output);
    return end;
}

}  // namespace vask_test
