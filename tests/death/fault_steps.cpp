// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "death/fault_steps.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <map>
#include <utility>

#include "support/interpose.h"

namespace vask_test {

namespace {

#ifdef SYS_fcntl64
constexpr long fcntl_call = SYS_fcntl64;
#else
constexpr long fcntl_call = SYS_fcntl;
#endif

constexpr int M = 1, I = 2, S = 4, D = 8, repeated = 16, goes_on = 32;

// The errors that the manual pages of these functions name: want of memory, interruption, want of
// room, want of descriptors.
struct call_kind {
    const char* name;
    int errors;
};

constexpr call_kind kinds[] = {
    {"end", 0},
    {"new", M},
    {"shm_open", M | I | S | D},
    {"shm_unlink", 0},
    {"open", M | I | D},
    {"fopen", M | I | D},
    {"close", I | goes_on},
    {"fstat", M},
    {"stat", M},
    {"fstatvfs", M | I},
    {"ftruncate", I},
    {"fallocate", I | S | goes_on},
    {"pread", M | I},
    {"pwrite", M | I | S | goes_on},
    {"mmap", M},
    {"mremap", M},
    {"munmap", 0},
    {"flock", I | goes_on},
    {"sem_open", M | I | S | D},
    {"sem_trywait", I | repeated | goes_on},
    {"sem_clockwait", I | repeated | goes_on},
    {"sem_wait", I | goes_on},
    {"sem_post", 0},
    {"sem_close", 0},
    {"sem_unlink", 0},
    {"pthread_sigmask", repeated},
    {"kill", 0},
    {"posix_spawn", M | D},
    {"spawn_action", M},
    {"spawn_attribute", M},
    {"spawn_setting", 0},
    {"pidfd_open", M | D},
    {"waitpid", I | repeated | goes_on},
    {"waitpid_nohang", repeated},
    {"waitid", I | repeated | goes_on},
    {"waitid_nohang", repeated},
    {"usleep", I | repeated | goes_on},
    {"fcntl", repeated},
    {"sigtimedwait", I | goes_on},
    {"socket", M | D},
    {"connect", I},
    {"sendmsg", M | I | repeated | goes_on},
    {"recvmsg", M | I | repeated | goes_on},
    {"read", I | repeated | goes_on},
    {"write", I | repeated | goes_on},
    {"poll", M | I | repeated | goes_on},
};

int number_of(const char* call) {
    for (std::size_t i = 0; i < std::size(kinds); ++i) {
        if (strcmp(kinds[i].name, call) == 0) {
            return static_cast<int>(i);
        }
    }
    abort();
}

int bit_of(fault wanted) {
    switch (wanted) {
        case fault::no_memory:
            return M;
        case fault::interruption:
            return I;
        case fault::no_room:
            return S;
        case fault::no_descriptor:
            return D;
        default:
            return 0;
    }
}

int error_of(fault wanted) {
    switch (wanted) {
        case fault::no_memory:
            return ENOMEM;
        case fault::interruption:
            return EINTR;
        case fault::no_room:
            return ENOSPC;
        case fault::no_descriptor:
            return EMFILE;
        default:
            return 0;
    }
}

// A thread that is not counting has none.
thread_local fault_plan* counted = nullptr;
thread_local int turns[std::size(kinds)];
thread_local bool is_inside = false;

int haste_of_process = 1;

// Of another process, as learned_end() tells it.
struct end_of_process {
    pid_t pid;
    int code;
};

thread_local end_of_process last_end = {0, 0};

// When a thread's clock began to hurry, in nanoseconds; 0: it does not.
thread_local long long hurried_since = 0;

long long nanoseconds_of(const timespec& time) {
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

timespec time_of(long long nanoseconds) {
    return {static_cast<time_t>(nanoseconds / 1000000000),
            static_cast<long>(nanoseconds % 1000000000)};
}

void raise_at_once(int number) {
    syscall(SYS_tgkill, syscall(SYS_getpid), syscall(SYS_gettid), number);
}

// 0, or the error with which the call has to fail.
int strike(fault wanted) {
    switch (wanted) {
        case fault::sigkill:
            raise_at_once(SIGKILL);
            return 0;
        case fault::sigterm:
            raise_at_once(SIGTERM);
            return 0;
        case fault::stop:
        case fault::rob:
            raise_at_once(SIGSTOP);
            return 0;
        default:
            return error_of(wanted);
    }
}

// Counts a call. 0, or the error with which it has to fail.
int step(const char* call) {
    fault_plan* const plan = counted;
    if (plan == nullptr || is_inside) {
        return 0;
    }
    is_inside = true;
    const int kind = number_of(call);
    ++turns[kind];
    const int place = plan->steps++;
    if (place < fault_plan::most_steps) {
        plan->trace[static_cast<std::size_t>(place)] = static_cast<unsigned char>(kind);
    }
    int error = 0;
    if (plan->wanted != fault::none && turns[kind] == plan->turn && strcmp(plan->call, call) == 0) {
        plan->has_struck = true;
        error = strike(plan->wanted);
    }
    is_inside = false;
    return error;
}

template <typename Function, typename... Arguments>
auto call_next(const char* name, Arguments... arguments) {
    return next_function<Function>(name)(arguments...);
}

}  // namespace

bool fails(const char* call) {
    const int error = step(call);
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

const char* fault_name(fault wanted) {
    static const char* const names[] = {"none",   "SIGKILL", "SIGTERM", "SIGSTOP", "robbed",
                                        "ENOMEM", "EINTR",   "ENOSPC",  "EMFILE"};
    return names[static_cast<int>(wanted)];
}

bool is_slow(fault wanted) {
    return wanted == fault::stop || wanted == fault::rob;
}

bool ends_victim(fault wanted) {
    return wanted == fault::sigkill || wanted == fault::sigterm;
}

bool can_happen(const std::string& call, fault wanted) {
    const int bit = bit_of(wanted);
    return bit == 0 || (kinds[number_of(call.c_str())].errors & bit) != 0;
}

bool is_repeated(const std::string& call) {
    return (kinds[number_of(call.c_str())].errors & repeated) != 0;
}

bool goes_on_after(const std::string& call, fault wanted) {
    return wanted == fault::interruption && (kinds[number_of(call.c_str())].errors & goes_on) != 0;
}

shared_plan::shared_plan(std::string path) : m_path(std::move(path)) {
    const int fd = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0 || ::ftruncate(fd, sizeof(fault_plan)) != 0) {
        abort();
    }
    m_plan = static_cast<fault_plan*>(mmap_by_system_call(
        nullptr, sizeof(fault_plan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    if (m_plan == MAP_FAILED) {
        abort();
    }
    ::close(fd);
}

shared_plan::~shared_plan() {
    ::munmap(m_plan, sizeof(fault_plan));
}

double monotonic_seconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void divide_waits(int haste) {
    haste_of_process = haste;
}

std::optional<int> learned_end(pid_t pid) {
    return last_end.pid == pid ? std::optional<int>(last_end.code) : std::nullopt;
}

hurried_clock::hurried_clock() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    hurried_since = nanoseconds_of(now);
}

hurried_clock::~hurried_clock() {
    hurried_since = 0;
}

void begin_steps(fault_plan& plan) {
    std::fill(std::begin(turns), std::end(turns), 0);
    plan.victim = getpid();
    plan.began = monotonic_seconds();
    counted = &plan;
}

void end_steps() {
    if (fault_plan* const plan = counted) {
        step("end");
        counted = nullptr;
        plan->ended = monotonic_seconds();
    }
}

std::vector<fail_point> recorded_steps(const fault_plan& plan) {
    constexpr int turns_of_repeated = 2;
    std::map<int, int> seen;
    std::vector<fail_point> steps;
    const int count = std::min(plan.steps.load(), fault_plan::most_steps);
    for (int i = 0; i < count; ++i) {
        const int kind = plan.trace[static_cast<std::size_t>(i)];
        const int turn = ++seen[kind];
        if ((kinds[kind].errors & repeated) == 0 || turn <= turns_of_repeated) {
            steps.push_back({kinds[kind].name, turn});
        }
    }
    return steps;
}

}  // namespace vask_test

using namespace vask_test;

extern "C" {

int shm_open(const char* name, int flags, mode_t mode) {
    return fails("shm_open")
               ? -1
               : call_next<int(const char*, int, mode_t)>("shm_open", name, flags, mode);
}

int shm_unlink(const char* name) {
    return fails("shm_unlink") ? -1 : call_next<int(const char*)>("shm_unlink", name);
}

int open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return fails("open")
               ? -1
               : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode));
}

FILE* fopen(const char* path, const char* mode) {
    return fails("fopen")
               ? nullptr
               : next_file_function<FILE*(const char*, const char*)>("fopen")(path, mode);
}

// The descriptor is gone whatever it says.
int close(int fd) {
    const bool is_interrupted = fails("close");
    const int result = static_cast<int>(syscall(SYS_close, fd));
    if (is_interrupted) {
        errno = EINTR;
    }
    return is_interrupted ? -1 : result;
}

int fstat(int fd, struct stat* info) noexcept {
    return fails("fstat") ? -1 : next_fstat(fd, info);
}

int stat(const char* path, struct stat* info) noexcept {
    if (fails("stat")) {
        return -1;
    }
    using function = int(const char*, struct stat*);
    return sizeof(time_t) > sizeof(long) ? next_function<function>("__stat64_time64")(path, info)
                                         : next_file_function<function>("stat")(path, info);
}

int fstatvfs(int fd, struct statvfs* info) noexcept {
    return fails("fstatvfs") ? -1
                             : next_file_function<int(int, struct statvfs*)>("fstatvfs")(fd, info);
}

// Nobody waits for a lock by it or makes a descriptor, so it has none of the errors.
int fcntl(int fd, int command, ...) {
    va_list args;
    va_start(args, command);
    const long argument = va_arg(args, long);
    va_end(args);
    return fails("fcntl") ? -1 : static_cast<int>(syscall(fcntl_call, fd, command, argument));
}

int ftruncate(int fd, off_t size) noexcept {
    return fails("ftruncate") ? -1 : next_file_function<int(int, off_t)>("ftruncate")(fd, size);
}

int fallocate(int fd, int mode, off_t from, off_t length) {
    return fails("fallocate") ? -1
                              : next_file_function<int(int, int, off_t, off_t)>("fallocate")(
                                    fd, mode, from, length);
}

ssize_t pread(int fd, void* bytes, size_t size, off_t offset) {
    return fails("pread") ? -1
                          : next_file_function<ssize_t(int, void*, size_t, off_t)>("pread")(
                                fd, bytes, size, offset);
}

ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
    return fails("pwrite") ? -1
                           : next_file_function<ssize_t(int, const void*, size_t, off_t)>("pwrite")(
                                 fd, bytes, size, offset);
}

void* mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
    return fails("mmap") ? MAP_FAILED
                         : mmap_by_system_call(address, size, protection, flags, fd, offset);
}

void* mremap(void* address, size_t old_size, size_t new_size, int flags, ...) noexcept {
    return fails("mremap") ? MAP_FAILED
                           : reinterpret_cast<void*>(
                                 syscall(SYS_mremap, address, old_size, new_size, flags, 0));
}

int munmap(void* address, size_t size) noexcept {
    return fails("munmap") ? -1 : static_cast<int>(syscall(SYS_munmap, address, size));
}

int flock(int fd, int operation) noexcept {
    return fails("flock") ? -1 : call_next<int(int, int)>("flock", fd, operation);
}

sem_t* sem_open(const char* name, int flags, ...) noexcept {
    if (fails("sem_open")) {
        return SEM_FAILED;
    }
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    const unsigned int value = (flags & O_CREAT) != 0 ? va_arg(args, unsigned int) : 0;
    va_end(args);
    return call_next<sem_t*(const char*, int, mode_t, unsigned int)>("sem_open", name, flags, mode,
                                                                     value);
}

int sem_trywait(sem_t* sem) noexcept {
    return fails("sem_trywait") ? -1 : call_next<int(sem_t*)>("sem_trywait", sem);
}

