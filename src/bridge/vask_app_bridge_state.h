// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_APP_BRIDGE_STATE_H
#define VASK_APP_BRIDGE_STATE_H

#include "foundation/life_mark.h"
#include "vask_app_bridge.h"

// The private data of a vask_app_bridge.
class vask_app_bridge_state {
public:
    life_marks life;
};

#endif
