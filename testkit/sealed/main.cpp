// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kept_world.h"
#include "leftovers.h"
#include "open_world.h"
#include "options.h"
#include "private_servers.h"
#include "private_world.h"
#include "warden.h"

using namespace vask_test;

namespace {

// Which disturbs nobody, and must work where no test can run.
bool only_lists_tests(const std::vector<std::string>& command) {
    return std::find(command.begin(), command.end(), "--gtest_list_tests") != command.end();
}

int exit_code_of(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/** This process's id for those who see the /proc that is mounted. */
pid_t pid_in_mounted_proc() {
    char text[16] = "";
    return readlink("/proc/self", text, sizeof text - 1) > 0 ? std::atoi(text) : getpid();
}

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
    if (child < 0) {
        complain(std::string("no process: ") + std::strerror(errno));
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
    const pid_t pid_on_machine = pid_in_mounted_proc();
    const std::string error = mount_private_proc();
    if (!error.empty()) {
        return refuse(error, refusals);
    }
    close(refusals);
    become_ordinary();
    return wanted.tells_of_world ? 0 : warden(wanted, pid_on_machine).run();
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

int run_in_open_world(const options& wanted, const std::string& refusal) {
    complain("no world of its own: " + refusal);
    open_world world;
    const std::string error = world.enter();
    if (!error.empty()) {
        complain(error + ": not running the program");
        return no_world;
    }
    complain(
        "the program sees the machine's processes, network, /tmp and /dev/shm; such runs go one "
        "after "
        "the other");
    // Whoever stops the tests gets back what they have put aside: this test goes on to its end.
    set_stopping_signals(SIG_IGN);
    return run_in_child([&] {
        set_stopping_signals(SIG_DFL);
        setsid();
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        return warden(wanted, getpid(), &world).run();
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
        std::puts(
            "They see its processes, network, /tmp and /dev/shm, and run one after the other; "
            "those "
            "that need more are skipped.");
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

int run_in_a_world(const options& wanted) {
    // Whether a world can be had shows only when a part of it has been made, which cannot be
    // undone.
    int refusals[2];
    if (pipe2(refusals, O_CLOEXEC) != 0) {
        return no_world;
    }
    const int result = run_in_child([&] { return run_in_private_world(wanted, refusals[1]); });
    close(refusals[1]);
    const std::string refusal = read_all(refusals[0]);
    close(refusals[0]);
    if (wanted.tells_of_world) {
        tell_of_world(refusal);
    }
    if (refusal.empty() || wanted.tells_of_world) {
        return result;
    }
    return run_in_open_world(wanted, refusal);
}

}  // namespace

int main(int argc, char** argv) {
    // Whoever starts this may ignore it, and then nobody could be waited for.
    signal(SIGCHLD, SIG_DFL);
    options wanted;
    if (!parse(argc, argv, &wanted)) {
        std::fputs(usage_text, stderr);
        return bad_usage;
    }
    if (wanted.shows_help) {
        std::fputs(usage_text, stdout);
        return 0;
    }
    if (wanted.shows_version) {
        std::puts("vask-sealed " VASK_SEALED_VERSION);
        return 0;
    }
    if (wanted.world_to_enter > 0) {
        return enter_world(wanted.world_to_enter, wanted.command);
    }
    close_range(3, ~0U, 0);
    if (only_lists_tests(wanted.command)) {
        exec_or_exit(wanted.command);
    }
    return run_in_a_world(wanted);
}