int sem_clockwait(sem_t* sem, clockid_t clock, const timespec* deadline) {
    if (fails("sem_clockwait")) {
        return -1;
    }
    timespec end = *deadline;
    if (haste_of_process > 1) {
        timespec now = {};
        clock_gettime(clock, &now);
        const long long from = nanoseconds_of(now);
        end = time_of(from + (nanoseconds_of(end) - from) / haste_of_process);
    }
    return next_time_function<int(sem_t*, clockid_t, const timespec*)>("sem_clockwait")(sem, clock,
                                                                                        &end);
}

// Fifty short waits yield a hundred times and more: on a full machine far longer than a hurried
// wait.
int sched_yield() noexcept {
    return haste_of_process > 1 ? 0 : call_next<int()>("sched_yield");
}

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const int result = next_time_function<int(clockid_t, timespec*)>("clock_gettime")(clock, now);
    if (hurried_since != 0 && clock == CLOCK_MONOTONIC) {
        const long long passed = nanoseconds_of(*now) - hurried_since;
        *now = time_of(hurried_since + passed * haste_of_process);
    }
    return result;
}

int sem_wait(sem_t* sem) {
    return fails("sem_wait") ? -1 : call_next<int(sem_t*)>("sem_wait", sem);
}

int sem_post(sem_t* sem) noexcept {
    return fails("sem_post") ? -1 : call_next<int(sem_t*)>("sem_post", sem);
}

