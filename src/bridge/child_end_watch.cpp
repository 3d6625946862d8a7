#include "bridge/child_end_watch.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "foundation/glib_handles.h"

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
    const auto fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (fd >= 0) {
        close(fd);
        return true;
    }
#endif
    return false;
}

bool is_traced(int pid) {
    const char key[] = "\nTracerPid:";
    gchar* text = nullptr;
    if (!g_file_get_contents(("/proc/" + std::to_string(pid) + "/status").c_str(), &text, nullptr,
                             nullptr)) {
        return false;
    }
    const unique_g_text owned(text);
    const char* entry = strstr(text, key);
    return entry != nullptr && atoi(entry + strlen(key)) != 0;
}

}  // namespace

bool has_been_reaped(int pid) {
    siginfo_t info;
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == -1 &&
           errno == ECHILD;
}

void wake_child(int pid) {
    // Whoever attaches to a process (a debugger, a sanitizer at its end) waits for it to stop, and
    // would wait for ever: SIGCONT takes a stop back that has not happened yet.
    if (!is_traced(pid) && !has_been_reaped(pid)) {
        kill(pid, SIGCONT);
    }
}

guint watch_child_end(int pid, GChildWatchFunc callback, void* data) {
    if (has_pidfd(pid)) {
        const guint watch_id = g_child_watch_add(pid, callback, data);
        if (!has_been_reaped(pid)) {
            return watch_id;
        }
        g_source_remove(watch_id);
    }
    // Without a pidfd GLib has a thread reap children when SIGCHLD comes. It would hear of nothing
    // while the process blocks or ignores that signal, and it could take a child away between a
    // look at it and a signal to it. So the main loop looks for itself.
    return g_timeout_add_full(G_PRIORITY_DEFAULT, poll_interval_msec, poll_child,
                              new polled_child{pid, callback, data},
                              [](gpointer child) { delete static_cast<polled_child*>(child); });
}
