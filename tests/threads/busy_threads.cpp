// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "threads/busy_threads.h"

#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "support/named_object.h"
#include "vask_shared_info.h"

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

bool use_registry() {
    named_object own("busy");
    // A process is registered once.
    return own.store_pid_to_shm(0) && own.find_stored_pid_from_shm("busy").count(0) == 1;
}

bool start_and_end_by_the_library() {
    const strlist argv = {"/bin/sleep", "1000"};
    const strlist envs;
    int pid = 0;
    int status = 0;
    return vask_object::spawn_async(&argv, &envs, &pid, nullptr) &&
           vask_object::is_process_alive(pid) && vask_object::kill_process(pid) &&
           TEMP_FAILURE_RETRY(waitpid(pid, &status, 0)) == pid && WIFSIGNALED(status) &&
           WTERMSIG(status) == SIGTERM;
}

bool take_texts_apart() {
    return vask_object::split("a,b", ',', "") == std::vector<std::string>{"a", "b"} &&
           vask_object::split_first("a=b=c", '=', "") == std::vector<std::string>{"a", "b=c"} &&
           vask_object::strip("a b", ' ', "") == "ab" && vask_object::is_number("17") &&
           vask_object::valid_ip_addr("127.0.0.1") && vask_object::calc_ge_pow2(5) == 8;
}

bool make_and_delete_directories(const std::string& directory) {
    return vask_object::make_dir_if_necessary((directory + "/a/b").c_str(), true) &&
           vask_object::make_dir_if_necessary((directory + "/c").c_str(), true) &&
           vask_object::delete_path((directory + "/c").c_str()) &&
           vask_object::delete_dir(directory.c_str());
}

// Nobody sets it to anything else.
bool use_record() {
    vask_object::set_pseudo_portrait_flag(true);
    return vask_object::get_pseudo_portrait_flag() &&
           vask_object::get_vask_cpu_type(false) != VASK_CPU_ERROR;
}

// To what it is: nobody needs a right for that.
bool use_priorities() {
    named_object own("busy");
    const int thread = vask_object::gettid();
    const int priority = own.get_priority(thread);
    return own.set_priority(thread, priority) && own.get_priority(thread) == priority;
}

// Between taking a turn and ending it.
bool is_alone(std::atomic<int>& holders) {
    const bool was_alone = ++holders == 1;
    std::this_thread::yield();
    --holders;
    return was_alone;
}

}  // namespace

bool take_turn_with_semaphore(const std::string& name) {
    static std::atomic<int> holders{0};
    sem_t* const sem = vask_object::create_named_sem(name.c_str(), 1, 1);
    if (!vask_object::wait_named_sem(sem)) {
        return false;
    }
    const bool was_alone = is_alone(holders);
    return vask_object::post_named_sem(sem) && vask_object::close_named_sem(sem) && was_alone;
}

bool take_turn_with_shared_object(const std::string& name) {
    vask_shared_info info;
    vask_shm_context* const ctx = info.map_shm(name.c_str(), sizeof(int), true);
    if (ctx == nullptr) {
        return false;
    }
    // Atomic, because others write to it if the semaphore does not hold them back.
    auto* const number = static_cast<std::atomic<int>*>(ctx->get_addr());
    const int mine = vask_object::gettid();
    *number = mine;
    std::this_thread::yield();
    const bool was_alone = *number == mine;
    return vask_object::post_named_sem(ctx->get_sem()) && info.unmap_shm(ctx) && was_alone;
}

bool take_turn_with_library_lock() {
    static std::atomic<int> holders{0};
    named_object own("busy");
    if (!own.shm_lock()) {
        return false;
    }
    const bool was_alone = is_alone(holders);
    own.shm_unlock();
    return was_alone;
}

busy_threads::busy_threads() : m_rounds(count) {
    char directory[] = "/tmp/busy_threads_XXXXXX";
    expect(mkdtemp(directory) != nullptr, "mkdtemp");
    m_directory = directory;
    expect(use_record(), "map the record");
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
    vask_object::delete_dir(m_directory.c_str());
    vask_object::m_shared_info->unmap_shared_info(true);
    vask_object::m_shared_info->destroy_shm("busy");
}

std::multiset<std::string> busy_threads::failures() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_failures;
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
    const std::string digits = std::to_string(number);
    own.vask_p(VASK_P_INFO, "thread %d is busy\n", number);
    vask_object::vask_p("busy", VASK_P_INFO, "thread %d says so\n", number);
    expect(run_a_program(), "run_a_program");
    expect(open_descriptors(), "open_descriptors");
    expect(setenv(variable_of(number).c_str(), "again and again", 1) == 0, "setenv");
    expect(start_by_the_library(number), "spawn_sync");
    expect(start_and_end_by_the_library(), "spawn_async");
    expect(use_texts(number), "texts");
    expect(take_texts_apart(), "split");
    expect(make_and_delete_directories(m_directory + "/" + digits), "directories");
    expect(use_priorities(), "priorities");
    expect(use_registry(), "registry");
    // Whoever waits for 5 s breaks the lock, so it is not asked here whether it excludes.
    take_turn_with_library_lock();
    expect(use_record(), "record");
    expect(take_turn_with_semaphore("test_busy"), "semaphore");
    expect(take_turn_with_shared_object("busy"), "shared object");
}

void busy_threads::expect(bool holds, const char* name) {
    if (!holds) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_failures.insert(name);
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
