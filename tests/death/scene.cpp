// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "death/scenes.h"
#include "support/forked_process.h"
#include "vask_test/resource_count.h"

namespace vask_test {

namespace {

// The number of an inode says nothing.
std::string kind_of(const std::string& target) {
    return target.substr(0, target.find(":["));
}

}  // namespace

std::string own_resources() {
    const resource_count count = resource_count::take();
    std::vector<std::string> lines;
    for (const std::string& descriptor : count.descriptors) {
        lines.push_back("descriptor " + kind_of(descriptor) + "\n");
    }
    for (const std::string& child : count.children) {
        lines.push_back("child " + child.substr(child.find(' ') + 1) + "\n");
    }
    for (const std::string& source : count.sources) {
        lines.push_back("source " + source + "\n");
    }
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    for (int number = 1; number < SIGRTMIN; ++number) {
        if (sigismember(&blocked, number) == 1) {
            lines.push_back("blocked signal " + std::to_string(number) + "\n");
        }
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) {
        text += line;
    }
    return text;
}

void scene::act(fault_plan& plan) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    vask_object::my_pid = getpid();
    prepare();
    int result = thrown;
    begin_steps(plan);
    try {
        result = operate() ? done : failed;
    } catch (const std::bad_alloc&) {
    }
    end_steps();
    plan.next_works = do_next();
    const std::string resources = own_resources();
    strncpy(plan.after, resources.c_str(), sizeof plan.after - 1);
    plan.result = result;
    wait_for_a_signal();
}

void scene::let_victim_act(shared_plan& plan) {
    m_victim = fork();
    if (m_victim == 0) {
        act(*plan);
    }
    while (victim_lives() && plan->result == unfinished) {
        usleep(2000);
    }
}

bool scene::victim_lives() const {
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(m_victim), &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
           info.si_pid == 0;
}

}  // namespace vask_test
