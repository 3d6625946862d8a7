// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>

namespace {

// What GLib or dbus-glib complain about is a defect of their caller: the test program ends there.
const GLogLevelFlags former_levels = g_log_set_always_fatal(
    static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));

}  // namespace
