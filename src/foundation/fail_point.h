// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_FAIL_POINT_H
#define VASK_FAIL_POINT_H

// Marks a place where tests let a process die. Does nothing in a build that is installed.
#ifdef VASK_FAIL_POINTS
void vask_fail_point(const char* place);
#define VASK_FAIL_POINT(place) vask_fail_point(place)
#else
#define VASK_FAIL_POINT(place) static_cast<void>(0)
#endif

#endif
