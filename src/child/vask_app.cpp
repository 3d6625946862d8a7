// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_app.h"

#include <glib.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "foundation/type_system.h"

namespace {

const char no_sys_init_marker[] = "--vask-app-no-sys-init";

// The caller may move the cursor anywhere. Sums with it stop at the limits of int.
int clamp_to_int(long long value) {
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

}  // namespace

vask_app::vask_app(const char* name, int argc, char** argv)
    : m_init_ok(true),
      m_arg_index(0),
      m_exit_code(0),
      m_arg_error_fatal(false),
      m_no_sys_init(false),
      m_main_loop(nullptr) {
    obj_name = name;
    // Only argv[0] is looked at: a launcher puts the marker there, a user cannot.
    if (argc > 0 && argv[0] != nullptr) {
        m_no_sys_init = strcmp(argv[0], no_sys_init_marker) == 0;
    }
    if (argc > 1) {
        m_args.assign(argv + 1, argv + argc);
    }
    if (!m_no_sys_init) {
        init_type_system();
    }
}

vask_app::~vask_app() {
    if (m_main_loop != nullptr) {
        g_main_loop_unref(m_main_loop);
    }
}

int vask_app::run() {
    if (init_failed()) {
        return 1;
    }
    if (m_main_loop != nullptr) {
        g_main_loop_unref(m_main_loop);
    }
    m_main_loop = g_main_loop_new(nullptr, TRUE);
    g_main_loop_run(m_main_loop);
    return m_exit_code;
}

bool vask_app::init_failed() const {
    return !m_init_ok;
}

void vask_app::app_quit_request(int code) {
    m_exit_code = code;
    if (m_main_loop != nullptr) {
        g_main_loop_quit(m_main_loop);
    }
}

int vask_app::get_arg_num() const {
    return static_cast<int>(m_args.size());
}

void vask_app::arg_iter_begin() {
    m_arg_index = 0;
}

bool vask_app::arg_iter_end() const {
    return m_arg_index >= get_arg_num();
}

void vask_app::arg_iter_inc(int n) {
    m_arg_index = clamp_to_int(static_cast<long long>(m_arg_index) + n);
}

int vask_app::arg_iter_num_rest() const {
    return clamp_to_int(static_cast<long long>(get_arg_num()) - m_arg_index - 1);
}

bool vask_app::arg_iter_chk_idx(int idx, bool print) const {
    const int tested = idx < 0 ? m_arg_index : idx;
    // A cursor below 0 passes: only the upper bound is tested. The getters look at both.
    if (tested < get_arg_num()) {
        return true;
    }
    if (print) {
        vask_p(VASK_P_ERR, "arg_iter: index is invalid\n");
    }
    return false;
}

bool vask_app::arg_iter_chk_num_rest(int n, const char* msg) {
    if (arg_iter_num_rest() >= n) {
        return true;
    }
    if (msg != nullptr) {
        // The message is the format, on purpose: its caller knows that.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        vask_p(VASK_P_ERR, msg);
#pragma GCC diagnostic pop
    }
    if (m_arg_error_fatal) {
        m_init_ok = false;
    }
    return false;
}

const std::string* vask_app::arg_at(int off) const {
    const int index = clamp_to_int(static_cast<long long>(m_arg_index) + off);
    if (!arg_iter_chk_idx(index, true) || index < 0) {
        return nullptr;
    }
    return &m_args[static_cast<std::size_t>(index)];
}

std::string& vask_app::arg_iter_elem() {
    m_empty_element.clear();
    if (!arg_iter_chk_idx(-1, true) || m_arg_index < 0) {
        return m_empty_element;
    }
    return m_args[static_cast<std::size_t>(m_arg_index)];
}

int vask_app::arg_iter_get_int(int off) const {
    const std::string* arg = arg_at(off);
    return arg != nullptr ? static_cast<int>(strtol(arg->c_str(), nullptr, 10)) : 0;
}

const char* vask_app::arg_iter_get_char_p(int off) const {
    const std::string* arg = arg_at(off);
    return arg != nullptr ? arg->c_str() : nullptr;
}

unsigned int vask_app::arg_iter_get_uint_hex(int off) const {
    const std::string* arg = arg_at(off);
    if (arg == nullptr) {
        return 0;
    }
    unsigned int value = 0;
    if (sscanf(arg->c_str(), "%x", &value) != 1) {
        vask_p(VASK_P_ERR, "Failed to convert hexadecimal form '%s'\n", arg->c_str());
        return 0;
    }
    return value;
}

void vask_app::set_arg_error_fatal(bool fatal) {
    m_arg_error_fatal = fatal;
}
