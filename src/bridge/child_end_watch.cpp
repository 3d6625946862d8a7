// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bridge/child_end_watch.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/glib_handles.h"
#include "foundation/unique_fd.h"

namespace {

constexpr guint poll_interval_msec = 20;

struct polled_child {
    int pid;
    GChildWatchFunc callback;
    void* data;
};

gboolean poll_child(gpointer data) {
    const polled_child child = *static_cast<polled_child*>(data);
    int status = 0;
    const pid_t waited = waitpid(child.pid, &status, WNOHANG);
    if (waited == 0) {
        return G_SOURCE_CONTINUE;
    }
    child.callback(child.pid, waited > 0 ? status : 0, child.data);
    return G_SOURCE_REMOVE;
}

bool has_pidfd(int pid) {
#ifdef SYS_pidfd_open
    return static_cast<bool>(unique_fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))));
#else
    return false;
#endif
}

guint watch_by_pidfd(int pid, GChildWatchFunc callback, void* data) {
    const guint watch_id = g_child_watch_add(pid, callback, data);
    name_child_source(watch_id, "end by pidfd", pid);
    // Somebody may have reaped the child before GLib has opened its pidfd. Nothing would tell GLib
    // of the end any more.
    if (has_been_reaped(pid)) {
        g_source_set_ready_time(g_main_context_find_source_by_id(nullptr, watch_id), 0);
    }
    return watch_id;
}

// Without a pidfd GLib has a thread reap children when SIGCHLD comes. That thread would hear of
// nothing while the process blocks or ignores the signal, and it could take a child away between a
// look at it and a signal to it. So the main loop looks for itself.
guint watch_by_polling(int pid, GChildWatchFunc callback, void* data) {
    const guint watch_id = g_timeout_add_full(
        G_PRIORITY_DEFAULT, poll_interval_msec, poll_child, new polled_child{pid, callback, data},
        [](gpointer child) { delete static_cast<polled_child*>(child); });
    name_child_source(watch_id, "end by polling", pid);
    return watch_id;
}

// What the kernel says of a process behind a key; empty for one that is gone.
unique_g_text read_status(int pid, const char* key) {
    gchar* text = nullptr;
    // Destructors come here, so it asks for no memory that could throw.
    char path[40];
    snprintf(path, sizeof path, "/proc/%d/status", pid);
    g_file_get_contents(path, &text, nullptr, nullptr);
    const unique_g_text owned(text);
    const char* const entry = text != nullptr ? strstr(text, key) : nullptr;
    return unique_g_text(g_strdup(entry != nullptr ? entry + strlen(key) : ""));
}

bool is_traced(int pid) {
    return atoi(read_status(pid, "\nTracerPid:").get()) != 0;
}

bool is_zombie(int pid) {
    return *g_strchug(read_status(pid, "\nState:").get()) == 'Z';
}

gboolean reap_or_wait(gpointer pid) {
    return waitpid(GPOINTER_TO_INT(pid), nullptr, WNOHANG) == 0;
}

}  // namespace

bool has_been_reaped(int pid) {
    siginfo_t info;
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == -1 &&
           errno == ECHILD;
}

void wake_child(int pid) {
    // Whoever attaches to a process (a debugger, a sanitizer at its end) waits for it to stop.
    // SIGCONT takes back a stop that has not happened yet, so that they would wait for ever.
    if (!is_traced(pid) && !has_been_reaped(pid)) {
        kill(pid, SIGCONT);
    }
}

void reap_held_back(int pid) {
    if (!has_been_reaped(pid) && is_zombie(pid)) {
        const guint id = g_timeout_add(poll_interval_msec, reap_or_wait, GINT_TO_POINTER(pid));
        name_child_source(id, "held by its tracer", pid);
    }
}

void name_child_source(guint source_id, const char* what, int pid) {
    const unique_g_text name(g_strdup_printf("vask: child %d: %s", pid, what));
    g_source_set_name_by_id(source_id, name.get());
}

guint watch_child_end(int pid, GChildWatchFunc callback, void* data) {
    const auto watch = has_pidfd(pid) ? watch_by_pidfd : watch_by_polling;
    return watch(pid, callback, data);
}
