// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Becomes part of a copy of the library, and is constructed before everything else in it.

#include "support/system_call_mark.h"
#include "vask_object.h"

extern "C" __attribute__((visibility("default"))) bool was_made_before_begin;
bool was_made_before_begin = false;

__attribute__((constructor(101))) static void mark_begin() {
    was_made_before_begin = vask_object::m_shared_info != nullptr;
    vask_test::system_call_mark::begin();
}
