// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A child whose steps are counted: while it joins the bus ("join"), or from its first command on
// ("serve"). usage: death_child PART PLAN

#include <glib.h>
#include <string.h>
#include <sys/prctl.h>

#include <csignal>
#include <memory>
#include <new>
#include <string>

#include "death/fault_steps.h"
#include "death/own_resources.h"
#include "death/scenes.h"
#include "vask_child.h"

namespace {

class death_child : public vask_child {
public:
    death_child(int argc, char** argv, vask_test::fault_plan& plan)
        : vask_child("death_child", argc, argv), m_plan(plan) {
        handle(1, &death_child::count);
        handle(2, &death_child::echo);
        handle(3, &death_child::signal);
        handle(4, &death_child::quit);
    }

private:
    typedef bool (death_child::*handler)(const char* argument, const char** reply);

    void handle(int id, handler member) { add_cmd_handler(id, static_cast<cmd_handler>(member)); }

    // Not before the reply is on its way.
    bool count(const char*, const char**) {
        g_idle_add_full(
            G_PRIORITY_HIGH,  // before the next command
            [](gpointer plan) -> gboolean {
                vask_test::begin_steps(*static_cast<vask_test::fault_plan*>(plan));
                return G_SOURCE_REMOVE;
            },
            &m_plan, nullptr);
        return true;
    }

    bool echo(const char* argument, const char** reply) {
        m_reply = argument;
        *reply = m_reply.c_str();
        return true;
    }

    bool signal(const char* argument, const char**) {
        emit_signal(7, argument);
        return true;
    }

    bool quit(const char*, const char**) {
        app_quit_request(0);
        return true;
    }

    vask_test::fault_plan& m_plan;
    std::string m_reply;
};

// Nothing if the operation has ended before.
void tell(vask_test::fault_plan& plan, vask_test::operation_result result) {
    if (plan.result == vask_test::unfinished) {
        vask_test::end_steps();
        vask_test::keep_own_resources(plan);
        plan.result = result;
    }
}

}  // namespace

int main(int argc, char** argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const bool joins = strcmp(argv[1], "join") == 0;
    const vask_test::shared_plan plan(argv[2]);
    try {
        if (joins) {
            vask_test::begin_steps(*plan);
        }
        death_child child(argc, argv, *plan);
        if (joins) {
            tell(*plan, vask_test::done);
        }
        const int code = child.run();
        tell(*plan, vask_test::done);
        return code;
    } catch (const std::bad_alloc&) {
        tell(*plan, vask_test::thrown);
        return 1;
    }
}
