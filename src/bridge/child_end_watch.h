// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_CHILD_END_WATCH_H
#define VASK_CHILD_END_WATCH_H

#include <glib.h>

// True once nobody can wait for the child any more: it has ended and was reaped, by the kernel for
// a parent that ignores SIGCHLD, or by the application.
bool has_been_reaped(int pid);

// Lets a stopped child go on, so that it receives its pending signals. Nothing is sent to a child
// that was reaped or is traced.
void wake_child(int pid);

// Calls back from the main loop, once, when a child of this process has ended, and reaps it. Hears
// of the end whatever the process does with SIGCHLD. The source is removed with g_source_remove().
// Whichever way it hears of the end, it calls the callback and nothing else.
guint watch_child_end(int pid, GChildWatchFunc callback, void* data);

// For the callback. While somebody traces a child (a debugger, a sanitizer at its end), its end is
// known, but only the tracer can reap it. Reaps such a child when the tracer has let it go; else it
// would stay a zombie, for GLib looks but once.
void reap_held_back(int pid);

// Names a source after its child, so that a debugger shows what a bridge waits for:
// "vask: child PID: WHAT".
void name_child_source(guint source_id, const char* what, int pid);

#endif
