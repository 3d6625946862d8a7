// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef METER_PROTOCOL_H
#define METER_PROTOCOL_H

// What the child, the plug-in and the tool have agreed on.

/** File name of the child, by which the tool finds it. */
constexpr char meter_child_program[] = "meter_child";

enum meter_command : int {
    METER_MEASURE = 1, /**< "WHAT": the value follows as a signal */
    METER_LAST = 2     /**< replies what METER_MEASURED has said last */
};

enum meter_signal : int {
    METER_MEASURED = 1, /**< "WHAT VALUE" */
    METER_FAILED = 2    /**< "WHAT" */
};

#endif
