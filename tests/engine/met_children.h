// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_MET_CHILDREN_H
#define VASK_TEST_MET_CHILDREN_H

#include <vask_object.h>

#include <algorithm>
#include <cstdlib>

#include "vask_test/log_catcher.h"

namespace vask_test {

/** Counts the children that bridges of this process meet while the object lives. */
class met_children {
public:
    met_children() {
        setenv("VASK_MSG_LV", "DBG", 1);
        vask_object::set_print_msg_level_level();
    }

    ~met_children() {
        setenv("VASK_MSG_LV", "INFO", 1);
        vask_object::set_print_msg_level_level();
    }

    long count() const {
        const auto lines = m_log.lines();
        return std::count(lines.begin(), lines.end(),
                          line("DBG", "demo_plugin", "The child has connected to the bus"));
    }

private:
    log_catcher m_log;
};

}  // namespace vask_test

#endif