int sem_close(sem_t* sem) noexcept {
    return fails("sem_close") ? -1 : call_next<int(sem_t*)>("sem_close", sem);
}

int sem_unlink(const char* name) noexcept {
    return fails("sem_unlink") ? -1 : call_next<int(const char*)>("sem_unlink", name);
}

int pthread_sigmask(int how, const sigset_t* set, sigset_t* former) noexcept {
    const int error = step("pthread_sigmask");
    return error != 0 ? error
                      : call_next<int(int, const sigset_t*, sigset_t*)>("pthread_sigmask", how, set,
                                                                        former);
}

int kill(pid_t pid, int number) noexcept {
    return fails("kill") ? -1 : static_cast<int>(syscall(SYS_kill, pid, number));
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const argv[], char* const envp[]) {
    using function = int(pid_t*, const char*, const posix_spawn_file_actions_t*,
                         const posix_spawnattr_t*, char* const*, char* const*);
    const int error = step("posix_spawn");
    return error != 0
               ? error
               : call_next<function>("posix_spawn", pid, path, actions, attributes, argv, envp);
}

int posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions) noexcept {
    const int error = step("spawn_action");
    return error != 0 ? error
                      : call_next<int(posix_spawn_file_actions_t*)>("posix_spawn_file_actions_init",
                                                                    actions);
}

int posix_spawnattr_init(posix_spawnattr_t* attributes) noexcept {
    const int error = step("spawn_attribute");
    return error != 0 ? error
                      : call_next<int(posix_spawnattr_t*)>("posix_spawnattr_init", attributes);
}

int posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags) noexcept {
    const int error = step("spawn_setting");
    return error != 0 ? error
                      : call_next<int(posix_spawnattr_t*, short)>("posix_spawnattr_setflags",
                                                                  attributes, flags);
}

int posix_spawnattr_setsigdefault(posix_spawnattr_t* attributes, const sigset_t* set) noexcept {
    const int error = step("spawn_setting");
    return error != 0 ? error
                      : call_next<int(posix_spawnattr_t*, const sigset_t*)>(
                            "posix_spawnattr_setsigdefault", attributes, set);
}

