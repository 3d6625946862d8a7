// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_CHILD_OBJECT_H
#define VASK_CHILD_OBJECT_H

#include <glib-object.h>

#include "vask_child.h"

// The GObject that stands on the bus for a vask_child. dbus-glib calls it, it calls its owner.
struct _VaskChild {
    GObject parent;
    vask_child* owner;  // null once the child has ended
};

struct VaskChildClass {
    GObjectClass parent;
};

G_BEGIN_DECLS

GType vask_child_get_type();

// Creates the object of a child, and describes the type's bus interface to dbus-glib.
VaskChild* vask_child_object_new(vask_child* owner);

// Changes the owner; null leaves an object that answers every call with a failure.
void vask_child_object_set_owner(VaskChild* object, vask_child* owner);

// Raises ChildSignal.
void vask_child_object_emit(VaskChild* object, int signal_id, const char* data);

// What the bus methods call.
gboolean vask_child_command(VaskChild* object, int id, const char* argument, const char** reply,
                            GError** error);
gboolean vask_child_set_window(VaskChild* object, int x, int y, int w, int h, unsigned int id,
                               GError** error);

G_END_DECLS

#endif
