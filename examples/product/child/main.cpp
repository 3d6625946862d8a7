// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib-unix.h>
#include <signal.h>

#include "meter_child.h"

namespace {

// A parent asks for the end by SIGTERM. What is in shared memory has to go first.
gboolean quit(gpointer child) {
    static_cast<meter_child*>(child)->app_quit_request(0);
    return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
    meter_child child(argc, argv, argc > 1 ? argv[1] : METER_PROBE);
    g_unix_signal_add(SIGTERM, quit, &child);
    return child.run();
}
