// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEALED_WARDEN_H
#define VASK_TEST_SEALED_WARDEN_H

#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

#include "exit_watch.h"
#include "leftovers.h"
#include "open_descriptors.h"
#include "open_world.h"
#include "options.h"
#include "private_servers.h"
#include "vask_test/process_list.h"

namespace vask_test {

/** The statuses of vask-sealed that are not the program's own. */
enum sealed_status {
    left_something = 1,
    bad_usage = 2,
    no_world = 77,  // what test runners take for "skipped"
    timed_out = 124,
    no_server = 125
};

/** Runs the servers and the program, and inspects the end. Whatever they leave is its child. */
class warden {
public:
    /** In the open world that is given, or as process 1 of a private one. The process id is this
     *  process's own on the machine. */
    warden(const options& wanted, pid_t pid_on_machine, const open_world* open = nullptr);
    ~warden();
    warden(const warden&) = delete;
    warden& operator=(const warden&) = delete;

    /** Returns the status for vask-sealed to end with. */
    int run();

private:
    using clock_type = std::chrono::steady_clock;

    static clock_type::time_point deadline_after(double seconds);

    int run_program();
    bool start_servers();
    static bool await(private_server& server, const char* name, const char* variable,
                      const std::string& prefix);
    /** False with errno when there is no process for it. */
    bool start_program();
    bool wait_for_program(clock_type::time_point deadline);
    int stop_program();
    void report_timeout() const;

    void wait_for_event(clock_type::duration at_most);
    void reap();
    void look_at_exit();
    void end_all_processes();

    bool belongs_to_servers(pid_t pid) const;
    std::vector<process_entry> foreign_processes() const;
    bool left_nothing_behind();
    std::vector<process_entry> wait_for_stragglers();
    void add_bus_names(const std::vector<process_entry>& owners, leftovers* list) const;

    void keep_world();

    const options& m_wanted;
    const pid_t m_pid_on_machine;
    const open_world* const m_open;
    const std::string m_directory;
    sigset_t m_original_mask;
    int m_signals = -1;
    private_server m_bus;
    private_server m_display;
    exit_watch m_exits;
    pid_t m_program = -1;
    int m_status = 0;
    bool m_has_ended = false;
    bool m_was_asked_to_end = false;
    bool m_is_watching = false;
    bool m_has_looked = false;
    std::vector<open_descriptor> m_descriptors;
};

}  // namespace vask_test

#endif
