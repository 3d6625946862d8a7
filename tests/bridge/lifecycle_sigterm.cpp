// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bridge/lifecycle_sigterm.h"

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>

#include "support/interpose.h"

namespace vask_test {

int sigterm_record::sent = 0;
int sigterm_record::to_reaped = 0;
int sigterm_record::to_groups = 0;
int sigterm_record::continued = 0;
bool sigterm_record::refuses_sigkill = false;
std::function<void(pid_t)> sigterm_record::before_sending;
std::function<void(pid_t)> sigterm_record::after_sending;

}  // namespace vask_test

using vask_test::sigterm_record;

extern "C" int kill(pid_t pid, int signal_number) noexcept {
    static const auto real = vask_test::next_function<int(pid_t, int)>("kill");
    sigterm_record::continued += signal_number == SIGCONT ? 1 : 0;
    if (signal_number == SIGKILL && sigterm_record::refuses_sigkill) {
        errno = EPERM;
        return -1;
    }
    if (signal_number != SIGTERM) {
        return real(pid, signal_number);
    }
    ++sigterm_record::sent;
    if (pid <= 0) {
        ++sigterm_record::to_groups;
        errno = EPERM;
        return -1;
    }
    if (sigterm_record::before_sending) {
        sigterm_record::before_sending(pid);
    }
    // All SIGTERMs are for children; one that nobody can wait for any more has given up its id.
    siginfo_t info;
    if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
        ++sigterm_record::to_reaped;
        errno = ESRCH;
        return -1;
    }
    const int result = real(pid, signal_number);
    if (sigterm_record::after_sending) {
        sigterm_record::after_sending(pid);
    }
    return result;
}
