// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SIGNAL_BLOCK_H
#define VASK_SIGNAL_BLOCK_H

#include <signal.h>

// Keeps signals away from this thread between block() and unblock() or the destructor. It leaves
// out those that report a fault of the thread itself: if one of these is blocked, the kernel ends
// the process. A signal that was blocked before stays blocked. block() and unblock() are one system
// call each.
//
// It guards a thread, not the process: if another thread lets a signal through that ends the
// process, this thread ends as well.
class signal_block {
public:
    signal_block() = default;
    ~signal_block() { unblock(); }
    signal_block(const signal_block&) = delete;
    signal_block& operator=(const signal_block&) = delete;

    // Does nothing if it blocks already.
    void block();

    // Delivers what has come meanwhile, before it returns. Does nothing if it does not block.
    void unblock();

private:
    sigset_t m_former;  // this thread's mask before block(), while it blocks
    bool m_blocks = false;
};

#endif
