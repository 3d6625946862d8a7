#ifndef VASK_WITHHELD_SIGNAL_H
#define VASK_WITHHELD_SIGNAL_H

#include <signal.h>

// Keeps a signal that a failing call raises in this thread (SIGPIPE, SIGXFSZ) from doing harm: it
// is blocked while this lives, and taken away in the end unless it was waiting before. The call's
// error tells the same. Makes four system calls.
class withheld_signal {
public:
    explicit withheld_signal(int number);
    ~withheld_signal();
    withheld_signal(const withheld_signal&) = delete;
    withheld_signal& operator=(const withheld_signal&) = delete;

private:
    sigset_t m_signal;
    sigset_t m_former;
    bool m_takes;
};

#endif
