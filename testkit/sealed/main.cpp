// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "open_world.h"
#include "private_servers.h"
#include "private_world.h"
#include "vask_test/process_list.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;

namespace {

using clock_type = std::chrono::steady_clock;

enum exit_code {
    leftover = 1,
    usage = 2,
    no_world = 77,
    timed_out = 124,
    no_server = 125,
};

constexpr double server_start_seconds = 30;
constexpr double straggler_seconds = 5;
constexpr double abort_seconds = 5;

struct options {
    bool bus = false;
    bool display = false;
    bool may_leave_shared_memory = false;
    bool tells_of_world = false;
    double timeout_seconds = 120;
    std::vector<std::string> command;
};

void complain(const std::string& text) {
    std::fprintf(stderr, "vask-sealed: %s\n", text.c_str());
}

bool parse(int argc, char** argv, options* result) {
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        const std::string option = argv[i];
        if (option == "--bus") {
            result->bus = true;
        } else if (option == "--display") {
            result->display = true;
        } else if (option == "--may-leave-shared-memory") {
            result->may_leave_shared_memory = true;
        } else if (option == "--tell") {
            result->tells_of_world = true;
        } else if (option == "--timeout" && i + 1 < argc) {
            result->timeout_seconds = std::strtod(argv[++i], nullptr);
        } else if (option == "--") {
            ++i;
            break;
        } else {
            return false;
        }
    }
    result->command.assign(argv + i, argv + argc);
    return result->command.empty() == result->tells_of_world && result->timeout_seconds > 0;
}

// Which disturbs nobody, and must work where no test can run.
bool only_lists_tests(const std::vector<std::string>& command) {
    return std::find(command.begin(), command.end(), "--gtest_list_tests") != command.end();
}

clock_type::time_point deadline_after(double seconds) {
    return clock_type::now() + std::chrono::duration_cast<clock_type::duration>(
                                   std::chrono::duration<double>(seconds * timeout_factor()));
}

