// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SOCKET_SOURCE_UNIT_H
#define VASK_SOCKET_SOURCE_UNIT_H

// The messages of all socket classes carry the name of the base.
constexpr char source_unit[] = "vask_socket";

#endif
