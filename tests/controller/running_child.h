// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_RUNNING_CHILD_H
#define VASK_TEST_RUNNING_CHILD_H

#include <string>

#include "programs/controller_child_commands.h"
#include "vask_test/log_catcher.h"
#include "vask_test/started_process.h"

namespace vask_test {

/** A controller_child that serves commands; ends with this object at the latest. */
class running_child {
public:
    struct options {
        std::string argv0 = controller_child_name;
        std::string key;  // empty for a child that does not register itself
    };

    /** Returns when the child is ready; what was logged until then is dropped. */
    explicit running_child(log_catcher& log) : running_child(log, options()) {}
    running_child(log_catcher& log, const options& wanted);

    /** A child that the process table does not show under the program's name. */
    static options only_registered(const std::string& key) { return {"something_else", key}; }

    int pid() const { return m_process.pid(); }
    void send(int signal) const { m_process.send(signal); }

    /** Ends it, and waits until the bus knows. */
    void end();

    /** The same, but it stays a zombie until this object is gone. */
    void end_unreaped();

private:
    void wait_until_off_the_bus() const;

    started_process m_process;
};

}  // namespace vask_test

#endif
