// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_LOG_PLACE_H
#define VASK_LOG_PLACE_H

// The format of a message that says where it comes from: the part of the library and the line.
#define VASK_AT_FORMAT(text) "<%s:%d> " text "\n"

// That format and its first two arguments, for vask_p(): vask_p(VASK_P_ERR, VASK_AT("no room: %d"),
// errno). The part is the source_unit that is visible there. The line is the line of the call; a
// helper that several callers share prints its own.
#define VASK_AT(text) VASK_AT_FORMAT(text), source_unit, __LINE__

#endif
