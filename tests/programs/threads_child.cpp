// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A child whose threads are busy while it answers, signals and ends.

#include <sys/prctl.h>

#include <csignal>
#include <string>

#include "threads/busy_threads.h"
#include "vask_child.h"

namespace {

class threads_child : public vask_child {
public:
    threads_child(int argc, char** argv) : vask_child("threads_child", argc, argv) {
        add_cmd_handler(1, static_cast<cmd_handler>(&threads_child::echo));
        add_cmd_handler(2, static_cast<cmd_handler>(&threads_child::quit));
    }

private:
    bool echo(const char* argument, const char** reply) {
        emit_signal(7, argument);
        m_reply = argument;
        *reply = m_reply.c_str();
        return true;
    }

    bool quit(const char*, const char**) {
        app_quit_request(m_threads.failures().empty() ? 0 : 1);
        return true;
    }

    vask_test::busy_threads m_threads;
    std::string m_reply;
};

}  // namespace

int main(int argc, char** argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    threads_child child(argc, argv);
    return child.run();
}
