// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_FUZZ_BUS_MESSAGE_H
#define VASK_FUZZ_BUS_MESSAGE_H

#include "bus/bus_handles.h"
#include "target.h"

namespace vask_fuzz {

/** The names that mean something to the library; an input may choose others. */
struct bus_names {
    std::string sender;
    std::string path;
    std::string interface;
    std::string member;
};

/** Adds up to four values of any types that nest up to three deep. */
void append_values(DBusMessage* message, input& input);

/** Any message that a bus lets pass: mostly with those names, and with any values. */
unique_bus_message make_message(const bus_names& usual, input& input);

}  // namespace vask_fuzz

#endif
