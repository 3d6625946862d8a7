// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_COMPLAINT_H
#define VASKCTL_COMPLAINT_H

#include <stdexcept>
#include <string>

namespace vaskctl {

// What the tool ends with.
enum exit_status {
    status_done = 0,
    status_failed = 1,  // or: something is not healthy
    status_usage = 2,
    status_no_such_child = 3,
    status_refused = 4,
    status_timed_out = 5,
    status_no_bus = 6,
    status_cannot_tell = 7,  // rights are lacking
};

// Ends the tool with one line on standard error that says what to do, and with a status.
class complaint : public std::runtime_error {
public:
    complaint(exit_status status, const std::string& text)
        : std::runtime_error(text), m_status(status) {}

    exit_status status() const { return m_status; }

private:
    const exit_status m_status;
};

}  // namespace vaskctl

#endif
