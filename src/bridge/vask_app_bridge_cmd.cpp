// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <glib.h>

#include "bus/session_bus.h"
#include "foundation/glib_handles.h"
#include "vask_app_bridge.h"

namespace {

// Why a command cannot go out through a proxy that has been set up; null when it can.
const char* find_problem(const vask_child_proxy* child, const char* argument) {
    if (const char* problem = find_text_problem(argument)) {
        return problem;
    }
    return child->is_bus_alive() ? nullptr : session_bus_is_lost;
}

void call_command(vask_child_proxy* child, int id, const char* argument) {
    dbus_g_proxy_call_no_reply(child->get_bus_proxy(), "Command", G_TYPE_INT, id, G_TYPE_STRING,
                               null_as_empty(argument), G_TYPE_INVALID);
}

}  // namespace

bool vask_app_bridge::report_failure(vask_print_level level, vask_error_code_t code,
                                     const std::string& message, vask_error* err) const {
    vask_p(level, "%s\n", message.c_str());
    if (err != nullptr) {
        err->set_code(code);
        err->set_message(message);
    }
    return false;
}

bool vask_app_bridge::send_cmd(int id, char** reply, const char* argument, vask_error* err) {
    vask_p(VASK_P_DBG, "%s: %d, %s\n",
           "bool vask_app_bridge::send_cmd(int, char**, const char*, vask_error*)", id, argument);
    vask_child_proxy* child = main_worker();
    if (child == nullptr) {
        return report_failure(VASK_P_ERR, VASK_ERR_NOT_SPAWNED,
                              "Cannot call send_cmd() prior to spawn()!", err);
    }
    if (child->get_bus_proxy() == nullptr) {
        return report_failure(VASK_P_DBG, VASK_ERR_NO_CHILD_PROXY,
                              "No child proxy yet! Command is dropped.", err);
    }
    if (const char* problem = find_problem(child, argument)) {
        vask_p(VASK_P_ERR, "Failed to send command %d: %s\n", id, problem);
        return false;
    }

    gchar* answer = nullptr;
    gerror_holder error;
    if (!dbus_g_proxy_call(child->get_bus_proxy(), "Command", error.out(), G_TYPE_INT, id,
                           G_TYPE_STRING, null_as_empty(argument), G_TYPE_INVALID, G_TYPE_STRING,
                           &answer, G_TYPE_INVALID)) {
        vask_p(VASK_P_ERR, "Failed to send command %d: %s\n", id, error->message);
        return false;
    }
    if (reply != nullptr) {
        *reply = answer;
    } else {
        g_free(answer);
    }
    return true;
}

bool vask_app_bridge::send_cmd(int id, std::string& reply, std::string& argument, vask_error* err) {
    gchar* answer = nullptr;
    const bool succeeded = send_cmd(id, &answer, argument.c_str(), err);
    unique_g_text owned(answer);
    if (answer != nullptr) {
        reply = answer;
    }
    return succeeded;
}

bool vask_app_bridge::send_cmd_no_reply(int id, const char* argument, vask_error* err) {
    vask_p(VASK_P_DBG, "%s: %d, %s\n",
           "bool vask_app_bridge::send_cmd_no_reply(int, const char*, vask_error*)", id, argument);
    vask_child_proxy* child = main_worker();
    if (child == nullptr) {
        return report_failure(VASK_P_ERR, VASK_ERR_NOT_SPAWNED,
                              "Cannot call send_cmd_no_reply() prior to spawn()!", err);
    }
    const bool is_met = child->get_bus_proxy() != nullptr;
    // A command that is only queued is tested now, too: later nobody could be told.
    if (const char* problem =
            is_met ? find_problem(child, argument) : find_text_problem(argument)) {
        vask_p(VASK_P_ERR, "Failed to send command %d: %s\n", id, problem);
        return false;
    }
    if (is_met) {
        call_command(child, id, argument);
    } else {
        vask_p(VASK_P_DBG, "No child proxy yet!. Command is queued (%p)\n",
               static_cast<void*>(child));
        child->enqueue_cmd(new child_cmd_buffer(id, argument));
    }
    return true;
}

bool vask_app_bridge::send_cmd_no_reply(int id, std::string& argument, vask_error* err) {
    return send_cmd_no_reply(id, argument.c_str(), err);
}

bool vask_app_bridge::send_cmd_no_reply(int id, const std::string& argument, vask_error* err) {
    return send_cmd_no_reply(id, argument.c_str(), err);
}

