// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "warden.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "bus_names.h"
#include "kept_world.h"
#include "private_world.h"
#include "vask_test/timeout_factor.h"

namespace vask_test {

namespace {

constexpr double server_start_seconds = 30;
constexpr double straggler_seconds = 5;
constexpr double abort_seconds = 5;
constexpr std::chrono::milliseconds tick(10);

int exit_code_of(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

warden::warden(const options& wanted, pid_t pid_on_machine, const open_world* open)
    : m_wanted(wanted),
      m_pid_on_machine(pid_on_machine),
      m_open(open),
      m_directory(open ? open->directory() : private_directory),
      m_bus(m_directory),
      m_display(m_directory) {
    sigset_t handled;
    sigemptyset(&handled);
    for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&handled, number);
    }
    sigprocmask(SIG_BLOCK, &handled, &m_original_mask);
    m_signals = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);
}

warden::~warden() {
    close(m_signals);
}

int warden::run() {
    seal_environment(m_directory);
    const int result = run_program();
    if (result != 0 && m_wanted.keeps_failed_world && m_program > 0) {
        keep_world();
    }
    // The end of process 1 ends the others as well.
    if (m_open) {
        end_all_processes();
    }
    return result;
}

int warden::run_program() {
    if (!start_servers()) {
        return no_server;
    }
    if (!start_program()) {
        complain(m_wanted.command[0] + " cannot be started: " + std::strerror(errno));
        return no_server;
    }
    if (!wait_for_program(deadline_after(m_wanted.timeout_seconds))) {
        return stop_program();
    }
    const bool clean = left_nothing_behind();
    const int result = exit_code_of(m_status);
    return result == 0 && !clean ? static_cast<int>(left_something) : result;
}

warden::clock_type::time_point warden::deadline_after(double seconds) {
    return clock_type::now() + std::chrono::duration_cast<clock_type::duration>(
                                   std::chrono::duration<double>(seconds * timeout_factor()));
}

bool warden::start_servers() {
    if (m_wanted.bus) {
        m_bus.start_bus(m_original_mask);
    }
    if (m_wanted.display) {
        m_display.start_display(m_original_mask);
    }
    return (!m_wanted.bus || await(m_bus, "dbus-daemon", "DBUS_SESSION_BUS_ADDRESS", "")) &&
           (!m_wanted.display || await(m_display, "Xvfb", "DISPLAY", ":"));
}

bool warden::await(private_server& server, const char* name, const char* variable,
                   const std::string& prefix) {
    const int msec = static_cast<int>(server_start_seconds * timeout_factor() * 1000);
    const std::string address = server.wait_for_address(msec);
    if (address.empty()) {
        complain(std::string(name) + " did not start: " + server.log());
        return false;
    }
    setenv(variable, (prefix + address).c_str(), 1);
    return true;
}

bool warden::start_program() {
    // Not asked for where nobody wants to know: there is one such watch for a process at a time.
    const bool is_watched = !m_wanted.may_all_be_left(leftover_kind::descriptor);
    m_program = spawn(m_wanted.command, m_original_mask, [&] {
        if (is_watched) {
            m_exits.begin_in_child();
        }
    });
    if (m_program < 0 || !is_watched) {
        return m_program > 0;
    }
    const std::string error = m_exits.begin_in_parent();
    m_is_watching = error.empty();
    if (!m_is_watching) {
        complain("descriptors are not counted: " + error);
    }
    return true;
}

int warden::stop_program() {
    report_timeout();
    // Whoever looks into the world wants to see it hang.
    if (!m_wanted.keeps_failed_world) {
        kill(m_program, SIGABRT);
        wait_for_program(deadline_after(abort_seconds));
    }
    return timed_out;
}

void warden::report_timeout() const {
    complain("no end after " + std::to_string(m_wanted.timeout_seconds * timeout_factor()) +
             " seconds; processes:");
    for (const process_entry& process : list_descendants(getpid())) {
        complain("  " + describe(process));
        const std::string position = kernel_position(process.pid);
        if (!position.empty()) {
            complain("      in " + position);
        }
    }
}

bool warden::wait_for_program(clock_type::time_point deadline) {
    for (;;) {
        reap();
        if (m_has_ended) {
            return true;
        }
        const auto left = deadline - clock_type::now();
        if (left <= clock_type::duration::zero()) {
            return false;
        }
        wait_for_event(left);
    }
}

