// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_CONTROLLER_CHILD_COMMANDS_H
#define VASK_TEST_CONTROLLER_CHILD_COMMANDS_H

/** The name under which controller_child registers itself. */
constexpr char controller_child_name[] = "wanted_child";

/** What controller_child does on command. It prints "command ID ARGUMENT" for each of them. */
enum controller_child_command : int {
    CONTROLLER_CHILD_ECHO = 1,     /**< replies with the argument */
    CONTROLLER_CHILD_PID = 2,      /**< replies with its process id */
    CONTROLLER_CHILD_FAIL = 3,     /**< fails, although it has stored a reply */
    CONTROLLER_CHILD_NO_REPLY = 4, /**< succeeds and stores no reply */
    CONTROLLER_CHILD_DIE = 5       /**< ends as in a crash, before it can answer */
};

/** Nobody handles it. */
constexpr int controller_child_unknown_command = 4711;

#endif
