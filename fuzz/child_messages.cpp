// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>

#include <stdexcept>
#include <string>

#include "bus/bus_names.h"
#include "bus_message.h"
#include "bus_peer.h"
#include "target.h"
#include "vask_child.h"

using vask_fuzz::bus_names;
using vask_fuzz::bus_peer;
using vask_fuzz::input;
using vask_fuzz::require;

namespace {

bus_peer* bus = nullptr;

/** A child that does in its handlers what the command's number says. */
class handling_child : public vask_child {
public:
    handling_child() : vask_child("child", 0, nullptr) {
        for (int id = 0; id < 8; ++id) {
            add_cmd_handler(id, static_cast<cmd_handler>(&handling_child::handle));
        }
    }

    bool command(int id, const char* argument, const char** reply) override {
        require(argument != nullptr, "a command has an argument");
        m_id = id;
        return vask_child::command(id, argument, reply);
    }

private:
    bool handle(const char* argument, const char** reply) {
        m_reply = argument;
        switch (m_id) {
            case 0:
                *reply = m_reply.c_str();
                return true;
            case 1:
                *reply = "\xff";
                return true;
            case 2:
                throw std::runtime_error(m_reply);
            case 3:
                emit_signal(m_id, argument);
                return true;
            case 4:
                emit_signal(m_id, "\xff");
                return false;
            case 5:
                disconnect_child_signal(observe, 3, this);
                connect_child_signal(observe, 3, this);
                return true;
            case 6:
                disconnect_child_signal(observe, 3, this);
                return true;
            default:
                // A handler may run the main loop, in which the next command comes.
                while (g_main_context_iteration(nullptr, FALSE)) {
                }
                return true;
        }
    }

    static void observe(vask_child* child, int, const char*, void* data) {
        child->disconnect_child_signal(observe, 3, data);
    }

    int m_id = 0;
    std::string m_reply;
};

handling_child* child = nullptr;

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
    g_log_set_default_handler([](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    bus = new bus_peer;
    child = new handling_child;
    require(!child->init_failed(), "the child is on the bus");
}

void run_target(input& input) {
    const bus_names command = {":1.1", VASK_CHILD_PATH, VASK_CHILD_INTERFACE, "Command"};
    const bus_names window = {":1.1", VASK_CHILD_PATH, VASK_CHILD_INTERFACE, "SetWindow"};
    const bus_names properties = {":1.1", VASK_CHILD_PATH, DBUS_INTERFACE_PROPERTIES, "Get"};
    const bus_names* const all[] = {&command, &window, &properties};
    for (int i = 0; i < 8 && input.has_more(); ++i) {
        bus->send(vask_fuzz::make_message(*all[input.below(3)], input).get());
    }
    bus->settle();
    require(!child->init_failed(), "no message takes the child from the bus");
}
