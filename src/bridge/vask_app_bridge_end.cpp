// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <glib.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "bridge/child_end_watch.h"
#include "bridge/vask_app_bridge_state.h"
#include "bridge/vask_child_proxy_state.h"
#include "foundation/c_border.h"
#include "foundation/scope_exit.h"
#include "vask_app_bridge.h"

// How a bridge and its children stay in step:
//
// A slot that is not empty stands for a process that the bridge has started, and whose end the
// application has not been told yet. Exactly one of two things empties it: report_end(), followed
// by a callback, or vask_wait_child_exit(), without one. Both delete the proxy, and with it the
// watch, so that none of them can follow the other.
//
// _child_watch() hears of the end of a process. While a child on the bus may have sent something
// that was not delivered yet, it leaves the slot as it is, and the child's farewell reports the end
// later (vask_child_farewell). To the application the child has not ended before.
//
// Nothing is sent to a process id that has been reaped: it may be a stranger's by then, or that of
// the other twin.

namespace {

constexpr int poll_interval_msec = 10;

// Reaps a child that is nobody's any more, whenever it ends.
void reap_silently(int pid) {
    watch_child_end(
        pid, [](GPid ended, gint, gpointer) { reap_held_back(ended); }, nullptr);
}

}  // namespace

void vask_app_bridge::terminate_worker() {
    vask_child_proxy* worker = main_worker();
    if (worker == nullptr || worker->is_terminating()) {
        return;
    }
    worker->set_terminating();
    // A child that has ended cannot be asked, and its process id may be a stranger's.
    vask_child_farewell& farewell = worker->m_state->farewell;
    if (farewell.has_begun()) {
        return;
    }
    // An override may delete this bridge, and with it the worker.
    const life_mark life(worker->m_state->life);
    farewell.begin_request();
    // From the destructor this is the base's own, as the header warns.
    terminate_worker_impl();  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall)
    if (!life.is_over()) {
        farewell.end_request();
    }
}

void vask_app_bridge::terminate_all_workers() {
    // An override may run a main loop, in which a callback deletes this bridge.
    const life_mark life(m_state->life);
    const scope_exit give_main_place_back([&, main_place = m_main_worker_index] {
        if (!life.is_over()) {
            m_main_worker_index = main_place;
        }
    });
    for (int slot : {0, 1}) {
        if (!life.is_over()) {
            m_main_worker_index = slot;
            terminate_worker();
        }
    }
}

void vask_app_bridge::terminate_worker_impl() {
    vask_p(VASK_P_DBG, "%s\n", "virtual void vask_app_bridge::terminate_worker_impl()");
    const vask_child_proxy* worker = main_worker();
    if (worker == nullptr || worker->m_state->farewell.has_begun()) {
        return;
    }
    const int pid = worker->get_pid();
    if (pid > 0 && !has_been_reaped(pid) && kill_process(pid)) {
        wake_child(pid);
    }
}

bool vask_app_bridge::vask_wait_child_exit(unsigned int timeout_ms) {
    bool all_ended = true;
    for (vask_child_proxy*& worker : m_child_proxy) {
        if (worker == nullptr || !worker->is_terminating()) {
            continue;
        }
        const int pid = worker->get_pid();
        if (pid == 0) {
            vask_p(VASK_P_DBG, "%s: pid(%d) == 0\n",
                   "bool vask_app_bridge::vask_wait_child_exit(unsigned int)", pid);
            continue;
        }
        const bool ended = wait_for_end(*worker, timeout_ms);
        delete worker;
        worker = nullptr;
        if (!ended) {
            all_ended = false;
            reap_silently(pid);
        }
    }
    return all_ended;
}

