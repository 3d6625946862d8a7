#include "socket/sigpipe_guard.h"

#include <errno.h>
#include <time.h>

#include "socket/socket_channel.h"

namespace {

sigset_t only_sigpipe() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    return signals;
}

bool is_pending() {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

sigpipe_guard::sigpipe_guard(GIOChannel* channel)
    : m_blocks(!is_socket_channel(channel)), m_takes(false) {
    if (m_blocks) {
        const sigset_t signals = only_sigpipe();
        pthread_sigmask(SIG_BLOCK, &signals, &m_former);
        // One that waits already is somebody else's.
        m_takes = !is_pending();
    }
}

sigpipe_guard::~sigpipe_guard() {
    if (m_takes) {
        const sigset_t signals = only_sigpipe();
        const timespec at_once = {};
        while (sigtimedwait(&signals, nullptr, &at_once) == -1 && errno == EINTR) {
        }
    }
    if (m_blocks) {
        pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
    }
}
