// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SHARED_INFO_SOURCE_UNIT_H
#define VASK_SHARED_INFO_SOURCE_UNIT_H

// What finds the hardware and maps the memory speaks for the record.
constexpr char source_unit[] = "vask_shared_info";

#endif
