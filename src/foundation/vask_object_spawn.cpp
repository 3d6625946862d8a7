#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>

#include "foundation/glib_handles.h"
#include "vask_object.h"

namespace {

const char source_unit[] = "vask_object_spawn";

constexpr int lowest_nice = -20;
constexpr int idle_priority = 1000;
constexpr int unknown_priority = 2000;

// Neither an exit, nor a signal, nor a stop.
constexpr int unknown_status = -1;

struct dir_closer {
    void operator()(DIR* directory) const { closedir(directory); }
};

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

bool report_spawn_failure(int line, GError* error) {
    unique_g_error owned(error);
    vask_object::vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to spawn: %s\n", source_unit, line,
                        error != nullptr ? error->message : "The argument list is empty");
    return false;
}

// Whether an exec closes every descriptor above 2 by itself. False when that cannot be told.
bool all_descriptors_close_on_exec() {
    std::unique_ptr<DIR, dir_closer> directory(opendir("/proc/self/fd"));
    if (!directory) {
        return false;
    }
    while (const dirent* entry = readdir(directory.get())) {
        const int fd = atoi(entry->d_name);
        if (fd <= STDERR_FILENO) {
            continue;
        }
        const int flags = fcntl(fd, F_GETFD);
        if (flags == -1 || !(flags & FD_CLOEXEC)) {
            return false;
        }
    }
    return true;
}

// The signals that a child must receive to be ended, and to hear of its own children.
sigset_t child_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGCHLD);
    return set;
}

bool child_signals_blocked() {
    sigset_t blocked;
    return pthread_sigmask(SIG_SETMASK, nullptr, &blocked) == 0 &&
           (sigismember(&blocked, SIGTERM) == 1 || sigismember(&blocked, SIGCHLD) == 1);
}

// Runs between fork and exec: async-signal-safe calls only.
void unblock_child_signals(gpointer) {
    const sigset_t set = child_signals();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

bool start_shutdown(const char* option, const char* signature) {
    std::string texts[] = {"/sbin/shutdown", option, "now"};
    char* argv[] = {&texts[0][0], &texts[1][0], &texts[2][0], nullptr};
    GError* error = nullptr;
    if (g_spawn_async(nullptr, argv, nullptr, static_cast<GSpawnFlags>(0), nullptr, nullptr,
                      nullptr, &error)) {
        return true;
    }
    unique_g_error owned(error);
    // The "%s" stands where the name belongs, and the signature where the number belongs: kept.
    vask_object::vask_p("%s", VASK_P_ERR, "Failed to call g_spawn_async(): %d\n", signature);
    return false;
}

// Whether the kernel keeps the status of an ended child. Where it does not, GLib complains and
// makes one up.
bool ended_children_wait() {
    struct sigaction action;
    return sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler != SIG_IGN &&
           (action.sa_flags & SA_NOCLDWAIT) == 0;
}

}  // namespace

bool vask_object::spawn_async(const strlist* argv, const strlist* envs, int* pid,
                              const char* working_directory) {
    std::vector<char*> arg_array = to_text_array(argv);
    log_text_array(arg_array, "<%s:%d> argv[%d] = %s\n", "<%s:%d> size_arg = [%d]\n");
    std::vector<char*> env_array = to_text_array(envs);
    log_text_array(env_array, "<%s:%d> env[%d] = %s\n", "<%s:%d> size_env = [%d]\n");
    if (arg_array.front() == nullptr) {
        return report_spawn_failure(__LINE__, nullptr);
    }

    // GLib avoids copying this process's page tables only if it has nothing to do between fork and
    // exec: no descriptor to close, no signal to unblock.
    int flags = G_SPAWN_DO_NOT_REAP_CHILD;
    if (all_descriptors_close_on_exec()) {
        flags |= G_SPAWN_LEAVE_DESCRIPTORS_OPEN;
    }
    const GSpawnChildSetupFunc child_setup =
        child_signals_blocked() ? unblock_child_signals : nullptr;

    GPid child = 0;
    GError* error = nullptr;
    if (!g_spawn_async(working_directory, arg_array.data(), env_array.data(),
                       static_cast<GSpawnFlags>(flags), child_setup, nullptr, &child, &error)) {
        return report_spawn_failure(__LINE__, error);
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
        return report_spawn_failure(__LINE__, nullptr);
    }

    gchar* captured_output = nullptr;
    gchar* captured_error = nullptr;
    int known_status = unknown_status;
    GError* error = nullptr;
    if (!g_spawn_sync(working_directory, arg_array.data(), env_array.data(), G_SPAWN_SEARCH_PATH,
                      nullptr, nullptr, standard_output != nullptr ? &captured_output : nullptr,
                      standard_error != nullptr ? &captured_error : nullptr,
                      ended_children_wait() ? &known_status : nullptr, &error)) {
        return report_spawn_failure(__LINE__, error);
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
        vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to call kill: %d\n", source_unit, __LINE__,
               errno);
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
