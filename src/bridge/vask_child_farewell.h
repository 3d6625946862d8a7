// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_CHILD_FAREWELL_H
#define VASK_CHILD_FAREWELL_H

#include <dbus/dbus-glib.h>
#include <dbus/dbus.h>
#include <glib.h>

#include <functional>
#include <string>

#include "bus/bus_handles.h"

// The time between the end of a child's process and the report of it.
//
// What a child has sent last may still be on its way when its process has ended: unread in this
// process, in the bus, or in the kernel, where the bus has not read it yet. The bus has routed all
// of it once it says that the child's name has no owner any more, and that message comes behind all
// the others. So the end is reported when the main loop has come to it. Nothing is dispatched from
// here: the messages are handled in their order, whoever else they are for.
//
// A bus that does not answer, or a connection that somebody else has inherited, must not hold up
// the end for more than about a second. The second is counted in passes of the main loop, so that a
// main loop that is busy with other things still comes to what waits on the bus.
class vask_child_farewell {
public:
    vask_child_farewell() = default;
    ~vask_child_farewell();
    vask_child_farewell(const vask_child_farewell&) = delete;
    vask_child_farewell& operator=(const vask_child_farewell&) = delete;

    // From the moment when the name has an owner.
    void watch_name(DBusGConnection* connection, const char* name);

    // Afterwards nothing is expected of the bus any more.
    void leave_name();

    // Whether something may still come from a child that ends now.
    bool is_needed() const;

    // The process has ended and was reaped: its id may be somebody else's. Whoever calls this
    // removes the returned source. It calls `report` once, which may end the farewell, and must not
    // throw.
    guint begin(int pid, std::function<void()> report);

    bool has_begun() const;

    // Between these the bridge's application is asking the child to end. If the second one does not
    // come, the application has failed to ask, or has not asked yet.
    void begin_request() { m_is_being_asked = true; }
    void end_request() { m_is_being_asked = false; }
    bool is_being_asked() const { return m_is_being_asked; }

    // Gives back the time that the callbacks for the child's own signals have taken: the bus was
    // not slow then.
    void lengthen(gint64 usec);

private:
    static DBusHandlerResult _filter(DBusConnection* connection, DBusMessage* message,
                                     void* farewell);
    static gboolean _tick(gpointer farewell);

    void hear(DBusMessage* message);
    GSource* find_timer() const;

    unique_bus_connection m_connection;  // while a name is watched
    std::string m_name;                  // of the child on the bus, watched last
    std::string m_rule;              // for the bus, kept since a destructor must not need memory
    bool m_has_owner = false;        // as far as the bus has said
    guint m_timer_id = 0;            // not 0 once the process has ended
    int m_ticks = 0;                 // of the timer, for which the name still had an owner
    std::function<void()> m_report;  // empty before begin(), and from the report on
    bool m_is_being_asked = false;
};

#endif
