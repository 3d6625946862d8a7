// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bus/bus_names.h"
#include "bus/session_bus.h"
#include "bus_message.h"
#include "bus_peer.h"
#include "target.h"
#include "vask_app_bridge.h"

using vask_fuzz::bus_names;
using vask_fuzz::bus_peer;
using vask_fuzz::input;
using vask_fuzz::numbered_text;
using vask_fuzz::require;
using vask_fuzz::require_equal;

namespace {

constexpr char any_other_name[] = VASK_CHILD_INTERFACE "_";

// Higher than the kernel gives: nobody is waited for, asked to end or killed under these.
constexpr int pids[] = {5000001, 5000002};

bus_peer* bus = nullptr;
std::vector<numbered_text> sent_signals;

// Nobody but the bus has told of owners, and it knows what it has said.
bool are_owners_known = true;

/** A parent whose children are on the bus alone, and which does in its callbacks what the input
 * says. */
class parent : public vask_app_bridge {
public:
    parent(input& input, std::unique_ptr<parent>& self)
        : vask_app_bridge("parent", false), m_input(input), m_self(self) {
        set_child_sig_cb(1, static_cast<child_sig_cb>(&parent::callback));
        set_auto_send_set_window_type(static_cast<auto_send_set_window_type>(input.below(3)));
        if (input.flag()) {
            enable_twins_mode();
        }
    }

    void start_child(std::size_t slot) {
        if (m_child_proxy[slot] == nullptr && (slot == 0 || m_twins_mode)) {
            // The source stands for the watch of a process; it is dispatched when the process ends.
            const guint watch = g_timeout_add_seconds_full(
                G_PRIORITY_DEFAULT, 100000, end_child, new ended_child{this, pids[slot]},
                [](gpointer ended) { delete static_cast<ended_child*>(ended); });
            m_watch[slot] = watch;
            m_child_proxy[slot] = new vask_child_proxy(*this, "child", pids[slot], watch);
            connect_name_owner_changed();
        }
    }

    // It is reaped when its watch is dispatched, and the main loop dispatches that but once.
    void let_child_end(std::size_t slot) {
        GSource* const watch = m_child_proxy[slot] != nullptr && m_watch[slot] != 0
                                   ? g_main_context_find_source_by_id(nullptr, m_watch[slot])
                                   : nullptr;
        m_watch[slot] = 0;
        if (watch != nullptr) {
            g_source_set_ready_time(watch, 0);
        }
    }

    /** Whether a command can reach the child. */
    bool has_met_child() {
        const vask_child_proxy* const child = main_worker();
        return child != nullptr && child->get_bus_proxy() != nullptr && child->is_bus_alive();
    }

    void child_signal(int id, const char* data) override {
        require(data != nullptr, "a signal has its text");
        require(std::count(sent_signals.begin(), sent_signals.end(), numbered_text{id, data}) != 0,
                "a signal comes as it was sent");
        last_signal = {id, data};
        vask_app_bridge::child_signal(id, data);
    }

    numbered_text last_signal = {0, ""};

    void child_exit_cb(bool) override { react(); }
    void child_crash_cb(bool) override { react(); }

private:
    struct ended_child {
        parent* bridge;
        int pid;
    };

    static gboolean end_child(gpointer data) {
        const ended_child ended = *static_cast<ended_child*>(data);
        _child_watch(ended.pid, 0, ended.bridge);
        return G_SOURCE_REMOVE;
    }

    void callback(const char*) { react(); }

    // Nothing of this object is touched behind its end.
    void react() {
        switch (m_input.below(6)) {
            case 0:
                m_self.reset();
                break;
            case 1:
                throw std::runtime_error("thrown");
            case 2:
                while (g_main_context_iteration(nullptr, FALSE)) {
                }
                break;
            case 3:
                terminate_worker();
                break;
            case 4:
                send_cmd(1, nullptr, "from a callback");
                break;
            default:
                break;
        }
    }

