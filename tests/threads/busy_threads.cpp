// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "threads/busy_threads.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "support/named_object.h"

namespace vask_test {

namespace {

std::string variable_of(int number) {
    return "VASK_TEST_BUSY_" + std::to_string(number);
}

// With an environment of its own: the C library would read the host's without a lock.
bool run_a_program() {
    char path[] = "/bin/true";
    char* const argv[] = {path, nullptr};
    char* const envp[] = {nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, path, nullptr, nullptr, argv, envp) != 0) {
        return false;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) == -1) {
        if (errno != EINTR) {
            return false;
        }
    }
    return status == 0;
}

// As libraries do that know nothing of other programs: a child could inherit them.
bool open_descriptors() {
    int ends[2];
    if (pipe(ends) != 0) {
        return false;
    }
    char c = 'x';
    const bool works = write(ends[1], &c, 1) == 1 && read(ends[0], &c, 1) == 1;
    close(ends[0]);
    close(ends[1]);
    return works;
}

bool start_by_the_library(int number) {
    strlist argv = {"/bin/sh", "-c", "echo " + std::to_string(number)};
    strlist envs;
    std::vector<unsigned char> output;
    int status = -1;
    return vask_object::spawn_sync(&argv, &envs, &status, &output, nullptr, nullptr) &&
           status == 0 &&
           std::string(output.begin(), output.end()) == std::to_string(number) + "\n";
}

bool use_texts(int number) {
    const std::string digits = std::to_string(number);
    return vask_object::file_uri_to_local_path("file:///a%20" + digits) == "/a " + digits &&
           vask_object::vask_sprintf("%d and %s", number, digits.c_str()) ==
               digits + " and " + digits &&
           vask_object::vask_snprintf("%s", digits.c_str()) == digits &&
           vask_object::vask_gettime(VASK_TIME_SEC) > 0;
}

bool use_registry(int number) {
    named_object own("busy");
    return own.store_pid_to_shm(0) && own.find_stored_pid_from_shm("busy").count(0) == 1 &&
           number >= 0;
}

}  // namespace

busy_threads::busy_threads() : m_rounds(count) {
    for (int i = 0; i < count; ++i) {
        setenv(variable_of(i).c_str(), "at first", 1);
    }
    for (int i = 0; i < count; ++i) {
        m_threads.emplace_back([this, i] { work(i); });
    }
}

busy_threads::~busy_threads() {
    m_stops = true;
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

void busy_threads::wait_for_rounds(int rounds) const {
    for (const std::atomic<int>& done : m_rounds) {
        while (done < rounds) {
            usleep(1000);
        }
    }
}

void busy_threads::work(int number) {
    while (!m_stops) {
        do_a_round(number);
        ++m_rounds[static_cast<std::size_t>(number)];
    }
}

void busy_threads::do_a_round(int number) {
    const named_object own("busy");
    expect(run_a_program());
    expect(open_descriptors());
    own.vask_p(VASK_P_INFO, "thread %d is busy\n", number);
    vask_object::vask_p("busy", VASK_P_DBG, "thread %d says so\n", number);
    expect(setenv(variable_of(number).c_str(), "again and again", 1) == 0);
    expect(start_by_the_library(number));
    expect(use_texts(number));
    expect(use_registry(number));
}

void busy_threads::expect(bool holds) {
    if (!holds) {
        ++m_failures;
    }
}

void in_threads(int count, const std::function<void(int)>& function) {
    std::atomic<bool> begins{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            while (!begins) {
            }
            function(i);
        });
    }
    begins = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace vask_test