int exit_code_of(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/** Runs the servers and the test program, and inspects the end. Whatever they leave is its child.
 */
class warden {
public:
    /** In the open world that is given, or as process 1 of a private one. */
    explicit warden(const options& wanted, const open_world* open = nullptr)
        : m_wanted(wanted),
          m_open(open),
          m_directory(open ? open->directory() : private_directory),
          m_bus(m_directory),
          m_display(m_directory) {
        sigset_t child_ended;
        sigemptyset(&child_ended);
        sigaddset(&child_ended, SIGCHLD);
        sigprocmask(SIG_BLOCK, &child_ended, &m_original_mask);
    }

    int run() {
        seal_environment(m_directory);
        const int result = run_test();
        // The end of process 1 ends the others as well.
        if (m_open) {
            end_all_processes();
        }
        return result;
    }

private:
    int run_test() {
        if (!start_servers()) {
            return no_server;
        }
        m_test = spawn(m_wanted.command, m_original_mask);
        if (!wait_for_test(deadline_after(m_wanted.timeout_seconds))) {
            report_timeout();
            kill(m_test, SIGABRT);
            wait_for_test(deadline_after(abort_seconds));
            return timed_out;
        }
        const bool clean = left_nothing_behind();
        const int result = exit_code_of(m_test_status);
        return result == 0 && !clean ? static_cast<int>(leftover) : result;
    }

    void end_all_processes() {
        const auto deadline = deadline_after(abort_seconds);
        std::vector<process_entry> processes = list_descendants(getpid());
        while (!processes.empty() && clock_type::now() < deadline) {
            for (const process_entry& process : processes) {
                kill(process.pid, SIGKILL);
            }
            sleep_until_child_ends(std::chrono::milliseconds(10));
            reap();
            processes = list_descendants(getpid());
        }
    }

    bool start_servers() {
        if (m_wanted.bus) {
            m_bus.start_bus(m_original_mask);
        }
        if (m_wanted.display) {
            m_display.start_display(m_original_mask);
        }
        return (!m_wanted.bus || await(m_bus, "dbus-daemon", "DBUS_SESSION_BUS_ADDRESS", "")) &&
               (!m_wanted.display || await(m_display, "Xvfb", "DISPLAY", ":"));
    }

    static bool await(private_server& server, const char* name, const char* variable,
                      const std::string& prefix) {
        const int msec = static_cast<int>(server_start_seconds * timeout_factor() * 1000);
        const std::string address = server.wait_for_address(msec);
        if (address.empty()) {
            complain(std::string(name) + " did not start: " + server.log());
            return false;
        }
        setenv(variable, (prefix + address).c_str(), 1);
        return true;
    }

    void reap() {
        int status;
        pid_t pid;
        while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
            if (pid != m_test) {
                continue;
            }
            m_test_status = status;
            m_test_ended = true;
        }
    }

    static void sleep_until_child_ends(clock_type::duration at_most) {
        using namespace std::chrono;
        const auto nsec = duration_cast<nanoseconds>(at_most).count();
        const timespec limit = {static_cast<time_t>(nsec / 1000000000),
                                static_cast<long>(nsec % 1000000000)};
        sigset_t child_ended;
        sigemptyset(&child_ended);
        sigaddset(&child_ended, SIGCHLD);
        sigtimedwait(&child_ended, nullptr, &limit);
    }

    bool wait_for_test(clock_type::time_point deadline) {
        for (;;) {
            reap();
            if (m_test_ended) {
                return true;
            }
            const auto left = deadline - clock_type::now();
            if (left <= clock_type::duration::zero()) {
                return false;
            }
            sleep_until_child_ends(left);
        }
    }

    bool belongs_to_servers(pid_t pid) const {
        return pid > 0 && (pid == m_bus.pid() || pid == m_display.pid());
    }

    std::vector<process_entry> foreign_processes() const {
        std::vector<process_entry> result;
        for (const process_entry& process : list_descendants(getpid())) {
            if (!belongs_to_servers(process.pid) && !belongs_to_servers(process.parent)) {
                result.push_back(process);
            }
        }
        return result;
    }

    bool left_nothing_behind() {
        const auto deadline = deadline_after(straggler_seconds);
        std::vector<process_entry> processes = foreign_processes();
        while (!processes.empty() && clock_type::now() < deadline) {
            sleep_until_child_ends(std::chrono::milliseconds(10));
            reap();
            processes = foreign_processes();
        }
        for (const process_entry& process : processes) {
            complain("process left behind: " + describe(process));
        }
        std::vector<std::string> objects;
        if (!m_wanted.may_leave_shared_memory) {
            objects = m_open ? m_open->new_objects() : shared_objects();
        }
        for (const std::string& object : objects) {
            complain("shared memory left behind: /dev/shm/" + object);
        }
        return processes.empty() && objects.empty();
    }

    void report_timeout() const {
        complain("no end after " + std::to_string(m_wanted.timeout_seconds * timeout_factor()) +
                 " seconds; processes:");
        for (const process_entry& process : list_descendants(getpid())) {
            complain("  " + describe(process));
            const std::string position = kernel_position(process.pid);
            if (!position.empty()) {
                complain("      in " + position);
            }
        }
    }

    const options& m_wanted;
    const open_world* const m_open;
    const std::string m_directory;
    sigset_t m_original_mask;
    private_server m_bus;
    private_server m_display;
    pid_t m_test = -1;
    int m_test_status = 0;
    bool m_test_ended = false;
};

// A pipe whose other end its starter holds tells a process that it comes too late to be ended with
// it.
bool end_with_starter(int lifeline) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd starter = {lifeline, 0, 0};
    return poll(&starter, 1, 0) == 0;
}

