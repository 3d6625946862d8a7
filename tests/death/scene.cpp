// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "death/own_resources.h"
#include "death/scenes.h"
#include "support/forked_process.h"
#include "vask_test/timeout_factor.h"

namespace vask_test {

namespace {

// Far beyond all that is promised, and sooner than a judge's own end.
constexpr double patience_with_victim_sec = 40;

void wait_a_little() {
    usleep(2000);
}

}  // namespace

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
    plan.result = result;
    while (!plan.is_witnessed) {
        wait_a_little();
    }
    plan.next_works = do_next();
    keep_own_resources(plan);
    plan.is_over = true;
    wait_for_a_signal();
}

void scene::wait_for_victim(const std::function<bool()>& is_done) {
    const double begin = monotonic_seconds();
    while (victim_lives() && !is_done() && !m_victim_hangs) {
        wait_a_little();
        m_victim_hangs = monotonic_seconds() > begin + patience_with_victim_sec * timeout_factor();
    }
}

void scene::let_victim_act(shared_plan& plan) {
    m_victim = fork();
    if (m_victim == 0) {
        m_plan = &*plan;
        act(*plan);
    }
    wait_for_victim([&plan] { return plan->result != unfinished; });
}

void scene::let_victim_go_on(shared_plan& plan) {
    plan->is_witnessed = true;
    wait_for_victim([&plan] { return plan->is_over.load(); });
}

bool scene::victim_lives() const {
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(m_victim), &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
           info.si_pid == 0;
}

}  // namespace vask_test
