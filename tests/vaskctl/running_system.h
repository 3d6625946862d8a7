// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_RUNNING_SYSTEM_H
#define VASK_TEST_RUNNING_SYSTEM_H

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "support/forked_process.h"
#include "tool_run.h"
#include "vask_test/bus_client.h"
#include "vask_test/started_process.h"

namespace vask_test {

/** Where output vanishes. */
class null_device {
public:
    null_device();
    ~null_device();
    null_device(const null_device&) = delete;
    null_device& operator=(const null_device&) = delete;

protected:
    const int m_null_fd;
};

/** A program that is silent, and gone with the object. */
class silent_process : private null_device, public started_process {
public:
    silent_process(const std::string& program, const std::vector<std::string>& arguments,
                   const std::string& argv0 = "");
};

/** Begins and ends without shared objects of the library. What the parents of a test have started
 *  ends with the test, if the test has waited for it. Skipped where the machine's own processes and
 *  objects are in sight: they would be, for the tool, too. */
class running_system : public testing::Test {
protected:
    running_system();
    ~running_system() override;

    void SetUp() override;

    /** A controller_child that is on the bus, and registered where it has a key. */
    std::unique_ptr<silent_process> start_child(const std::string& key = "");

    /** A vaskctl_parent whose bridge has started the command. */
    std::unique_ptr<silent_process> start_parent(std::vector<std::string> command);

    /** The process below another one that runs a program; the tests wait for it. */
    pid_t wait_for_process_below(pid_t parent, const std::string& program, int skipped = 0);

    void wait_until_on_bus(pid_t pid);
    static void wait_until_registered(pid_t pid, const std::string& key);

    /** Ends a process that is no child of the test, and waits for that. */
    static void end_stranger(pid_t pid);

    bus_client client;

private:
    std::vector<pid_t> m_strangers;
};

/** A process that holds the library lock until it is killed. */
class living_lock_holder {
public:
    living_lock_holder();

    pid_t pid() const { return m_process.pid(); }
    void kill_now() { m_process.kill_now(); }

private:
    const shared_value<std::atomic<bool>> m_holds;
    forked_process m_process;
};

/** A holder of a semaphore that is killed while it has it. */
void leave_sem_to_a_dead_holder(const std::string& name);

/** A text with "$1", "$2" and so on replaced by numbers. */
std::string with_pids(std::string text, const std::vector<pid_t>& pids);

/** Whether the kernel shows that a process has ended but was not reaped. */
bool wait_until_zombie(pid_t pid);

}  // namespace vask_test

#endif
