// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_object.h"
#include "vask_shared_info.h"

int vask_object::calc_split_draw_type(vask_monitor_rotation_type rotation, int screen_width,
                                      int screen_height, int x, int y, int width, int height) {
    const int half_w = screen_width / 2;
    const int half_h = screen_height / 2;
    const bool is_right = half_w <= x;
    const bool is_left = static_cast<long long>(x) + width < half_w;
    const bool is_lower = half_h <= y;
    const bool is_upper = static_cast<long long>(y) + height < half_h;

    // The test for 1 comes first: an empty or inside-out rectangle passes both.
    const auto choose = [](bool is_one, bool is_zero) { return is_one ? 1 : is_zero ? 0 : 2; };
    switch (rotation) {
        case VASK_MONITOR_ROTATION_0:
            return choose(is_lower, is_upper);
        case VASK_MONITOR_ROTATION_1:
            return choose(is_left, is_right);
        case VASK_MONITOR_ROTATION_2:
            return choose(is_upper, is_lower);
        case VASK_MONITOR_ROTATION_3:
            return choose(is_right, is_left);
        default:
            vask_p("vask_object", VASK_P_ERR, "Unknown monitor_ration: %d\n",
                   static_cast<int>(rotation));
            return 1;
    }
}
