#ifndef VASK_SIGNAL_BLOCK_H
#define VASK_SIGNAL_BLOCK_H

#include <errno.h>
#include <signal.h>
#include <time.h>

// Keeps signals from this thread for as long as the object lives: what other processes wait for is
// not left half done by a handler that ends, leaves or delays it. They arrive afterwards.
//
// Signals that tell of a fault of the thread itself stay as they are: blocking one does not keep
// it away, it only takes its handler from it, and a handler of SIGSYS may stand in for a call that
// a sandbox refuses.
//
// A write beyond RLIMIT_FSIZE is an ordinary failure (EFBIG) inside: the SIGXFSZ that comes with it
// is dropped, because it would end the process at the end of the block. errno stays as it is.
class signal_block {
public:
    signal_block() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
            sigdelset(&blocked, fault);
        }
        pthread_sigmask(SIG_BLOCK, &blocked, &m_before);
        // It can only wait already where the caller had blocked it.
        m_keeps_file_size_signal = sigismember(&m_before, SIGXFSZ) == 1 && is_pending(SIGXFSZ);
    }

    ~signal_block() {
        const int error = errno;
        if (!m_keeps_file_size_signal && is_pending(SIGXFSZ)) {
            drop(SIGXFSZ);
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = error;
    }

    signal_block(const signal_block&) = delete;
    signal_block& operator=(const signal_block&) = delete;

private:
    static bool is_pending(int signal) {
        sigset_t pending;
        return sigpending(&pending) == 0 && sigismember(&pending, signal) == 1;
    }

    static void drop(int signal) {
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, signal);
        const struct timespec at_once = {};
        sigtimedwait(&one, nullptr, &at_once);
    }

    sigset_t m_before;
    bool m_keeps_file_size_signal;
};

#endif
