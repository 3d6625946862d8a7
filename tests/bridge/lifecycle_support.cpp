// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bridge/lifecycle_support.h"

#include <errno.h>
#include <glib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

#include "vask_test/process_list.h"

namespace vask_test {

namespace {

// GLib's worker thread complains as well.
std::atomic<int> warnings{0};
std::atomic<int> criticals{0};

void count_complaint(const gchar* domain, GLogLevelFlags level, const gchar* text, gpointer data) {
    if (level & G_LOG_LEVEL_WARNING) {
        ++warnings;
    } else if (level & G_LOG_LEVEL_CRITICAL) {
        ++criticals;
    } else if (!(level & G_LOG_LEVEL_ERROR)) {
        return;
    }
    g_log_default_handler(domain, level, text, data);
}

}  // namespace

bool is_gone(pid_t pid) {
    return kill(pid, 0) == -1 && errno == ESRCH;
}

bool has_ended(pid_t pid) {
    for (const process_entry& process : list_processes()) {
        if (process.pid == pid) {
            return process.state == 'Z' || process.state == 'X';
        }
    }
    return true;
}

void reap_secretly(pid_t pid) {
    while (waitpid(pid, nullptr, 0) == pid || errno == EINTR) {
    }
}

int count_children() {
    int count = 0;
    for (const process_entry& process : list_processes()) {
        count += process.parent == getpid() ? 1 : 0;
    }
    return count;
}

void let_child_watches_run() {
    // Without the signal some kernels' main loops would not hear of this child.
    struct sigaction action;
    sigaction(SIGCHLD, nullptr, &action);
    if (action.sa_handler == SIG_IGN) {
        signal(SIGCHLD, SIG_DFL);
    }
    sigset_t child_ended;
    sigset_t mask;
    sigemptyset(&child_ended);
    sigaddset(&child_ended, SIGCHLD);
    sigprocmask(SIG_UNBLOCK, &child_ended, &mask);

    strlist argv = {"/bin/true"};
    int pid = 0;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    bool reported = false;
    const guint watch = g_child_watch_add(
        pid, [](GPid, gint, gpointer flag) { *static_cast<bool*>(flag) = true; }, &reported);
    if (!wait_until([&reported] { return reported; })) {
        g_source_remove(watch);
        FAIL() << "no child's end is reported";
    }
    drain_main_loop();
    sigprocmask(SIG_SETMASK, &mask, nullptr);
}

bool spawn_probe(vask_app_bridge& bridge, std::initializer_list<std::string> arguments) {
    strlist argv(arguments);
    argv.push_front(lifecycle_probe_program);
    strlist envs;
    return bridge.spawn(argv, envs);
}

std::vector<std::string> child_source_names() {
    const guint newest = g_idle_add([](gpointer) { return G_SOURCE_REMOVE; }, nullptr);
    g_source_remove(newest);
    std::vector<std::string> names;
    for (guint id = 1; id < newest; ++id) {
        GSource* source = g_main_context_find_source_by_id(nullptr, id);
        const char* name = source != nullptr ? g_source_get_name(source) : nullptr;
        if (name != nullptr && g_str_has_prefix(name, "vask: ")) {
            names.push_back(name);
        }
    }
    return names;
}

std::vector<log_line> own_lines(const log_catcher& log) {
    std::vector<log_line> result;
    for (const log_line& line : log.lines()) {
        if (line.pid == getpid()) {
            result.push_back(line);
        }
    }
    return result;
}

lifecycle_fixture::lifecycle_fixture() {
    vask_object::print_msg_level = VASK_P_DBG;
    g_log_set_default_handler(count_complaint, nullptr);
}

lifecycle_fixture::~lifecycle_fixture() {
    EXPECT_EQ(sigterm_record::to_reaped, 0) << "SIGTERM was sent to a process id without owner";
    EXPECT_EQ(sigterm_record::to_groups, 0) << "SIGTERM was sent to a group of processes";
    EXPECT_EQ(criticals, 0) << "GLib was used wrongly";
}

int lifecycle_fixture::glib_warnings() {
    return warnings;
}

bool lifecycle_fixture::wait_until_ready(int children) {
    return wait_until_without_loop([this, children] {
        int count = 0;
        for (const log_line& line : log.lines()) {
            count += line.text == "ready" ? 1 : 0;
        }
        return count >= children;
    });
}

}  // namespace vask_test