// False when the child has outlived the time-out.
bool vask_app_bridge::wait_for_end(const vask_child_proxy& child, unsigned int timeout_ms) const {
    const char* const signature = "bool vask_app_bridge::vask_wait_child_exit(unsigned int)";
    const pid_t pid = child.get_pid();
    double waited_msec = 0;
    for (double last = vask_gettime(VASK_TIME_MSEC);;) {
        int status = 0;
        const pid_t waited =
            child.m_state->farewell.has_begun() ? pid : waitpid(pid, &status, WNOHANG);
        if (waited > 0) {
            vask_p(VASK_P_DBG, "%s: waited time: %.1f (ms)\n", signature, waited_msec);
            return true;
        }
        if (waited < 0) {
            // Mostly ECHILD: somebody else has reaped it. The child has ended all the same.
            vask_p(VASK_P_ERR, "%s: waitpid: errno: %d\n", signature, errno);
            return true;
        }
        usleep(poll_interval_msec * 1000);
        const double now = vask_gettime(VASK_TIME_MSEC);
        // A clock that fails must not make the wait endless.
        waited_msec += last < 0 || now < 0 ? poll_interval_msec : now - last;
        last = now;
        if (timeout_ms != 0 && waited_msec > timeout_ms) {
            vask_p(VASK_P_INFO, "%s: timeouted\n", signature);
            return false;
        }
    }
}

void vask_app_bridge::child_exit_cb(bool is_main) {
    vask_p(VASK_P_DBG, "%s: %d\n", "virtual void vask_app_bridge::child_exit_cb(bool)", is_main);
}

void vask_app_bridge::child_crash_cb(bool is_main) {
    vask_p(VASK_P_DBG, "%s: %d\n", "virtual void vask_app_bridge::child_crash_cb(bool)", is_main);
}

void vask_app_bridge::_child_watch(int pid, int, void* data) {
    vask_p("vask_app_bridge", VASK_P_DBG, "_child_watch: %d\n", pid);
    reap_held_back(pid);
    auto* const bridge = static_cast<vask_app_bridge*>(data);
    vask_child_proxy* const child = bridge->find_child(pid);
    if (child == nullptr || !child->m_state->farewell.is_needed()) {
        bridge->report_end_for_c(child, pid);
        return;
    }
    g_source_remove(child->m_state->end_watch);
    // Two pointers are kept without asking for memory, so the end is not lost for want of it.
    child->m_state->end_watch = child->m_state->farewell.begin(
        pid, [bridge, child] { bridge->report_end_for_c(child, child->get_pid()); });
}

// The child with this process id, or null. The id of a twin that has ended may be the other one's
// while the farewell lasts: then it is the other one that is found.
vask_child_proxy* vask_app_bridge::find_child(int pid) const {
    vask_child_proxy* found = nullptr;
    for (vask_child_proxy* worker : m_child_proxy) {
        if (worker != nullptr && worker->get_pid() == pid &&
            (found == nullptr || found->m_state->farewell.has_begun())) {
            found = worker;
        }
    }
    return found;
}

void vask_app_bridge::child_watch(int pid, int) {
    report_end(find_child(pid), pid);
}

void vask_app_bridge::report_end_for_c(vask_child_proxy* child, int pid) {
    const bool exits = child != nullptr && child->is_terminating();
    call_for_c(exits ? "vask_app_bridge::child_exit_cb()" : "vask_app_bridge::child_crash_cb()",
               [&] { report_end(child, pid); });
}

// Every end that is followed by a callback comes to here, however it was noticed.
void vask_app_bridge::report_end(vask_child_proxy* child, int pid) {
    const char* const signature = "void vask_app_bridge::child_watch(GPid, gint)";
    vask_p(VASK_P_DBG, "%s: %d\n", signature, pid);
    vask_child_proxy** const end = std::end(m_child_proxy);
    vask_child_proxy** const slot = std::find(std::begin(m_child_proxy), end, child);
    if (child == nullptr || slot == end) {
        vask_p(VASK_P_ERR, "%s: pid(%d): No such child.\n", signature, pid);
        abort();
    }
    const bool is_main = child == main_worker();
    const bool terminating = child->is_terminating();
    delete child;
    *slot = nullptr;
    free_child_resource();

    // Either callback may delete this bridge: nothing may follow.
    if (terminating) {
        child_exit_cb(is_main);
    } else {
        child_crash_cb(is_main);
    }
}