void warden::wait_for_event(clock_type::duration at_most) {
    using namespace std::chrono;
    const auto nsec = duration_cast<nanoseconds>(at_most).count();
    const timespec limit = {static_cast<time_t>(nsec / 1000000000),
                            static_cast<long>(nsec % 1000000000)};
    pollfd events[] = {{m_signals, POLLIN, 0}, {m_exits.descriptor(), POLLIN, 0}};
    if (ppoll(events, 2, &limit, nullptr) <= 0) {
        return;
    }
    signalfd_siginfo signal;
    while (read(m_signals, &signal, sizeof signal) == sizeof signal) {
        m_was_asked_to_end |= signal.ssi_signo != SIGCHLD;
    }
    if (events[1].revents & POLLIN) {
        look_at_exit();
    } else if (events[1].revents != 0) {
        m_exits.end();
    }
}

void warden::look_at_exit() {
    const pid_t process = m_exits.next();
    if (process == 0) {
        return;
    }
    // One look is enough where signals can still interrupt the end.
    if (process == m_program && !m_has_looked) {
        m_has_looked = true;
        if (m_exits.has_program_begun() &&
            !list_open_descriptors(process, {m_bus.pid(), m_display.pid()}, &m_descriptors)) {
            complain("descriptors are not counted: the program does not show them");
        }
    }
    m_exits.let_go();
}

void warden::reap() {
    int status;
    pid_t pid;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
        if (pid == m_program) {
            m_status = status;
            m_has_ended = true;
        }
    }
}

void warden::end_all_processes() {
    const auto deadline = deadline_after(abort_seconds);
    std::vector<process_entry> processes = list_descendants(getpid());
    while (!processes.empty() && clock_type::now() < deadline) {
        for (const process_entry& process : processes) {
            // The numbers of others may be strangers' by now, and their orphans come to here.
            if (process.parent == getpid()) {
                kill(process.pid, SIGKILL);
            }
        }
        wait_for_event(tick);
        reap();
        processes = list_descendants(getpid());
    }
}

bool warden::belongs_to_servers(pid_t pid) const {
    return pid > 0 && (pid == m_bus.pid() || pid == m_display.pid());
}

std::vector<process_entry> warden::foreign_processes() const {
    std::vector<process_entry> result;
    for (const process_entry& process : list_descendants(getpid())) {
        if (!belongs_to_servers(process.pid) && !belongs_to_servers(process.parent)) {
            result.push_back(process);
        }
    }
    return result;
}

std::vector<process_entry> warden::wait_for_stragglers() {
    const auto deadline = deadline_after(straggler_seconds);
    std::vector<process_entry> processes = foreign_processes();
    while (!processes.empty() && clock_type::now() < deadline) {
        wait_for_event(tick);
        reap();
        processes = foreign_processes();
    }
    return processes;
}

// A name goes with its owner, so without processes there is none.
void warden::add_bus_names(const std::vector<process_entry>& owners, leftovers* list) const {
    if (!m_wanted.bus || owners.empty()) {
        return;
    }
    for (const owned_name& name : list_bus_names(std::getenv("DBUS_SESSION_BUS_ADDRESS"))) {
        list->add(leftover_kind::bus_name, name.name,
                  name.name + " of process " + std::to_string(name.owner));
    }
}

bool warden::left_nothing_behind() {
    if (m_is_watching && !m_has_looked && WIFEXITED(m_status)) {
        complain("descriptors are not counted: nobody saw the program end");
    }
    leftovers list(m_wanted);
    for (const open_descriptor& descriptor : m_descriptors) {
        list.add(leftover_kind::descriptor, descriptor.target,
                 std::to_string(descriptor.number) + " -> " + descriptor.target);
    }
    const bool waits = !m_wanted.may_all_be_left(leftover_kind::process);
    const std::vector<process_entry> processes =
        waits ? wait_for_stragglers() : foreign_processes();
    for (const process_entry& process : processes) {
        list.add(leftover_kind::process, process.command, describe(process));
    }
    add_bus_names(processes, &list);
    for (const shared_thing& thing :
         m_open ? m_open->new_things() : list_shared_things(owners::everybody)) {
        list.add(thing.kind, thing.name, thing.name);
    }
    list.sum_up();
    return list.none();
}

void warden::keep_world() {
    const std::string error = offer_world(m_directory);
    if (!error.empty()) {
        complain("the world cannot be kept: " + error);
        return;
    }
    const std::string pid = std::to_string(m_pid_on_machine);
    complain("the world is kept: \"vask-sealed --enter " + pid + "\" opens a shell in it, \"kill " +
             pid + "\" ends it");
    while (!m_was_asked_to_end) {
        wait_for_event(std::chrono::hours(1));
        reap();
    }
}

}  // namespace vask_test
