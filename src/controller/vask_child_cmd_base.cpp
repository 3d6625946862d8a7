// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glib-object.h>
#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>

#include "bus/bus_names.h"
#include "bus/session_bus.h"
#include "foundation/glib_handles.h"
#include "foundation/unique_fd.h"
#include "vask_child_cmd.h"

namespace {

struct dir_closer {
    void operator()(DIR* directory) const { closedir(directory); }
};

bool is_piece_separator(char c) {
    return c == '/' || c == '\r' || c == '\n' || c == '\t';
}

// Reads up to the first zero, which separates the words of a command line: mostly it comes with the
// first read. Below the open directory the kernel need not look "/proc" up for every process.
bool read_first_word(int proc, const char* pid, std::string* word) {
    word->clear();
    const unique_fd file(
        openat(proc, (std::string(pid) + "/cmdline").c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        return false;
    }
    char buffer[1024];
    for (;;) {
        const ssize_t length = TEMP_FAILURE_RETRY(read(file.get(), buffer, sizeof(buffer)));
        if (length <= 0) {
            return length == 0;
        }
        const std::size_t taken = strnlen(buffer, static_cast<std::size_t>(length));
        word->append(buffer, taken);
        if (taken < static_cast<std::size_t>(length)) {
            return true;
        }
    }
}

// The last piece that vask_object::split() would find, without building the others: it runs for
// every process of the machine.
bool last_piece_equals(const std::string& text, const std::string& wanted) {
    const char* const begin_of_text = text.data();
    const char* end = begin_of_text + text.size();
    while (end != begin_of_text && is_piece_separator(end[-1])) {
        --end;
    }
    const char* begin = end;
    while (begin != begin_of_text && !is_piece_separator(begin[-1])) {
        --begin;
    }
    return begin != end &&
           wanted.compare(0, std::string::npos, begin, static_cast<std::size_t>(end - begin)) == 0;
}

}  // namespace

vask_child_cmd_base::vask_child_cmd_base(const char* name, const char* program)
    : m_proxy(nullptr), m_connection(nullptr), m_program(program), m_pid(0) {
    obj_name = name;
}

vask_child_cmd_base::~vask_child_cmd_base() {
    release_proxy();
}

void vask_child_cmd_base::release_proxy() {
    if (m_proxy != nullptr) {
        g_object_unref(m_proxy);
        m_proxy = nullptr;
    }
}

std::string vask_child_cmd_base::make_dbus_servie_name(int pid) {
    char name[256];
    snprintf(name, sizeof(name), VASK_CHILD_NAME_FORMAT, pid);
    return name;
}

std::vector<int> vask_child_cmd_base::find_program() const {
    std::vector<int> pids;
    const std::unique_ptr<DIR, dir_closer> directory(opendir("/proc"));
    if (!directory) {
        printf("Failed to open directory: '/proc'\n");
        return pids;
    }
    std::string first_word;
    while (const dirent* entry = readdir(directory.get())) {
        if (is_number(entry->d_name) &&
            read_first_word(dirfd(directory.get()), entry->d_name, &first_word) &&
            last_piece_equals(first_word, m_program)) {
            pids.push_back(atoi(entry->d_name));
        }
    }
    return pids;
}

bool vask_child_cmd_base::make_proxy(int pid, bool force) {
    if (m_proxy != nullptr) {
        if (!force) {
            return true;
        }
        release_proxy();
    }
    gerror_holder error;
    unique_bus_connection connection = open_session_bus(error.out());
    if (!connection) {
        vask_p(VASK_P_ERR, "Failed to get DBUS connection: %s", error->message);
        return false;
    }
    // The reference is not given back, on purpose: a subclass may hand the connection on, and its
    // users may outlive this object. The process has one connection, however often it is opened.
    m_connection = connection.release();
    m_proxy = dbus_g_proxy_new_for_name(m_connection, make_dbus_servie_name(pid).c_str(),
                                        VASK_CHILD_PATH, VASK_CHILD_INTERFACE);
    m_pid = pid;
    return true;
}

bool vask_child_cmd_base::cmd_func(int cmd_id, const char* arg, std::string* reply) {
    const char* problem = nullptr;
    if (m_proxy == nullptr) {
        problem = "There is no proxy to a child";
    } else if (arg == nullptr) {
        problem = "The argument is null";
    } else if (!is_bus_connected(m_connection)) {
        problem = session_bus_is_lost;
    } else {
        problem = find_text_problem(arg);
    }
    if (problem != nullptr) {
        vask_p(VASK_P_ERR, "Failed to call: cmd_id: %d. %s\n", cmd_id, problem);
        return false;
    }

    gchar* answer = nullptr;
    gerror_holder error;
    if (!dbus_g_proxy_call(m_proxy, "Command", error.out(), G_TYPE_INT, cmd_id, G_TYPE_STRING, arg,
                           G_TYPE_INVALID, G_TYPE_STRING, &answer, G_TYPE_INVALID)) {
        vask_p(VASK_P_ERR, "Failed to call: cmd_id: %d. %s\n", cmd_id, error->message);
        return false;
    }
    const unique_g_text owned(answer);
    if (reply != nullptr) {
        *reply = null_as_empty(answer);
    }
    return true;
}

bool vask_child_cmd_base::call(int cmd_id, const char* arg, std::string* reply) {
    if (m_proxy == nullptr || !is_process_alive(m_pid)) {
        int target = 0;
        const std::map<unsigned long, int> registered = find_stored_pid_from_shm(m_program);
        if (!registered.empty()) {
            target = registered.begin()->second;
        } else {
            const std::vector<int> running = find_program();
            if (running.empty()) {
                return false;
            }
            target = running.front();
        }
        // Not forced, on purpose: a proxy to a child that has ended stays, and the call fails.
        if (!make_proxy(target, false)) {
            return false;
        }
    }
    return cmd_func(cmd_id, arg, reply);
}

bool vask_child_cmd_base::call_by_key(unsigned long key, int cmd_id, const char* arg,
                                      std::string* reply) {
    const std::map<unsigned long, int> registered = find_stored_pid_from_shm(m_program);
    const auto found = registered.find(key);
    if (found == registered.end()) {
        return false;
    }
    const bool has_proxy = m_proxy != nullptr && m_pid == found->second;
    if (!has_proxy && !make_proxy(found->second, true)) {
        return false;
    }
    return cmd_func(cmd_id, arg, reply);
}