void vask_app_bridge::flush_child_cmd_buffer(vask_child_proxy* proxy) {
    if (proxy == nullptr || !proxy->is_bus_alive()) {
        return;
    }
    while (const auto cmd = std::unique_ptr<child_cmd_buffer>(proxy->dequeue_cmd())) {
        if (const char* problem = find_text_problem(cmd->argument.c_str())) {
            vask_p(VASK_P_ERR, "Failed to send command %d: %s\n", cmd->id, problem);
        } else {
            call_command(proxy, cmd->id, cmd->argument.c_str());
        }
    }
}

bool vask_app_bridge::send_window_data(vask_child_proxy* proxy, bool force, vask_error* err) {
    vask_p(VASK_P_DBG, "%s: %p, %d, %d\n",
           "bool vask_app_bridge::send_window_data(vask_child_proxy*, bool, vask_error*)",
           static_cast<void*>(proxy), static_cast<int>(m_window_data_sent_count), force);
    // Before the tests of the proxy: an unforced repetition succeeds whatever became of the child.
    if (!force && m_window_data_sent_count != 0) {
        return true;
    }
    if (proxy == nullptr) {
        return report_failure(VASK_P_ERR, VASK_ERR_NOT_SPAWNED,
                              "Cannot call send_window_data() prior to spawn()!", err);
    }
    if (proxy->get_bus_proxy() == nullptr) {
        return report_failure(VASK_P_DBG, VASK_ERR_NO_CHILD_PROXY, "No child proxy yet!", err);
    }
    if (!proxy->is_bus_alive()) {
        vask_p(VASK_P_ERR, "Failed to send window data: %s\n", session_bus_is_lost);
        return false;
    }
    dbus_g_proxy_call_no_reply(proxy->get_bus_proxy(), "SetWindow", G_TYPE_INT, get_window_x(),
                               G_TYPE_INT, get_window_y(), G_TYPE_INT, get_window_width(),
                               G_TYPE_INT, get_window_height(), G_TYPE_UINT,
                               static_cast<guint>(get_window_xid()), G_TYPE_INVALID);
    ++m_window_data_sent_count;
    return true;
}

bool vask_app_bridge::send_window_data(bool force, vask_error* err) {
    return send_window_data(main_worker(), force, err);
}

void vask_app_bridge::save_window_data(int x, int y, int w, int h, vask_window_id_t xid) {
    vask_window_props::save_window_data(x, y, w, h, xid);
}

void vask_app_bridge::set_window(int x, int y, int w, int h, vask_window_id_t id) {
    // The labels are in the wrong order, and kept. The window's number is printed like an address.
    vask_p(VASK_P_DBG, "%s: (x, y, h, w, id) = (%d, %d, %d, %d, %p)\n",
           "virtual void vask_app_bridge::set_window(int, int, int, int, vask_window_id_t)", x, y,
           w, h, reinterpret_cast<void*>(id));  // NOLINT(performance-no-int-to-ptr)
    if (m_auto_send_type == VASK_AUTO_SEND_SET_WINDOW_NONE) {
        return;
    }
    save_window_data(x, y, w, h, id);
    if (get_child_bus_addr() == nullptr) {
        return;
    }
    if (m_auto_send_type == VASK_AUTO_SEND_SET_WINDOW_ALWAYS) {
        send_window_data(true, nullptr);
    } else if (m_auto_send_type == VASK_AUTO_SEND_SET_WINDOW_CHANGED) {
        send_window_data(is_window_data_changed(), nullptr);
    }
}

void vask_app_bridge::set_auto_send_set_window_type(auto_send_set_window_type type) {
    m_auto_send_type = type;
}

void vask_app_bridge::set_child_sig_cb(int signal_id, child_sig_cb cb) {
    if (cb != nullptr) {
        m_child_sig_cbs[signal_id] = cb;
    } else {
        m_child_sig_cbs.erase(signal_id);
    }
}

void vask_app_bridge::child_signal(int signal_id, const char* data) {
    vask_p(VASK_P_DBG, "signal from child: %d, %s\n", signal_id, data);
    const auto entry = m_child_sig_cbs.find(signal_id);
    if (entry == m_child_sig_cbs.end()) {
        vask_p(VASK_P_WARN, "Signal: '%d' is not supported\n", signal_id);
        return;
    }
    // The callback may delete this bridge: nothing may follow.
    const child_sig_cb callback = entry->second;
    (this->*callback)(data);
}

std::string vask_app_bridge::build_error_message_from_gerror(GError* error) const {
    if (error == nullptr) {
        return "Error occured but GError is NULL.";
    }
    return std::to_string(error->code) + ": " + null_as_empty(error->message);
}

void vask_app_bridge::set_next_error(vask_abstract_error* err, vask_abstract_error* next) const {
    if (err != nullptr) {
        err->set_next(next);
    }
}