    input& m_input;
    std::unique_ptr<parent>& m_self;
    guint m_watch[2] = {0, 0};
};

std::string child_name(std::size_t slot) {
    return vask_object::vask_sprintf(VASK_CHILD_NAME_FORMAT, pids[slot]);
}

std::string owner(input& input) {
    constexpr const char* owners[] = {"", ":1.41", ":1.42"};
    return owners[input.below(3)];
}

std::string any_name(input& input) {
    const std::size_t slot = input.below(3);
    return slot < 2 ? child_name(slot) : any_other_name;
}

// What a bus tells of owners fits together; the bridge itself relies on less.
void change_owner(parent& parent, input& input) {
    const std::string name = any_name(input);
    const std::string new_owner = owner(input);
    if (input.flag()) {
        bus->change_owner(name, new_owner);
    } else {
        are_owners_known = false;
        parent.name_owner_changed(nullptr, name.c_str(), owner(input).c_str(), new_owner.c_str(),
                                  &parent);
    }
}

// dbus-glib takes a number of 16 bits for any int.
std::optional<numbered_text> values_of_signal(DBusMessage* message) {
    dbus_int16_t number = 0;
    const char* text = nullptr;
    if (dbus_message_has_signature(message, "ns") &&
        dbus_message_get_args(message, nullptr, DBUS_TYPE_INT16, &number, DBUS_TYPE_STRING, &text,
                              DBUS_TYPE_INVALID)) {
        return numbered_text{number, text};
    }
    return vask_fuzz::numbered_text_of(message);
}

void send(DBusMessage* message) {
    if (const auto values = values_of_signal(message)) {
        sent_signals.push_back(*values);
    }
    are_owners_known =
        are_owners_known && !dbus_message_has_interface(message, DBUS_INTERFACE_DBUS);
    bus->send(message);
}

bool can_be_told(const std::unique_ptr<parent>& bridge) {
    return bridge != nullptr && are_owners_known && bridge->has_met_child();
}

// Whatever has come before.
void tell_of_last_signal(const std::unique_ptr<parent>& bridge) {
    if (!can_be_told(bridge)) {
        return;
    }
    const char* const owner = ":1.44";
    bus->change_owner(vask_object::vask_sprintf(VASK_CHILD_NAME_FORMAT, bridge->get_child_pid()),
                      owner);
    bus->settle();
    if (!can_be_told(bridge)) {
        return;
    }
    const numbered_text last = {77, "the last one"};
    const char* const text = last.text.c_str();
    const unique_bus_message message(
        dbus_message_new_signal(VASK_CHILD_PATH, VASK_CHILD_INTERFACE, VASK_CHILD_SIGNAL));
    dbus_message_set_sender(message.get(), owner);
    dbus_message_append_args(message.get(), DBUS_TYPE_INT32, &last.number, DBUS_TYPE_STRING, &text,
                             DBUS_TYPE_INVALID);
    send(message.get());
    bus->settle();
    require(bridge != nullptr && bridge->last_signal == last,
            "a signal of a child that was met comes");
}

// Its owner is what the bus last said, or any other.
void send_signal(input& input) {
    const bus_names names = {input.flag() ? ":1.41" : ":1.42", VASK_CHILD_PATH,
                             VASK_CHILD_INTERFACE, VASK_CHILD_SIGNAL};
    send(vask_fuzz::make_message(names, input).get());
}

void send_any(input& input) {
    const bus_names names = {":1.43", DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "NameOwnerChanged"};
    send(vask_fuzz::make_message(names, input).get());
}

bool was_sent(const numbered_text& command) {
    const std::vector<unique_bus_message> heard = bus->take_heard();
    return std::any_of(heard.begin(), heard.end(), [&](const unique_bus_message& message) {
        return dbus_message_is_method_call(message.get(), VASK_CHILD_INTERFACE, "Command") &&
               vask_fuzz::numbered_text_of(message.get()) == command;
    });
}

// The answer is a reply or an error, with any values.
void command_child(parent& parent, input& input) {
    unique_bus_message answer(
        dbus_message_new(input.flag() ? DBUS_MESSAGE_TYPE_METHOD_RETURN : DBUS_MESSAGE_TYPE_ERROR));
    dbus_message_set_sender(answer.get(), ":1.41");
    if (dbus_message_get_type(answer.get()) == DBUS_MESSAGE_TYPE_ERROR) {
        dbus_message_set_error_name(answer.get(), DBUS_ERROR_FAILED);
    }
    vask_fuzz::append_values(answer.get(), input);
    const std::optional<std::string> expected =
        dbus_message_get_type(answer.get()) == DBUS_MESSAGE_TYPE_ERROR
            ? std::nullopt
            : vask_fuzz::text_of(answer.get());
    bus->answer_with(std::move(answer));
    std::string reply = "before";
    std::string argument = input.text();
    const int id = input.byte();
    const bool reaches_child =
        parent.has_met_child() && dbus_validate_utf8(argument.c_str(), nullptr);
    const bool succeeded = parent.send_cmd(id, reply, argument);
    require(succeeded == (reaches_child && expected),
            "a command succeeds when its reply is a text");
    require_equal(reply, succeeded ? *expected : "before",
                  "the reply is the child's, or left alone");
    require(!reaches_child || was_sent({id, argument}), "the child gets the command as it is");
    bus->answer_with(nullptr);
}

void send_without_reply(parent& parent, input& input) {
    const int id = input.byte();
    parent.send_cmd_no_reply(id, input.text().c_str());
}

void set_window(parent& parent, input& input) {
    int numbers[5];
    for (int& number : numbers) {
        number = input.byte();
    }
    parent.set_window(numbers[0], numbers[1], numbers[2], numbers[3],
                      static_cast<vask_window_id_t>(numbers[4]));
}

void act(parent& parent, input& input) {
    switch (input.below(10)) {
        case 0:
            parent.start_child(input.below(2));
            break;
        case 1:
            change_owner(parent, input);
            break;
        case 2:
            send_signal(input);
            break;
        case 3:
            send_any(input);
            break;
        case 4:
            command_child(parent, input);
            break;
        case 5:
            send_without_reply(parent, input);
            break;
        case 6:
            set_window(parent, input);
            break;
        case 7:
            parent.switch_main_worker();
            break;
        case 8:
            parent.let_child_end(input.below(2));
            break;
        default:
            parent.terminate_all_workers();
            break;
    }
}

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
    g_log_set_default_handler([](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    bus = new bus_peer;
    // One connection serves all inputs.
    require(open_session_bus(nullptr).release() != nullptr, "there is a bus");
}

void run_target(input& input) {
    std::unique_ptr<parent> bridge;
    bridge.reset(new parent(input, bridge));
    bridge->start_child(0);
    for (int i = 0; i < 16 && input.has_more() && bridge != nullptr; ++i) {
        act(*bridge, input);
        if (input.flag()) {
            bus->settle();
        }
    }
    bus->settle();
    tell_of_last_signal(bridge);
    bridge.reset();
    sent_signals.clear();
    are_owners_known = true;
    bus->take_heard();
    for (const std::size_t slot : {0, 1}) {
        bus->change_owner(child_name(slot), "");
    }
    bus->change_owner(any_other_name, "");
    bus->settle();
}
