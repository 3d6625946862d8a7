// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "demo_bridge.h"

#include "demo_protocol.h"

demo_bridge::demo_bridge(const std::string& child_program)
    : vask_app_bridge("demo_parent", false), m_child_program(child_program) {
    set_child_sig_cb(DEMO_SIG_RANG, static_cast<child_sig_cb>(&demo_bridge::on_rang));
    // Every set_window() reaches the child, because it is also how the window gets repainted.
    set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
}

void demo_bridge::start_child() {
    // Once it has met its children a bridge stops watching the bus. For the first start this does
    // nothing; without it every later child would wait for its parent in vain.
    init_proxy();
    strlist command = {m_child_program};
    strlist additional_variables;
    // Its result does not tell whether a child was started: get_child_pid() does.
    spawn(command, additional_variables);
}

std::string demo_bridge::ask(int command, std::string argument) {
    std::string reply;
    send_cmd(command, reply, argument);
    return reply;
}

bool demo_bridge::is_main_worker_on_bus() const {
    return get_child_bus_addr() != nullptr;
}

bool demo_bridge::is_other_worker_on_bus() {
    switch_main_worker();
    const bool result = is_main_worker_on_bus();
    switch_main_worker();
    return result;
}

bool demo_bridge::is_child_registered() {
    return find_stored_pid_from_shm("demo_child")
               .count(static_cast<unsigned long>(get_child_pid())) != 0;
}

int demo_bridge::get_other_worker_pid() {
    switch_main_worker();
    const int pid = get_child_pid();
    switch_main_worker();
    return pid;
}

const std::vector<worker_end>& demo_bridge::get_ends() const {
    return m_ends;
}

const std::vector<std::string>& demo_bridge::get_rings() const {
    return m_rings;
}

const std::string& demo_bridge::get_farewell() const {
    return m_farewell;
}

void demo_bridge::terminate_worker_impl() {
    m_farewell = ask(DEMO_CMD_QUIT, "");
    if (m_farewell.empty()) {
        // Not on the bus, or past talking to: by signal, then.
        vask_app_bridge::terminate_worker_impl();
    }
}

void demo_bridge::child_exit_cb(bool is_main) {
    vask_app_bridge::child_exit_cb(is_main);
    m_ends.push_back({true, is_main});
}

void demo_bridge::child_crash_cb(bool is_main) {
    vask_app_bridge::child_crash_cb(is_main);
    m_ends.push_back({false, is_main});
}

void demo_bridge::on_rang(const char* text) {
    m_rings.push_back(text);
}
