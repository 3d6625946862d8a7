#ifndef VASK_CHILD_END_WATCH_H
#define VASK_CHILD_END_WATCH_H

#include <glib.h>

// True once nobody can wait for the child any more: it has ended and was reaped, by the kernel for
// a parent that ignores SIGCHLD, or by the application.
bool has_been_reaped(int pid);

// Lets a stopped child go on, so that it gets to its pending signals. Nothing is sent to one that
// was reaped or is traced.
void wake_child(int pid);

// Calls back from the main loop, once, when a child of this process has ended, and reaps it. Hears
// of the end whatever the process does with SIGCHLD. The source is removed with g_source_remove().
guint watch_child_end(int pid, GChildWatchFunc callback, void* data);

#endif
