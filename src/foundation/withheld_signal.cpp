// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/withheld_signal.h"

#include <errno.h>
#include <time.h>

namespace {

bool is_pending(int number) {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, number) == 1;
}

}  // namespace

withheld_signal::withheld_signal(int number) {
    sigemptyset(&m_signal);
    sigaddset(&m_signal, number);
    pthread_sigmask(SIG_BLOCK, &m_signal, &m_former);
    // One that waits already is somebody else's.
    m_takes = !is_pending(number);
}

withheld_signal::~withheld_signal() {
    const int error = errno;
    if (m_takes) {
        const timespec at_once = {};
        while (sigtimedwait(&m_signal, nullptr, &at_once) == -1 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
    errno = error;
}
