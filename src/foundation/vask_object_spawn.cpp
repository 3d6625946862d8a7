// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "foundation/glib_handles.h"
#include "foundation/log_place.h"
#include "vask_object.h"

// Of all that a child's start needs, posix_spawn_file_actions_addclosefrom_np() came last.
#if defined(__GLIBC__)
#if __GLIBC_PREREQ(2, 34)
#define CHILD_STARTS_BY_POSIX_SPAWN
#endif
#endif

namespace {

const char source_unit[] = "vask_object_spawn";

constexpr int lowest_nice = -20;
constexpr int idle_priority = 1000;
constexpr int unknown_priority = 2000;

// Neither an exit, nor a signal, nor a stop.
constexpr int unknown_status = -1;

// The null-terminated array that GLib takes. It borrows the texts of the list.
std::vector<char*> to_text_array(const strlist* list) {
    std::vector<char*> array;
    if (list != nullptr) {
        array.reserve(list->size() + 1);
        for (const std::string& text : *list) {
            array.push_back(const_cast<char*>(text.c_str()));
        }
    }
    array.push_back(nullptr);
    return array;
}

void log_text_array(const std::vector<char*>& array, const char* element_format,
                    const char* size_format) {
    for (size_t i = 0; i + 1 < array.size(); ++i) {
        vask_object::vask_p("vask", VASK_P_DBG, element_format, source_unit, __LINE__,
                            static_cast<int>(i), array[i]);
    }
    vask_object::vask_p("vask", VASK_P_DBG, size_format, source_unit, __LINE__,
                        static_cast<int>(array.size()));
}

bool report_spawn_failure(const char* reason) {
    vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to spawn: %s"), reason);
    return false;
}

bool report_no_arguments() {
    return report_spawn_failure("The argument list is empty");
}

// The signals that a child must receive to be ended, and to hear of its own children.
sigset_t child_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGCHLD);
    return set;
}

// Runs between fork and exec: async-signal-safe calls only.
void unblock_child_signals(gpointer) {
    const sigset_t set = child_signals();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

// What a child is started with. Owns nothing.
struct child_plan {
    const char* directory;
    char** argv;
    char** envp;
};

bool start_by_glib(const child_plan& plan, pid_t* pid, GError** error) {
    return g_spawn_async(plan.directory, plan.argv, plan.envp, G_SPAWN_DO_NOT_REAP_CHILD,
                         unblock_child_signals, nullptr, pid, error);
}

#ifdef CHILD_STARTS_BY_POSIX_SPAWN

class spawn_actions {
public:
    spawn_actions() : m_made(posix_spawn_file_actions_init(&m_actions) == 0) {}
    ~spawn_actions() {
        if (m_made) {
            posix_spawn_file_actions_destroy(&m_actions);
        }
    }
    spawn_actions(const spawn_actions&) = delete;
    spawn_actions& operator=(const spawn_actions&) = delete;

    // The directory comes first: its path may lead through a descriptor that is about to be closed.
    bool prepare(const char* directory) {
        return m_made &&
               (directory == nullptr ||
                posix_spawn_file_actions_addchdir_np(&m_actions, directory) == 0) &&
               posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY,
                                                0) == 0 &&
               posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1) == 0;
    }
    const posix_spawn_file_actions_t* get() const { return &m_actions; }

private:
    posix_spawn_file_actions_t m_actions;
    const bool m_made;
};

class spawn_attributes {
public:
    spawn_attributes() : m_made(posix_spawnattr_init(&m_attributes) == 0) {}
    ~spawn_attributes() {
        if (m_made) {
            posix_spawnattr_destroy(&m_attributes);
        }
    }
    spawn_attributes(const spawn_attributes&) = delete;
    spawn_attributes& operator=(const spawn_attributes&) = delete;

