// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_object.h"

#ifdef REFUSED
const int text = 7;
#else
const char* const text = "7";
#endif

void print() {
    vask_object::vask_p("name", VASK_P_ERR, "%s\n", text);
}
