// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>
#include <vask_object.h>
#include <vask_shared_info.h>

int main() {
    if (vask_object::get_monitor_rotation() == VASK_MONITOR_ROTATION_NOT_SET) {
        vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1);
    }
    const vask_monitor_rotation_type rotation = vask_object::get_monitor_rotation();
    if (rotation == VASK_MONITOR_ROTATION_ERROR) {
        return 1;
    }
    const int half = vask_object::calc_split_draw_type(rotation, 800, 600, 500, 0, 200, 100);
    printf("rotation %d, half %d\n", rotation, half);
    return 0;
}
