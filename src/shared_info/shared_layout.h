// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SHARED_LAYOUT_H
#define VASK_SHARED_LAYOUT_H

#include <cstddef>

#include "foundation/pid_array_bytes.h"  // IWYU pragma: export
#include "foundation/shared_names.h"     // IWYU pragma: export
#include "vask_shared_info.h"            // IWYU pragma: export

// All that is known of the shared objects from outside of a process: their names, the process
// registry and the record. The tools that examine a running system include this and nothing else of
// the library's inside.

static_assert(sizeof(vk_shared_info) == 2064, "shared by all processes");
static_assert(offsetof(vk_shared_info, monitor_rotation) == 0, "shared by all processes");
static_assert(offsetof(vk_shared_info, cpu_type) == 4, "shared by all processes");
static_assert(offsetof(vk_shared_info, gpu_type) == 8, "shared by all processes");
static_assert(offsetof(vk_shared_info, pseudo_portrait) == 12, "shared by all processes");

#endif
