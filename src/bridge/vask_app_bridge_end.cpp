#include <errno.h>
#include <glib.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bridge/child_end_watch.h"
#include "bridge/vask_child_farewell.h"
#include "vask_app_bridge.h"

// How a bridge and its children stay in step:
//
// A slot that is not empty stands for a process that this process has started and not yet been told
// the end of. Exactly one of two things empties it: the child watch (child_watch(), followed by a
// callback) or vask_wait_child_exit() (no callback). Both delete the proxy, and with it the watch,
// so that none of them can follow the other.
//
// The child watch of a child on the bus leaves the slot as it is until what the child has sent has
// been delivered (vask_child_farewell). To the application the child has not ended before.
//
// Nothing is sent to a process id that has been reaped, because it may be a stranger's by then.

namespace {

constexpr int poll_interval_msec = 10;

// Reaps a child that is nobody's any more, whenever it ends.
void reap_silently(int pid) {
    watch_child_end(
        pid, [](GPid, gint, gpointer) {}, nullptr);
}

// Gives the main place back, if the bridge still lives then.
class main_place_guard {
public:
    main_place_guard(int& index, const std::shared_ptr<char>& lifetime)
        : m_index(index), m_value(index), m_lifetime(lifetime) {}
    ~main_place_guard() {
        if (is_needed()) {
            m_index = m_value;
        }
    }
    main_place_guard(const main_place_guard&) = delete;
    main_place_guard& operator=(const main_place_guard&) = delete;

    bool is_needed() const { return !m_lifetime.expired(); }

private:
    int& m_index;
    const int m_value;
    const std::weak_ptr<char> m_lifetime;
};

// How long a wait has taken. When the clock fails, the naps of the wait must do.
double waited_msec(double start, long long napped_msec) {
    const double now = vask_object::vask_gettime(VASK_TIME_MSEC);
    return start < 0 || now < 0 ? static_cast<double>(napped_msec) : now - start;
}

}  // namespace

void vask_app_bridge::terminate_worker() {
    vask_child_proxy* worker = main_worker();
    if (worker == nullptr || worker->is_terminating()) {
        return;
    }
    worker->set_terminating();
    // Whoever has ended cannot be asked, and its process id may be a stranger's.
    if (worker->m_farewell->has_begun()) {
        return;
    }
    // An override may delete this bridge, and with it the worker.
    const std::weak_ptr<vask_child_farewell> farewell = worker->m_farewell;
    worker->m_farewell->begin_request();
    // From the destructor this is the base's own, as the header warns.
    terminate_worker_impl();  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall)
    if (const auto left = farewell.lock()) {
        left->end_request();
    }
}

void vask_app_bridge::terminate_all_workers() {
    const main_place_guard main_place(m_main_worker_index, m_lifetime);
    for (int slot : {0, 1}) {
        // An override may run a main loop, in which a callback deletes this bridge.
        if (main_place.is_needed()) {
            m_main_worker_index = slot;
            terminate_worker();
        }
    }
}

void vask_app_bridge::terminate_worker_impl() {
    vask_p(VASK_P_DBG, "%s\n", "virtual void vask_app_bridge::terminate_worker_impl()");
    const vask_child_proxy* worker = main_worker();
    if (worker == nullptr || worker->m_farewell->has_begun()) {
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
    const double start = vask_gettime(VASK_TIME_MSEC);
    long long napped_msec = 0;
    for (;;) {
        int status = 0;
        const pid_t waited = child.m_farewell->has_begun() ? pid : waitpid(pid, &status, WNOHANG);
        if (waited > 0) {
            vask_p(VASK_P_DBG, "%s: waited time: %.1f (ms)\n", signature,
                   waited_msec(start, napped_msec));
            return true;
        }
        if (waited < 0) {
            // Mostly ECHILD: somebody else has reaped it. The child has ended all the same.
            vask_p(VASK_P_ERR, "%s: waitpid: errno: %d\n", signature, errno);
            return true;
        }
        usleep(poll_interval_msec * 1000);
        napped_msec += poll_interval_msec;
        if (timeout_ms != 0 && waited_msec(start, napped_msec) > timeout_ms) {
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

void vask_app_bridge::_child_watch(int pid, int status, void* data) {
    vask_p("vask_app_bridge", VASK_P_DBG, "_child_watch: %d\n", pid);
    auto* bridge = static_cast<vask_app_bridge*>(data);
    vask_child_proxy* child = bridge->m_child_proxy[0];
    if (child == nullptr || child->get_pid() != pid) {
        child = bridge->m_child_proxy[1];
    }
    if (child != nullptr && child->get_pid() == pid && child->m_farewell->is_needed()) {
        g_source_remove(child->m_watch_id);
        child->m_watch_id = child->m_farewell->begin(status);
        return;
    }
    report_child_end(*bridge, child, pid, status);
}

void vask_app_bridge::child_watch(int pid, int) {
    const char* const signature = "void vask_app_bridge::child_watch(GPid, gint)";
    vask_p(VASK_P_DBG, "%s: %d\n", signature, pid);
    int slot = 0;
    while (slot < 2 && (m_child_proxy[slot] == nullptr || m_child_proxy[slot]->get_pid() != pid)) {
        ++slot;
    }
    if (slot == 2) {
        vask_p(VASK_P_ERR, "%s: pid(%d): No such child.\n", signature, pid);
        abort();
    }
    const bool is_main = slot == m_main_worker_index;
    const bool terminating = m_child_proxy[slot]->is_terminating();
    delete m_child_proxy[slot];
    m_child_proxy[slot] = nullptr;
    free_child_resource();

    // Either callback may delete this bridge: nothing may follow.
    if (terminating) {
        child_exit_cb(is_main);
    } else {
        child_crash_cb(is_main);
    }
}
