// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/signal_block.h"

#include <initializer_list>

namespace {

sigset_t make_blockable() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
        sigdelset(&signals, fault);
    }
    return signals;
}

}  // namespace

void signal_block::block() {
    static const sigset_t blockable = make_blockable();
    if (!m_blocks) {
        m_blocks = pthread_sigmask(SIG_BLOCK, &blockable, &m_former) == 0;
    }
}

void signal_block::unblock() {
    if (m_blocks) {
        m_blocks = false;
        pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
    }
}
