// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_WITHHELD_SIGNAL_H
#define VASK_WITHHELD_SIGNAL_H

#include <signal.h>

// Keeps a signal that a failing call raises in this thread (SIGPIPE, SIGXFSZ) from doing harm. The
// signal is blocked while this object lives. The destructor takes it away, unless it was pending
// before. The call's error tells the same. Costs four system calls.
class withheld_signal {
public:
    explicit withheld_signal(int number);
    ~withheld_signal();
    withheld_signal(const withheld_signal&) = delete;
    withheld_signal& operator=(const withheld_signal&) = delete;

private:
    sigset_t m_signal;  // that one signal
    sigset_t m_former;  // this thread's mask before
    bool m_takes;       // the destructor takes the signal away
};

#endif
