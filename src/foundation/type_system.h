// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TYPE_SYSTEM_H
#define VASK_TYPE_SYSTEM_H

// Initialises the GLib type system; for GLib versions that do not do it themselves.
void init_type_system();

#endif
