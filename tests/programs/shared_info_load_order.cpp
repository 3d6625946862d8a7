// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Uses the shared record between two libraries that do.

#include <cstdio>

#include "vask_object.h"
#include "vask_shared_info.h"

extern "C" void early_caller();
extern "C" void late_caller();

int main() {
    early_caller();
    late_caller();
    std::printf("main: rotation %d\n", static_cast<int>(vask_object::get_monitor_rotation()));
}
