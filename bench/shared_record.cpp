// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// An access to the shared record, against the semaphore calls it is made of and against a robust
// mutex; and the first access.

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include "support/shared_value.h"
#include "table_row.h"
#include "vask_object.h"
#include "vask_shared_info.h"

namespace {

using clock_type = std::chrono::steady_clock;

// One way to read and write a number that all processes share.
class way {
public:
    virtual ~way() = default;
    virtual int get() = 0;
    virtual bool set(int value) = 0;
};

class library_way : public way {
public:
    int get() override { return vask_object::get_monitor_rotation(); }
    bool set(int value) override {
        return vask_object::set_monitor_rotation(static_cast<vask_monitor_rotation_type>(value));
    }
};

class bare_sem_way : public way {
public:
    bare_sem_way() : m_sem(sem_open("bench_shared_record", O_CREAT, 0600, 1)) {
        if (m_sem == SEM_FAILED) {
            abort();
        }
    }
    ~bare_sem_way() override {
        sem_close(m_sem);
        sem_unlink("bench_shared_record");
    }

    int get() override {
        sem_wait(m_sem);
        const int value = m_value->load(std::memory_order_relaxed);
        sem_post(m_sem);
        return value;
    }
    bool set(int value) override {
        sem_wait(m_sem);
        m_value->store(value, std::memory_order_relaxed);
        return sem_post(m_sem) == 0;
    }

private:
    sem_t* const m_sem;
    const shared_value<std::atomic<int>> m_value;
};

// With the signals blocked, as a process has to that may be ended by one.
class undisturbed_sem_way : public bare_sem_way {
public:
    bool set(int value) override {
        sigset_t all;
        sigset_t former;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &former);
        const bool succeeded = bare_sem_way::set(value);
        pthread_sigmask(SIG_SETMASK, &former, nullptr);
        return succeeded;
    }
};

class robust_mutex_way : public way {
public:
    robust_mutex_way() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
        pthread_mutex_init(&m_record->mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~robust_mutex_way() override { pthread_mutex_destroy(&m_record->mutex); }

    int get() override {
        lock();
        const int value = m_record->value.load(std::memory_order_relaxed);
        pthread_mutex_unlock(&m_record->mutex);
        return value;
    }
    bool set(int value) override {
        lock();
        m_record->value.store(value, std::memory_order_relaxed);
        return pthread_mutex_unlock(&m_record->mutex) == 0;
    }

private:
    struct record {
        pthread_mutex_t mutex;
        std::atomic<int> value;
    };

    void lock() {
        if (pthread_mutex_lock(&m_record->mutex) == EOWNERDEAD) {
            pthread_mutex_consistent(&m_record->mutex);
        }
    }

    const shared_value<record> m_record;
};

void forget_record(bool destroy) {
    if (!vask_object::m_shared_info->unmap_shared_info(destroy)) {
        abort();
    }
}

constexpr int accesses = 50000;

// Processes that do the same as fast as they can, each as often as the one that is looked at.
class rivals {
public:
    template <typename Access>
    rivals(int count, const Access& access) {
        for (int i = 0; i < count; ++i) {
            const pid_t pid = fork();
            if (pid == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                _exit(run(access) ? 0 : 1);
            }
            m_pids.push_back(pid);
        }
        while (*m_ready != count) {
            usleep(100);
        }
    }

    void start() { *m_may_start = true; }

    // Whether all accesses succeeded.
    bool wait() {
        bool succeeded = true;
        for (const pid_t pid : m_pids) {
            int status = -1;
            waitpid(pid, &status, 0);
            succeeded = succeeded && status == 0;
        }
        return succeeded;
    }

private:
    template <typename Access>
    bool run(const Access& access) {
        ++*m_ready;
        while (!*m_may_start) {
            usleep(100);
        }
        bool succeeded = true;
        for (int i = 0; i < accesses; ++i) {
            succeeded = access() && succeeded;
        }
        return succeeded;
    }

