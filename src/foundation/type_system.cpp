// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/type_system.h"

#include <glib-object.h>

void init_type_system() {
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    g_type_init();
    G_GNUC_END_IGNORE_DEPRECATIONS
}
