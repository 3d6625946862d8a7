// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_CHILD_MARSHALLERS_H
#define VASK_TEST_CHILD_MARSHALLERS_H

#include <glib-object.h>

// The generated glue has them, and no header of it declares them.
extern "C" {
void dbus_glib_marshal_vask_child_BOOLEAN__INT_STRING_POINTER_POINTER(GClosure*, GValue*, guint,
                                                                      const GValue*, gpointer,
                                                                      gpointer);
void dbus_glib_marshal_vask_child_BOOLEAN__INT_INT_INT_INT_UINT_POINTER(GClosure*, GValue*, guint,
                                                                        const GValue*, gpointer,
                                                                        gpointer);
}

#endif
