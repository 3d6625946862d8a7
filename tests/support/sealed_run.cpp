#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "private_servers.h"
#include "private_world.h"
#include "process_list.h"
#include "timeout_factor.h"

using namespace vask_test;

namespace {

using clock_type = std::chrono::steady_clock;

enum exit_code {
    leftover = 1,
    usage = 2,
    no_private_world = 77,
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
    double timeout_seconds = 120;
    std::vector<std::string> command;
};

void complain(const std::string& text) {
    std::fprintf(stderr, "sealed_run: %s\n", text.c_str());
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
    return !result->command.empty() && result->timeout_seconds > 0;
}

clock_type::time_point deadline_after(double seconds) {
    return clock_type::now() + std::chrono::duration_cast<clock_type::duration>(
                                   std::chrono::duration<double>(seconds * timeout_factor()));
}

int exit_code_of(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/** Process 1 of the private world: runs the servers and the test program, and inspects the end. */
class warden {
public:
    explicit warden(const options& wanted) : wanted_(wanted) {
        sigset_t child_ended;
        sigemptyset(&child_ended);
        sigaddset(&child_ended, SIGCHLD);
        sigprocmask(SIG_BLOCK, &child_ended, &original_mask_);
    }

    int run() {
        if (!start_servers()) {
            return no_server;
        }
        test_ = spawn(wanted_.command, original_mask_);
        if (!wait_for_test(deadline_after(wanted_.timeout_seconds))) {
            report_timeout();
            kill(test_, SIGABRT);
            wait_for_test(deadline_after(abort_seconds));
            return timed_out;
        }
        const bool clean = left_nothing_behind();
        const int result = exit_code_of(test_status_);
        return result == 0 && !clean ? static_cast<int>(leftover) : result;
    }

private:
    bool start_servers() {
        if (wanted_.bus) {
            bus_.start_bus(original_mask_);
        }
        if (wanted_.display) {
            display_.start_display(original_mask_);
        }
        return (!wanted_.bus || await(bus_, "dbus-daemon", "DBUS_SESSION_BUS_ADDRESS", "")) &&
               (!wanted_.display || await(display_, "Xvfb", "DISPLAY", ":"));
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
            if (pid != test_) {
                continue;
            }
            test_status_ = status;
            test_ended_ = true;
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
            if (test_ended_) {
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
        return pid > 0 && (pid == bus_.pid() || pid == display_.pid());
    }

    std::vector<process_entry> foreign_processes() const {
        std::vector<process_entry> result;
        for (const process_entry& process : list_processes()) {
            if (process.pid != 1 && !belongs_to_servers(process.pid) &&
                !belongs_to_servers(process.parent)) {
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
        if (!wanted_.may_leave_shared_memory) {
            objects = shared_objects();
        }
        for (const std::string& object : objects) {
            complain("shared memory left behind: /dev/shm/" + object);
        }
        return processes.empty() && objects.empty();
    }

    void report_timeout() const {
        complain("no end after " + std::to_string(wanted_.timeout_seconds * timeout_factor()) +
                 " seconds; processes:");
        for (const process_entry& process : list_processes()) {
            if (process.pid == 1) {
                continue;
            }
            complain("  " + describe(process));
            const std::string position = kernel_position(process.pid);
            if (!position.empty()) {
                complain("      in " + position);
            }
        }
    }

    const options& wanted_;
    sigset_t original_mask_;
    private_server bus_;
    private_server display_;
    pid_t test_ = -1;
    int test_status_ = 0;
    bool test_ended_ = false;
};

int be_first_process(const options& wanted, int lifeline) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd starter = {lifeline, 0, 0};
    if (poll(&starter, 1, 0) != 0) {
        return no_private_world;
    }
    // Without this, the process group is one that has no number in here.
    setsid();
    const std::string error = mount_private_proc();
    if (!error.empty()) {
        complain(error + ": not running the test");
        return no_private_world;
    }
    seal_environment();
    return warden(wanted).run();
}

}  // namespace

int main(int argc, char** argv) {
    options wanted;
    if (!parse(argc, argv, &wanted)) {
        complain(
            "usage: sealed_run [--bus] [--display] [--may-leave-shared-memory] [--timeout SECONDS] "
            "[--] program args...");
        return usage;
    }
    close_range(3, ~0U, 0);

    const std::string error = enter_private_world(wanted.command[0]);
    if (!error.empty()) {
        complain(error + ": not running the test");
        return no_private_world;
    }

    int lifeline[2];
    if (pipe2(lifeline, O_CLOEXEC) != 0) {
        return no_private_world;
    }
    const pid_t first = fork();
    if (first == 0) {
        close(lifeline[1]);
        std::_Exit(be_first_process(wanted, lifeline[0]));
    }
    int status = 0;
    while (waitpid(first, &status, 0) < 0) {
        if (errno != EINTR) {
            return no_private_world;
        }
    }
    return exit_code_of(status);
}
