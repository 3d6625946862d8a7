// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SERVED_CHILD_H
#define VASK_TEST_SERVED_CHILD_H

#include <string>

#include "support/bus_client.h"

namespace vask_test {

/** The names by which a stranger finds a child on the bus. */
constexpr char child_path[] = "/com/example/vask/Child";
constexpr char child_interface[] = "com.example.vask.Child";
std::string child_name(int pid);

/** A child as a stranger calls it. */
class served_child {
public:
    /** @param name  the well-known name, or a unique one */
    served_child(bus_client& client, const std::string& name) : m_client(client), m_name(name) {}

    /** A call of any method of any interface at the child's path, for arguments to be added. */
    message_ptr new_call(const char* interface, const char* method) const;

    bus_reply command(int id, const std::string& argument = "");
    void command_without_reply(int id, const std::string& argument);
    bus_reply set_window(int x, int y, int w, int h, unsigned int id);
    bus_reply introspect();

    bus_client& client() const { return m_client; }

private:
    message_ptr new_command(int id, const std::string& argument) const;

    bus_client& m_client;
    std::string m_name;
};

}  // namespace vask_test

#endif
