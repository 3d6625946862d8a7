// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_MESSAGE_LINE_H
#define VASK_MESSAGE_LINE_H

#include <stdarg.h>

#include "vask_object.h"

// What the header of a message tells.
struct message_header {
    const char* name;
    int pid;
    const char* level_name;  // null shows as "(null)"
    const void* address;
    double time;
};

// Prints a message to standard output, behind what stdio still holds. It writes until everything is
// out, and no other thread prints in between. When a standard output that does not block has taken
// nothing for a second, the rest is dropped.
void print_message_line(const message_header& header, const char* format, va_list args);

// vask_object::vask_p() for an object that may be gone by now: the caller gives the name and the
// address that it had.
__attribute__((format(printf, 4, 5))) void print_message_of(const char* name, const void* address,
                                                            vask_print_level level,
                                                            const char* format, ...);

// Leaves a header in the buffer of stdio.
void print_message_header(const message_header& header);

#endif
