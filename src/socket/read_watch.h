// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_READ_WATCH_H
#define VASK_READ_WATCH_H

#include <glib.h>

class vask_socket;

// The watch of a socket's read requests on an unbuffered channel of the library. One source serves
// a request and the next one when that is set while the source is dispatched, in read_done(): to
// remove a watch and to add another wakes the main loop for nothing, with system calls.
//
// In between the source is spare. A main loop that runs inside read_done() must not be woken by it
// for what nobody asks for, so it ends as soon as a main loop looks at it. It may be dispatched
// inside its own dispatch, because the next request may be waited for there.
class read_watch {
public:
    explicit read_watch(vask_socket& socket) : m_socket(socket) {}
    ~read_watch() { remove(); }
    read_watch(const read_watch&) = delete;
    read_watch& operator=(const read_watch&) = delete;

    // Whether it can watch such a channel: it looks at the descriptor alone.
    static bool suits(GIOChannel* channel);

    // The id of the source that watches the channel from now on.
    guint add(GIOChannel* channel, GIOCondition condition);

    // The request has ended: the source ends, or is spare while it is dispatched. False when it has
    // another id.
    bool release(guint id);

    void remove();

private:
    struct source;

    static gboolean prepare(GSource* base, gint* timeout);
    static gboolean check(GSource* base);
    static gboolean dispatch(GSource* base, GSourceFunc callback, gpointer data);
    static void finalize(GSource* base);

    bool is_spare_for(const GIOChannel* channel, GIOCondition condition) const;

    vask_socket& m_socket;

    // Referenced; null for none.
    source* m_source = nullptr;

    // Innermost source of this socket that is being dispatched; not referenced, GLib does.
    source* m_dispatched = nullptr;

    bool m_is_spare = false;
};

#endif