    bool prepare() {
        sigset_t blocked;
        if (!m_made || pthread_sigmask(SIG_SETMASK, nullptr, &blocked) != 0) {
            return false;
        }
        sigdelset(&blocked, SIGTERM);
        sigdelset(&blocked, SIGCHLD);
        // GLib resets the same ones in a child that it forks. Others stay ignored.
        sigset_t reset = child_signals();
        sigaddset(&reset, SIGHUP);
        sigaddset(&reset, SIGINT);
        sigaddset(&reset, SIGPIPE);
        return posix_spawnattr_setsigmask(&m_attributes, &blocked) == 0 &&
               posix_spawnattr_setsigdefault(&m_attributes, &reset) == 0 &&
               posix_spawnattr_setflags(&m_attributes,
                                        POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
    }
    const posix_spawnattr_t* get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes;
    const bool m_made;
};

bool start_by_posix_spawn(const child_plan& plan, pid_t* pid) {
    spawn_actions actions;
    spawn_attributes attributes;
    return actions.prepare(plan.directory) && attributes.prepare() &&
           posix_spawn(pid, plan.argv[0], actions.get(), attributes.get(), plan.argv, plan.envp) ==
               0;
}

#endif

// GLib forks, which copies the page tables of all memory that this process has touched; posix_spawn
// does not. It closes the descriptors in the child, where no other thread can open one meanwhile.
// After a failure there is no child, so GLib may try: it also runs a script that names no
// interpreter, and the error is in its words. Where glibc is too old, GLib starts every child.
bool start_child(const child_plan& plan, pid_t* pid, GError** error) {
#ifdef CHILD_STARTS_BY_POSIX_SPAWN
    if (start_by_posix_spawn(plan, pid)) {
        return true;
    }
#endif
    return start_by_glib(plan, pid, error);
}

bool start_shutdown(const char* option, const char* signature) {
    std::string texts[] = {"/sbin/shutdown", option, "now"};
    char* argv[] = {&texts[0][0], &texts[1][0], &texts[2][0], nullptr};
    gerror_holder error;
    if (g_spawn_async(nullptr, argv, nullptr, static_cast<GSpawnFlags>(0), nullptr, nullptr,
                      nullptr, error.out())) {
        return true;
    }
    // The "%s" stands where the name belongs, and the signature where the number belongs: kept.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
    vask_object::vask_p("%s", VASK_P_ERR, "Failed to call g_spawn_async(): %d\n", signature);
#pragma GCC diagnostic pop
    return false;
}

// Whether the kernel keeps the status of an ended child. If it does not, GLib complains and makes a
// status up.
bool ended_children_wait() {
    struct sigaction action;
    return sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler != SIG_IGN &&
           (action.sa_flags & SA_NOCLDWAIT) == 0;
}

}  // namespace

bool vask_object::spawn_async(const strlist* argv, const strlist* envs, int* pid,
                              const char* working_directory) {
    std::vector<char*> arg_array = to_text_array(argv);
    log_text_array(arg_array, VASK_AT_FORMAT("argv[%d] = %s"), VASK_AT_FORMAT("size_arg = [%d]"));
    std::vector<char*> env_array = to_text_array(envs);
    log_text_array(env_array, VASK_AT_FORMAT("env[%d] = %s"), VASK_AT_FORMAT("size_env = [%d]"));
    if (arg_array.front() == nullptr) {
        return report_no_arguments();
    }

    pid_t child = 0;
    gerror_holder error;
    if (!start_child({working_directory, arg_array.data(), env_array.data()}, &child,
                     error.out())) {
        return report_spawn_failure(error->message);
    }
    if (pid != nullptr) {
        *pid = child;
    }
    return true;
}

