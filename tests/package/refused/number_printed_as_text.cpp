// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_object.h"

#ifdef REFUSED
const int text = 7;
#else
const char* const text = "7";
#endif

void print(const vask_object& object) {
    object.vask_p(VASK_P_ERR, "%s\n", text);
}
