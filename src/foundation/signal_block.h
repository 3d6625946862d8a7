#ifndef VASK_SIGNAL_BLOCK_H
#define VASK_SIGNAL_BLOCK_H

#include <signal.h>

// Keeps signals away from this thread between block() and unblock(), or its end: all but those that
// tell of a fault of the thread itself, which it would not survive blocked. Whatever was blocked
// before stays so. Each of both is one system call.
//
// It guards a thread, not the process: where another thread lets a signal through that ends the
// process, this thread ends as well.
class signal_block {
public:
    signal_block() = default;
    ~signal_block() { unblock(); }
    signal_block(const signal_block&) = delete;
    signal_block& operator=(const signal_block&) = delete;

    // Nothing where it blocks already.
    void block();

    // What has come meanwhile is delivered in here. Nothing where it does not block.
    void unblock();

private:
    sigset_t m_former;
    bool m_blocks = false;
};

#endif
