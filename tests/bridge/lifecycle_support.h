// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LIFECYCLE_SUPPORT_H
#define VASK_TEST_LIFECYCLE_SUPPORT_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "bridge/lifecycle_sigterm.h"
#include "bridge/recording_bridge.h"
#include "vask_test/log_catcher.h"
#include "vask_test/process_list.h"

namespace vask_test {

constexpr const char* lifecycle_probe_program = VASK_TEST_PROGRAM_DIR "/lifecycle_probe";

/** Whether the process has ended and was reaped. */
bool is_gone(pid_t pid);

/** Whether the process has ended, reaped or not. */
bool has_ended(pid_t pid);

/** Waits for the end of a child behind the back of everybody else, and reaps it. GLib may warn
 *  about that. */
void reap_secretly(pid_t pid);

/** The child processes of this process, zombies included. */
int count_children();

/** Runs the main loop until the end of a child that has ended after all others was reported. Leaves
 *  SIGCHLD not ignored. */
void let_child_watches_run();

/** Starts lifecycle_probe in the bridge's empty slots. */
bool spawn_probe(vask_app_bridge& bridge, std::initializer_list<std::string> arguments);

/** The names of the main loop's sources that wait for something of a child. */
std::vector<std::string> child_source_names();

/** What this process has logged, without its children's lines. */
std::vector<log_line> own_lines(const log_catcher& log);

/**
 * Everything is logged and caught. Afterwards no SIGTERM has gone where it must not, and GLib was
 * not told about things that are gone.
 */
class lifecycle_fixture : public testing::Test {
protected:
    lifecycle_fixture();
    ~lifecycle_fixture() override;

    static int glib_warnings();

    /** Waits until that many children have announced that they react to signals now. */
    bool wait_until_ready(int children = 1);

    log_catcher log;
};

}  // namespace vask_test

#endif
