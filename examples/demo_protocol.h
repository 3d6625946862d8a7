// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef DEMO_PROTOCOL_H
#define DEMO_PROTOCOL_H

// What the parent and the child of the demonstration have agreed on. The library only carries the
// numbers; their meaning is the applications' own.

enum demo_command : int {
    DEMO_CMD_GREET = 1, /**< argument: a name; replies with a greeting */
    DEMO_CMD_RING = 2,  /**< argument: a text; raises ::DEMO_SIG_RANG with it */
    DEMO_CMD_CRASH = 3, /**< never replies */
    DEMO_CMD_NOTE = 4,  /**< argument: a text; the child appends it to its diary */
    DEMO_CMD_DIARY = 5, /**< replies with the diary, its entries separated by "; " */
    DEMO_CMD_QUIT = 6   /**< replies with a farewell and leaves the main loop */
};

enum demo_signal : int {
    DEMO_SIG_RANG = 1 /**< data: the argument of ::DEMO_CMD_RING */
};

#endif