    const shared_value<std::atomic<int>> m_ready;
    const shared_value<std::atomic<bool>> m_may_start;
    std::vector<pid_t> m_pids;
};

bool is_rotation(int value) {
    return value >= 0 && value <= 3;
}

template <typename Way>
void get_alone(benchmark::State& state) {
    Way subject;
    subject.set(3);
    for (auto _ : state) {
        if (!is_rotation(subject.get())) {
            state.SkipWithError("A value that nobody wrote");
            break;
        }
    }
}

template <typename Way>
void set_alone(benchmark::State& state) {
    Way subject;
    int value = 0;
    for (auto _ : state) {
        if (!subject.set(value++ % 4)) {
            state.SkipWithError("The setter failed");
            break;
        }
    }
}

// Until the last process is through, since the scheduler decides who is the first.
template <typename Way>
void beside_rivals(benchmark::State& state, int rival_count, bool (*access)(Way&),
                   bool (*rival_access)(Way&)) {
    Way subject;
    subject.set(3);
    for (auto _ : state) {
        rivals others(rival_count, [&] { return rival_access(subject); });
        const clock_type::time_point start = clock_type::now();
        others.start();
        bool succeeded = true;
        for (int i = 0; i < accesses; ++i) {
            succeeded = access(subject) && succeeded;
        }
        succeeded = others.wait() && succeeded;
        const std::chrono::duration<double> elapsed = clock_type::now() - start;
        if (!succeeded) {
            state.SkipWithError("An access failed");
            break;
        }
        state.SetIterationTime(elapsed.count());
    }
}

template <typename Way>
bool get_once(Way& subject) {
    return is_rotation(subject.get());
}

template <typename Way>
bool set_once(Way& subject) {
    return subject.set(2);
}

// Whatever this process is pinned to.
cpu_set_t processors_there_are() {
    cpu_set_t all;
    memset(&all, 0xff, sizeof all);
    cpu_set_t former;
    sched_getaffinity(0, sizeof former, &former);
    sched_setaffinity(0, sizeof all, &all);
    sched_getaffinity(0, sizeof all, &all);
    sched_setaffinity(0, sizeof former, &former);
    return all;
}

// This process and those that it starts run on two processors, wherever everything else is pinned.
class on_two_processors {
public:
    on_two_processors() {
        sched_getaffinity(0, sizeof m_former, &m_former);
        const cpu_set_t all = processors_there_are();
        cpu_set_t two;
        CPU_ZERO(&two);
        for (int cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&two) < 2; ++cpu) {
            if (CPU_ISSET(cpu, &all)) {
                CPU_SET(cpu, &two);
            }
        }
        sched_setaffinity(0, sizeof two, &two);
    }
    ~on_two_processors() { sched_setaffinity(0, sizeof m_former, &m_former); }
    on_two_processors(const on_two_processors&) = delete;
    on_two_processors& operator=(const on_two_processors&) = delete;

private:
    cpu_set_t m_former;
};

