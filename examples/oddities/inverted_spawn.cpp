// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>
#include <vask_app_bridge.h>

int main() {
    vask_app_bridge good("good", true), bad("bad", true);
    strlist exists = {"/bin/true"}, does_not = {"/no/such/program"}, no_variables;
    printf("started: %d\n", good.spawn(exists, no_variables));
    printf("not started: %d\n", bad.spawn(does_not, no_variables));
    printf("%d %d\n", good.get_child_pid() > 0, bad.get_child_pid() > 0);
}
