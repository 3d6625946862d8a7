// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SECOND_BUS_H
#define VASK_TEST_SECOND_BUS_H

#include <signal.h>

#include <memory>
#include <string>

#include "vask_test/started_process.h"

namespace vask_test {

/** A message bus beside the one of the sealed environment, to be broken at will. */
class second_bus {
public:
    enum class names { free, denied };

    explicit second_bus(names policy = names::free);

    const std::string& address() const { return m_address; }

    /** "DBUS_SESSION_BUS_ADDRESS=...", for the environment of a child. */
    std::string variable() const;

    /** The bus stands still and reads nothing. */
    void stop() { m_daemon->send(SIGSTOP); }
    void go_on() { m_daemon->send(SIGCONT); }

    /** The bus ends as in a crash. */
    void kill() { m_daemon->kill_now(); }

private:
    std::string m_address;
    std::unique_ptr<started_process> m_daemon;
};

}  // namespace vask_test

#endif
