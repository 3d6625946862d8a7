#ifndef VASK_SIGPIPE_GUARD_H
#define VASK_SIGPIPE_GUARD_H

#include <glib.h>
#include <signal.h>

// While it lives, no SIGPIPE that writing to a channel raises in this thread does any harm, and it
// takes that signal in the end. For a channel of the library, which raises none, it does nothing;
// for any other it makes four system calls.
class sigpipe_guard {
public:
    explicit sigpipe_guard(GIOChannel* channel);
    ~sigpipe_guard();
    sigpipe_guard(const sigpipe_guard&) = delete;
    sigpipe_guard& operator=(const sigpipe_guard&) = delete;

private:
    const bool m_blocks;
    bool m_takes;
    sigset_t m_former;
};

#endif
