// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_OPEN_CONTROLLER_H
#define VASK_TEST_OPEN_CONTROLLER_H

#include "programs/controller_child_commands.h"
#include "vask_child_cmd.h"

namespace vask_test {

/** A controller named "controller" whose protected side tests can reach. */
class open_controller : public vask_child_cmd_base {
public:
    explicit open_controller(const char* program = controller_child_name)
        : vask_child_cmd_base("controller", program) {}

    using vask_child_cmd_base::m_connection;
    using vask_child_cmd_base::m_pid;
    using vask_child_cmd_base::m_program;
    using vask_child_cmd_base::m_proxy;
};

}  // namespace vask_test

#endif
