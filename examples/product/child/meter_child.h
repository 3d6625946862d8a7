// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef METER_CHILD_H
#define METER_CHILD_H

#include <vask_child.h>

#include <queue>
#include <string>

#include "probe.h"
#include "published_value.h"

/** Measures what it is asked for, one after the other, and keeps the last value. */
class meter_child : public vask_child {
public:
    /** @param probe_program  prints a value for the name that it is given */
    meter_child(int argc, char** argv, const std::string& probe_program);

private:
    bool measure(const char* what, const char** reply);
    bool reply_last(const char* argument, const char** reply);

    void start_next();
    void finish(const std::string& what, const std::string& value);

    const std::string m_probe_program;
    std::queue<std::string> m_wanted;
    std::string m_last;
    probe m_probe;
    published_value m_published;
};

#endif
