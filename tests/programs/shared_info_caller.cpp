// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A library with a static object that uses the shared record from its beginning to its end. Every
// access finds what the one before has set.

#include <cstdio>

#include "vask_object.h"
#include "vask_shared_info.h"

namespace {

int next_rotation() {
    const int rotation = vask_object::get_monitor_rotation();
    const int next = rotation == VASK_MONITOR_ROTATION_NOT_SET ? 1 : rotation + 1;
    vask_object::set_monitor_rotation(static_cast<vask_monitor_rotation_type>(next));
    return rotation;
}

class caller {
public:
    caller() {
        const char* order = vask_object::m_shared_info == nullptr ? "before" : "after";
        std::printf("%s begins %s the library: rotation %d\n", VASK_CALLER_NAME, order,
                    next_rotation());
    }
    ~caller() { std::printf("%s ends: rotation %d\n", VASK_CALLER_NAME, next_rotation()); }
};

const caller instance;

}  // namespace

extern "C" __attribute__((visibility("default"))) void VASK_CALLER_FUNCTION();
void VASK_CALLER_FUNCTION() {}
