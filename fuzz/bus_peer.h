// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_FUZZ_BUS_PEER_H
#define VASK_FUZZ_BUS_PEER_H

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus/bus_handles.h"

namespace vask_fuzz {

/**
 * A session bus for this process alone. It answers what the library asks the bus, on a thread of
 * its own, and says on behalf of everybody else whatever it is told. It lives as long as the
 * process.
 */
class bus_peer {
public:
    /** Becomes the session bus of this process. */
    bus_peer();
    bus_peer(const bus_peer&) = delete;
    bus_peer& operator=(const bus_peer&) = delete;

    /** Sends a message to the library, from the bus. */
    void send(DBusMessage* message);

    /** Gives a name to another owner, or to none where that is empty, and tells of it. */
    void change_owner(const std::string& name, const std::string& owner);

    /** What every call to somebody else is answered with from now on; null for a failure. */
    void answer_with(unique_bus_message answer);

    /** Runs the main loop until everything that was sent has been handled. */
    void settle();

    /** What the library has said to anybody but the bus, since it was last asked. */
    std::vector<unique_bus_message> take_heard();

    static constexpr const char* name_of_library = ":1.7";

private:
    void serve();
    void talk(int fd);
    void shake_hands(int fd);
    void hear(DBusMessage* message);
    unique_bus_message answer_to_bus_call(DBusMessage* call);
    unique_bus_message answer_with_owner(DBusMessage* call);
    unique_bus_message answer_to_call(DBusMessage* call);
    void send_locked(DBusMessage* message);

    int m_listener;
    std::mutex m_mutex;  // for the six below
    int m_fd = -1;
    dbus_uint32_t m_serial = 0;
    dbus_uint32_t m_question = 0;
    unique_bus_message m_answer;
    std::map<std::string, std::string> m_owners;
    std::vector<unique_bus_message> m_heard;
    std::atomic<bool> m_is_settled{false};
    std::thread m_thread;
};

}  // namespace vask_fuzz

#endif
