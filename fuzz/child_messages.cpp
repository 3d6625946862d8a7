// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "bus/bus_names.h"
#include "bus_message.h"
#include "bus_peer.h"
#include "target.h"
#include "vask_child.h"

using vask_fuzz::bus_names;
using vask_fuzz::bus_peer;
using vask_fuzz::input;
using vask_fuzz::numbered_text;
using vask_fuzz::require;
using vask_fuzz::require_equal;

namespace {

bus_peer* bus = nullptr;

constexpr int handlers = 8;

std::string shown(const numbered_text& command) {
    return std::to_string(command.number) + ": " + command.text + "\n";
}

std::string shown(const int (&window)[5]) {
    std::string text = "window";
    for (const int number : window) {
        text += " " + std::to_string(number);
    }
    return text + "\n";
}

/** A child that does in its handlers what the command's number says. */
class handling_child : public vask_child {
public:
    handling_child() : vask_child("child", 0, nullptr) {
        for (int id = 0; id < handlers; ++id) {
            add_cmd_handler(id, static_cast<cmd_handler>(&handling_child::handle));
        }
    }

    bool command(int id, const char* argument, const char** reply) override {
        require(argument != nullptr, "a command has an argument");
        called += shown(numbered_text{id, argument});
        m_id = id;
        return vask_child::command(id, argument, reply);
    }

    void set_window(int x, int y, int w, int h, unsigned int id) override {
        called += shown({x, y, w, h, static_cast<int>(id)});
        vask_child::set_window(x, y, w, h, id);
    }

    /** What was called with which arguments. */
    std::string called;

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

/** What follows from the messages that are sent. */
class expectation {
public:
    /** A message that has been sent. dbus-glib takes each type for a call. */
    void add(DBusMessage* message) {
        if (!dbus_message_has_path(message, VASK_CHILD_PATH) ||
            !dbus_message_has_interface(message, VASK_CHILD_INTERFACE)) {
            return;
        }
        const auto command = vask_fuzz::numbered_text_of(message);
        if (dbus_message_has_member(message, "Command") && command) {
            add_command(message, *command);
        } else if (dbus_message_has_member(message, "SetWindow") &&
                   dbus_message_has_signature(message, "iiiiu")) {
            int window[5];
            dbus_message_get_args(message, nullptr, DBUS_TYPE_INT32, &window[0], DBUS_TYPE_INT32,
                                  &window[1], DBUS_TYPE_INT32, &window[2], DBUS_TYPE_INT32,
                                  &window[3], DBUS_TYPE_UINT32, &window[4], DBUS_TYPE_INVALID);
            m_called += shown(window);
            add_answer(message, "done");
        }
    }

    void compare() const {
        require_equal(child->called, m_called, "handlers get what was sent, and in its order");
        std::string signals;
        std::map<dbus_uint32_t, std::string> answers;
        for (const unique_bus_message& heard : bus->take_heard()) {
            const auto serial = dbus_message_get_reply_serial(heard.get());
            if (m_answers.count(serial) != 0) {
                answers[serial] += shown_answer(heard.get());
            } else if (dbus_message_is_signal(heard.get(), VASK_CHILD_INTERFACE,
                                              VASK_CHILD_SIGNAL)) {
                const auto values = vask_fuzz::numbered_text_of(heard.get());
                signals += values ? shown(*values) : "no signal of a child";
            }
        }
        require_equal(signals, m_signals, "signals are sent as they were emitted");
        for (const auto& answer : m_answers) {
            require_equal(answers[answer.first], answer.second, "each call gets its answer");
        }
    }

private:
    static std::string shown_answer(DBusMessage* answer) {
        if (dbus_message_get_type(answer) == DBUS_MESSAGE_TYPE_ERROR) {
            return "failed";
        }
        const auto text = vask_fuzz::text_of(answer);
        return text ? "reply " + *text : "done";
    }

    void add_answer(DBusMessage* message, const std::string& answer) {
        if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL &&
            !dbus_message_get_no_reply(message)) {
            m_answers[dbus_message_get_serial(message)] = answer;
        }
    }

    void add_command(DBusMessage* message, const numbered_text& command) {
        m_called += shown(command);
        const int id = command.number;
        if (id == 3) {
            m_signals += shown(command);
        }
        const bool fails = id < 0 || id >= handlers || id == 1 || id == 2 || id == 4;
        add_answer(message, fails ? "failed" : "reply " + (id == 0 ? command.text : ""));
    }

    std::string m_called;
    std::string m_signals;
    std::map<dbus_uint32_t, std::string> m_answers;
};

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
    expectation expectation;
    child->called.clear();
    for (int i = 0; i < 8 && input.has_more(); ++i) {
        const bus_names& names = *all[input.below(3)];
        const unique_bus_message message = vask_fuzz::make_message(names, input);
        bus->send(message.get());
        expectation.add(message.get());
    }
    bus->settle();
    // A handler that runs the main loop may have settled it before its own answer.
    bus->settle();
    expectation.compare();
    require(!child->init_failed(), "no message takes the child from the bus");
}