/** Runs a function in a child that ends with this process, and returns what it has returned. */
template <typename Function>
int run_in_child(Function function) {
    int lifeline[2];
    if (pipe2(lifeline, O_CLOEXEC) != 0) {
        return no_world;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(lifeline[1]);
        std::_Exit(end_with_starter(lifeline[0]) ? function() : no_world);
    }
    close(lifeline[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            status = W_EXITCODE(no_world, 0);
            break;
        }
    }
    close(lifeline[1]);
    return exit_code_of(status);
}

int refuse(const std::string& reason, int refusals) {
    return write(refusals, reason.data(), reason.size()) < 0 ? no_world : 0;
}

// An ordinary user's process that has entered a user namespace has all rights in it and shows
// itself to nobody else. A tool that examines all processes could not tell that this one holds
// nothing.
void become_ordinary() {
    if (geteuid() == 0) {
        return;
    }
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    syscall(SYS_capset, &header, none);
    prctl(PR_SET_DUMPABLE, 1);
}

int be_first_process(const options& wanted, int refusals) {
    // Without this, the process group would have no number in this namespace.
    setsid();
    const std::string error = mount_private_proc();
    if (!error.empty()) {
        return refuse(error, refusals);
    }
    close(refusals);
    become_ordinary();
    return wanted.tells_of_world ? 0 : warden(wanted).run();
}

/** Writes to the pipe why there is no private world, or nothing when there is one. */
int run_in_private_world(const options& wanted, int refusals) {
    const std::string program = wanted.tells_of_world ? "" : wanted.command[0];
    const std::string error = enter_private_world(program);
    if (!error.empty()) {
        return refuse(error, refusals);
    }
    return run_in_child([&] { return be_first_process(wanted, refusals); });
}

void set_stopping_signals(sighandler_t handler) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        signal(number, handler);
    }
}

int run_in_open_world(const options& wanted) {
    open_world world;
    const std::string error = world.enter();
    if (!error.empty()) {
        complain(error + ": not running the test");
        return no_world;
    }
    // Whoever stops the tests gets back what they have put aside: this test goes on to its end.
    set_stopping_signals(SIG_IGN);
    return run_in_child([&] {
        set_stopping_signals(SIG_DFL);
        setsid();
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        return warden(wanted, &world).run();
    });
}

void tell_of_world(const std::string& refusal) {
    if (refusal.empty()) {
        return;
    }
    std::printf("This machine allows tests no world of their own: %s.\n", refusal.c_str());
    open_world world;
    const std::string error = world.enter();
    if (error.empty()) {
        std::puts("They run one after the other, and those that need one are skipped.");
    } else {
        std::printf("They are skipped, because %s.\n", error.c_str());
    }
}

std::string read_all(int fd) {
    std::string text;
    char buffer[256];
    ssize_t length;
    while ((length = read(fd, buffer, sizeof buffer)) > 0 || (length < 0 && errno == EINTR)) {
        if (length > 0) {
            text.append(buffer, static_cast<size_t>(length));
        }
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    options wanted;
    if (!parse(argc, argv, &wanted)) {
        complain(
            "usage: vask-sealed [--bus] [--display] [--may-leave-shared-memory] [--timeout "
            "SECONDS] "
            "[--] program args...\n       vask-sealed --tell");
        return usage;
    }
    close_range(3, ~0U, 0);
    if (only_lists_tests(wanted.command)) {
        exec_or_exit(wanted.command);
    }

    // Whether a world can be had shows only when a part of it has been made, which cannot be
    // undone.
    int refusals[2];
    if (pipe2(refusals, O_CLOEXEC) != 0) {
        return no_world;
    }
    const int result = run_in_child([&] { return run_in_private_world(wanted, refusals[1]); });
    close(refusals[1]);
    const std::string refusal = read_all(refusals[0]);
    if (wanted.tells_of_world) {
        tell_of_world(refusal);
    }
    if (refusal.empty() || wanted.tells_of_world) {
        return result;
    }
    return run_in_open_world(wanted);
}
