// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// controller_child [KEY]: registers itself if there is a key, says "ready PID", and serves
// commands.

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <vask_child.h>

#include <string>

#include "controller_child_commands.h"

namespace {

class controller_child : public vask_child {
public:
    controller_child(int argc, char** argv) : vask_child(controller_child_name, argc, argv) {
        add(CONTROLLER_CHILD_ECHO, &controller_child::echo);
        add(CONTROLLER_CHILD_PID, &controller_child::pid);
        add(CONTROLLER_CHILD_FAIL, &controller_child::fail);
        add(CONTROLLER_CHILD_NO_REPLY, &controller_child::no_reply);
        add(CONTROLLER_CHILD_DIE, &controller_child::die);
    }

    bool command(int id, const char* argument, const char** reply) override {
        printf("command %d %s\n", id, argument);
        fflush(stdout);
        return vask_child::command(id, argument, reply);
    }

private:
    void add(int id, bool (controller_child::*handler)(const char*, const char**)) {
        add_cmd_handler(id, static_cast<cmd_handler>(handler));
    }

    bool echo(const char* argument, const char** reply) {
        m_reply = argument;
        *reply = m_reply.c_str();
        return true;
    }

    bool pid(const char*, const char** reply) {
        m_reply = std::to_string(getpid());
        *reply = m_reply.c_str();
        return true;
    }

    bool fail(const char*, const char** reply) {
        *reply = "of a handler that fails";
        return false;
    }

    bool no_reply(const char*, const char**) { return true; }

    bool die(const char*, const char**) {
        raise(SIGKILL);
        return true;
    }

    std::string m_reply;
};

}  // namespace

int main(int argc, char** argv) {
    controller_child child(argc, argv);
    if (argc > 1 && !child.store_pid_to_shm(strtoul(argv[1], nullptr, 0))) {
        return 1;
    }
    printf("ready %d\n", getpid());
    fflush(stdout);
    return child.run();
}
