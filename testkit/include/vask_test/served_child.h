// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SERVED_CHILD_H
#define VASK_TEST_SERVED_CHILD_H

/**
 * @file
 * @brief A child as a stranger calls it.
 */

#include <string>

#include "vask_test/bus_client.h"
#include "vask_version.h"

namespace vask_test {

/** The interface of every child. */
constexpr char child_interface[] = VASK_BUS_PREFIX ".vask.Child";
/** @return the path of the object that every child has */
std::string child_path();
/** @param pid  a child @return its well-known name */
std::string child_name(int pid);

/** A child as a stranger calls it. */
class served_child {
public:
    /** @param client  calls it, and has to outlive this object @param name  the well-known name, or
     *  a unique one */
    served_child(bus_client& client, const std::string& name) : m_client(client), m_name(name) {}

    /** A call of any method at the child's path, for arguments to be added. @param interface  of
     * the method @param method  its name @return the call */
    message_ptr new_call(const char* interface, const char* method) const;
    /** @param id  the command @param argument  its text @return the call of Command */
    message_ptr new_command(int id, const std::string& argument) const;
    /** @param x,y,w,h  the geometry @param id  of the window @return the call of SetWindow */
    message_ptr new_set_window(int x, int y, int w, int h, unsigned int id) const;

    /** Waits for the answer. @param id  the command @param argument  its text @return the answer */
    bus_reply command(int id, const std::string& argument = "");
    /** Wants no answer. @param id  the command @param argument  its text */
    void command_without_reply(int id, const std::string& argument);
    /** Waits for the answer. @param x,y,w,h  the geometry @param id  of the window @return the
     *  answer */
    bus_reply set_window(int x, int y, int w, int h, unsigned int id);
    /** Waits for the answer. @return the description of its object */
    bus_reply introspect();

    /** @return who calls it */
    bus_client& client() const { return m_client; }

private:
    bus_client& m_client;
    std::string m_name;
};

}  // namespace vask_test

#endif