// As short as a program can do it that trusts everybody.
bool create_by_bare_calls(bool create) {
    sem_t* sem = sem_open("bench_shared_record", create ? O_CREAT : 0, 0600, 1);
    sem_wait(sem);
    const int fd = shm_open("bench_shared_record", create ? O_RDWR | O_CREAT : O_RDWR, 0600);
    if (create && ftruncate(fd, sizeof(vk_shared_info)) != 0) {
        return false;
    }
    void* address =
        mmap(nullptr, sizeof(vk_shared_info), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (create) {
        static_cast<vk_shared_info*>(address)->monitor_rotation = VASK_MONITOR_ROTATION_NOT_SET;
    }
    sem_post(sem);
    sem_wait(sem);
    const int rotation = static_cast<vk_shared_info*>(address)->monitor_rotation;
    sem_post(sem);
    munmap(address, sizeof(vk_shared_info));
    sem_close(sem);
    return rotation == VASK_MONITOR_ROTATION_NOT_SET;
}

void remove_bare_objects() {
    shm_unlink("bench_shared_record");
    sem_unlink("bench_shared_record");
}

void bare_first_access(benchmark::State& state, bool creates) {
    if (!creates) {
        create_by_bare_calls(true);
    }
    for (auto _ : state) {
        if (!create_by_bare_calls(creates)) {
            state.SkipWithError("No fresh record");
            break;
        }
        if (creates) {
            remove_bare_objects();
        }
    }
    remove_bare_objects();
    is_baseline(state);
}

void first_access(benchmark::State& state, bool creates) {
    // Whatever others have set.
    vask_object::get_monitor_rotation();
    forget_record(true);
    vask_object::get_monitor_rotation();
    forget_record(creates);
    for (auto _ : state) {
        if (vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_NOT_SET) {
            state.SkipWithError("No fresh record");
            break;
        }
        forget_record(creates);
    }
    vask_object::get_monitor_rotation();
    forget_record(true);
}

// The record of the machine is not ours to change.
void enter_private_dev_shm() {
    if ((unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) != 0) {
        perror("No /dev/shm of our own");
        exit(1);
    }
}

void add(const std::string& name, const std::function<void(benchmark::State&)>& body) {
    benchmark::RegisterBenchmark(name.c_str(), body)->UseRealTime();
}

using body = std::function<void(benchmark::State&)>;

body as_baseline(const body& inner) {
    return [inner](benchmark::State& state) {
        inner(state);
        is_baseline(state);
    };
}

body limited(const body& inner, const char* ratio) {
    return [inner, ratio](benchmark::State& state) {
        inner(state);
        has_ratio_limit(state, ratio);
    };
}

void add_alone() {
    const std::string get = "Get the rotation/";
    add(get + "sem_wait and sem_post", as_baseline(get_alone<bare_sem_way>));
    add(get + "get_monitor_rotation", limited(get_alone<library_way>, "2.00"));
    add(get + "robust pthread mutex", get_alone<robust_mutex_way>);
    const std::string set = "Set the rotation/";
    add(set + "sem_wait and sem_post, signals blocked",
        as_baseline(set_alone<undisturbed_sem_way>));
    add(set + "set_monitor_rotation", limited(set_alone<library_way>, "2.00"));
    add(set + "sem_wait and sem_post", set_alone<bare_sem_way>);
    add(set + "robust pthread mutex", set_alone<robust_mutex_way>);
}

template <typename Way>
body beside(int rival_count, bool (*access)(Way&)) {
    return [=](benchmark::State& state) {
        beside_rivals<Way>(state, rival_count, access, set_once<Way>);
    };
}

void add_timed(const std::string& name, const body& inner) {
    benchmark::RegisterBenchmark(name.c_str(), inner)->UseManualTime();
}

void add_beside(int rival_count) {
    const std::string end = rival_count == 1
                                ? " beside one process that sets/"
                                : " beside " + std::to_string(rival_count) + " processes that set/";
    const std::string get = "50,000 gets" + end;
    add_timed(get + "sem_wait and sem_post, signals blocked",
              as_baseline(beside(rival_count, get_once<undisturbed_sem_way>)));
    add_timed(get + "get_monitor_rotation",
              limited(beside(rival_count, get_once<library_way>), "1.10"));
    add_timed(get + "sem_wait and sem_post", beside(rival_count, get_once<bare_sem_way>));
    add_timed(get + "robust pthread mutex", beside(rival_count, get_once<robust_mutex_way>));
    const std::string set = "50,000 sets" + end;
    add_timed(set + "sem_wait and sem_post, signals blocked",
              as_baseline(beside(rival_count, set_once<undisturbed_sem_way>)));
    add_timed(set + "set_monitor_rotation",
              limited(beside(rival_count, set_once<library_way>), "1.10"));
    add_timed(set + "sem_wait and sem_post", beside(rival_count, set_once<bare_sem_way>));
    add_timed(set + "robust pthread mutex", beside(rival_count, set_once<robust_mutex_way>));
}

constexpr int rivals_on_two_processors = 8;

template <typename Way>
body on_both(bool (*access)(Way&)) {
    return [=](benchmark::State& state) {
        const on_two_processors unpinned;
        beside_rivals<Way>(state, rivals_on_two_processors, access, access);
    };
}

// A holder and those that wait run at the same time there.
void add_on_two_processors() {
    const std::string get = "50,000 gets beside 8 processes that get, on two CPUs/";
    add_timed(get + "robust pthread mutex", as_baseline(on_both(get_once<robust_mutex_way>)));
    add_timed(get + "get_monitor_rotation", limited(on_both(get_once<library_way>), "0.60"));
    add_timed(get + "sem_wait and sem_post", on_both(get_once<bare_sem_way>));
    const std::string set = "50,000 sets beside 8 processes that set, on two CPUs/";
    add_timed(set + "sem_wait and sem_post, signals blocked",
              as_baseline(on_both(set_once<undisturbed_sem_way>)));
    add_timed(set + "set_monitor_rotation", limited(on_both(set_once<library_way>), "1.10"));
    add_timed(set + "sem_wait and sem_post", on_both(set_once<bare_sem_way>));
    add_timed(set + "robust pthread mutex", on_both(set_once<robust_mutex_way>));
}

bool register_all() {
    enter_private_dev_shm();
    add_alone();
    for (const int rival_count : {1, 4, 8}) {
        add_beside(rival_count);
    }
    const cpu_set_t processors = processors_there_are();
    if (CPU_COUNT(&processors) >= 2) {
        add_on_two_processors();
    }
    add("First access, creating the record/bare calls",
        [](benchmark::State& s) { bare_first_access(s, true); });
    add("First access, creating the record/get_monitor_rotation",
        [](benchmark::State& s) { first_access(s, true); });
    add("First access, finding the record/bare calls",
        [](benchmark::State& s) { bare_first_access(s, false); });
    add("First access, finding the record/get_monitor_rotation",
        [](benchmark::State& s) { first_access(s, false); });
    return true;
}

const bool registered = register_all();

}  // namespace
