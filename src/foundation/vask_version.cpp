// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_version.h"

const char* vask_version_string() noexcept {
    return VASK_VERSION;
}

int vask_version_number() noexcept {
    return VASK_VERSION_NUMBER;
}

const char* vask_bus_prefix() noexcept {
    return VASK_BUS_PREFIX;
}