int posix_spawnattr_setsigmask(posix_spawnattr_t* attributes, const sigset_t* set) noexcept {
    const int error = step("spawn_setting");
    return error != 0 ? error
                      : call_next<int(posix_spawnattr_t*, const sigset_t*)>(
                            "posix_spawnattr_setsigmask", attributes, set);
}

int posix_spawn_file_actions_addopen(posix_spawn_file_actions_t* actions, int fd, const char* path,
                                     int flags, mode_t mode) noexcept {
    using function = int(posix_spawn_file_actions_t*, int, const char*, int, mode_t);
    const int error = step("spawn_action");
    return error != 0 ? error
                      : call_next<function>("posix_spawn_file_actions_addopen", actions, fd, path,
                                            flags, mode);
}

int posix_spawn_file_actions_addclosefrom_np(posix_spawn_file_actions_t* actions, int fd) noexcept {
    const int error = step("spawn_action");
    return error != 0 ? error
                      : call_next<int(posix_spawn_file_actions_t*, int)>(
                            "posix_spawn_file_actions_addclosefrom_np", actions, fd);
}

long syscall(long number, ...) noexcept {
    va_list args;
    va_start(args, number);
    long values[6];
    for (long& value : values) {
        value = va_arg(args, long);
    }
    va_end(args);
    if (number == SYS_pidfd_open && fails("pidfd_open")) {
        return -1;
    }
    static auto* const next = next_function<long(long, ...)>("syscall");
    return next(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}

pid_t waitpid(pid_t pid, int* status, int options) {
    if (fails((options & WNOHANG) != 0 ? "waitpid_nohang" : "waitpid")) {
        return -1;
    }
    int own_status = 0;
    int* const learned = status != nullptr ? status : &own_status;
    const pid_t waited = call_next<pid_t(pid_t, int*, int)>("waitpid", pid, learned, options);
    if (waited > 0) {
        last_end = {waited, WIFEXITED(*learned) ? WEXITSTATUS(*learned) : -WTERMSIG(*learned)};
    }
    return waited;
}

int waitid(idtype_t type, id_t id, siginfo_t* info, int options) {
    if (fails((options & WNOHANG) != 0 ? "waitid_nohang" : "waitid")) {
        return -1;
    }
    const int result =
        call_next<int(idtype_t, id_t, siginfo_t*, int)>("waitid", type, id, info, options);
    if (result == 0 && info != nullptr && info->si_pid != 0) {
        last_end = {info->si_pid, info->si_code == CLD_EXITED ? info->si_status : -info->si_status};
    }
    return result;
}

int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* timeout) {
    return fails("sigtimedwait")
               ? -1
               : next_time_function<int(const sigset_t*, siginfo_t*, const timespec*)>(
                     "sigtimedwait")(set, info, timeout);
}

int usleep(useconds_t usec) {
    return fails("usleep") ? -1 : call_next<int(useconds_t)>("usleep", usec);
}

int socket(int domain, int type, int protocol) noexcept {
    return fails("socket") ? -1 : call_next<int(int, int, int)>("socket", domain, type, protocol);
}

int connect(int fd, const sockaddr* address, socklen_t length) {
    return fails("connect")
               ? -1
               : call_next<int(int, const sockaddr*, socklen_t)>("connect", fd, address, length);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    return fails("sendmsg")
               ? -1
               : call_next<ssize_t(int, const msghdr*, int)>("sendmsg", fd, message, flags);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
    return fails("recvmsg") ? -1
                            : call_next<ssize_t(int, msghdr*, int)>("recvmsg", fd, message, flags);
}

ssize_t read(int fd, void* bytes, size_t size) {
    return fails("read") ? -1 : call_next<ssize_t(int, void*, size_t)>("read", fd, bytes, size);
}

ssize_t write(int fd, const void* bytes, size_t size) {
    return fails("write") ? -1
                          : call_next<ssize_t(int, const void*, size_t)>("write", fd, bytes, size);
}

int poll(pollfd* fds, nfds_t count, int timeout) {
    return fails("poll") ? -1 : call_next<int(pollfd*, nfds_t, int)>("poll", fds, count, timeout);
}

}  // extern "C"