bool vask_object::spawn_sync(const strlist* argv, const strlist* envs, int* status,
                             std::vector<unsigned char>* standard_output,
                             std::vector<unsigned char>* standard_error,
                             const char* working_directory) {
    std::vector<char*> arg_array = to_text_array(argv);
    std::vector<char*> env_array = to_text_array(envs);
    if (arg_array.front() == nullptr) {
        return report_no_arguments();
    }

    gchar* captured_output = nullptr;
    gchar* captured_error = nullptr;
    int known_status = unknown_status;
    gerror_holder error;
    if (!g_spawn_sync(working_directory, arg_array.data(), env_array.data(), G_SPAWN_SEARCH_PATH,
                      nullptr, nullptr, standard_output != nullptr ? &captured_output : nullptr,
                      standard_error != nullptr ? &captured_error : nullptr,
                      ended_children_wait() ? &known_status : nullptr, error.out())) {
        return report_spawn_failure(error->message);
    }
    if (status != nullptr) {
        *status = known_status;
    }

    const auto hand_over = [](gchar* captured, std::vector<unsigned char>* receiver) {
        unique_g_text owned(captured);
        if (receiver != nullptr && captured != nullptr) {
            receiver->assign(captured, captured + strlen(captured));
        }
    };
    hand_over(captured_output, standard_output);
    hand_over(captured_error, standard_error);
    return true;
}

bool vask_object::set_priority(int pid, int prio) {
    sched_param param = {};
    if (prio < lowest_nice) {
        param.sched_priority = lowest_nice - prio;
        if (sched_setscheduler(pid, SCHED_RR, &param) != 0) {
            vask_p(VASK_P_WARN,
                   "Failed to call sched_setscheduler: PID: %d, PRIO: %d, err: %d (RT)\n", pid,
                   prio, errno);
            return false;
        }
        return true;
    }
    if (prio == idle_priority) {
        if (sched_setscheduler(pid, SCHED_IDLE, &param) != 0) {
            vask_p(VASK_P_WARN,
                   "Failed to call sched_setscheduler: PID: %d, PRIO: %d, err: %d (IDLE)\n", pid,
                   prio, errno);
            return false;
        }
        return true;
    }
    // First back to the ordinary class: the process may have been real-time or idle before.
    if (sched_setscheduler(pid, SCHED_OTHER, &param) != 0) {
        vask_p(VASK_P_WARN,
               "Failed to call sched_setscheduler: PID: %d, PRIO: %d, err: %d (OTHER)\n", pid, prio,
               errno);
        return false;
    }
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(pid), prio) != 0) {
        vask_p(VASK_P_WARN, "Failed to call setpriority: PID: %d, PRIO: %d, err: %d\n", pid, prio,
               errno);
        return false;
    }
    return true;
}

int vask_object::get_priority(int pid) const {
    const int policy = sched_getscheduler(pid);
    switch (policy) {
        case -1:
            vask_p(VASK_P_WARN, "Failed to call sched_getscheduler: PID: %d, err: %d\n", pid,
                   errno);
            return unknown_priority;
        case SCHED_RR: {
            sched_param param = {};
            if (sched_getparam(pid, &param) != 0) {
                vask_p(VASK_P_WARN, "Failed to call sched_getparam: PID: %d, err: %d\n", pid,
                       errno);
                return unknown_priority;
            }
            return lowest_nice - param.sched_priority;
        }
        case SCHED_IDLE:
            return idle_priority;
        case SCHED_OTHER: {
            // -1 is a nice value as well as the mark of a failure; only errno tells them apart.
            errno = 0;
            const int nice_value = getpriority(PRIO_PROCESS, static_cast<id_t>(pid));
            if (nice_value == -1 && errno != 0) {
                vask_p(VASK_P_WARN, "Failed to call getpriority: PID: %d, err: %d\n", pid, errno);
                return unknown_priority;
            }
            return nice_value;
        }
        default:
            vask_p(VASK_P_WARN, "Scheduling policy was set outside vask: PID: %d, policy: %d\n",
                   pid, policy);
            return unknown_priority;
    }
}

bool vask_object::kill_process(int pid) {
    if (kill(pid, SIGTERM) != 0) {
        vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call kill: %d"), errno);
        return false;
    }
    return true;
}

bool vask_object::is_process_alive(int pid) {
    return pid > 0 && kill(pid, 0) == 0;
}

int vask_object::get_process_id(int id) {
    return id;
}

int vask_object::gettid() {
    return static_cast<int>(syscall(SYS_gettid));
}

bool vask_object::shutdown_system() {
    return start_shutdown("-h", "static bool vask_object::shutdown_system()");
}

bool vask_object::reboot_system() {
    return start_shutdown("-r", "static bool vask_object::reboot_system()");
}
