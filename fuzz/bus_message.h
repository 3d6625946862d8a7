// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_FUZZ_BUS_MESSAGE_H
#define VASK_FUZZ_BUS_MESSAGE_H

#include <optional>
#include <string>

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

/** A number and a text, which commands and the signals of children bring. */
struct numbered_text {
    int number;
    std::string text;

    bool operator==(const numbered_text& other) const {
        return number == other.number && text == other.text;
    }
};

/** What a message brings that has just these two values; nothing of another one. */
std::optional<numbered_text> numbered_text_of(DBusMessage* message);

/** What a message brings that has just one text; nothing of another one. */
std::optional<std::string> text_of(DBusMessage* message);

/** Adds up to five values of any types that nest up to three deep. */
void append_values(DBusMessage* message, input& input);

/** Any message that a bus lets pass: mostly with those names, and with any values. */
unique_bus_message make_message(const bus_names& usual, input& input);

}  // namespace vask_fuzz

#endif
