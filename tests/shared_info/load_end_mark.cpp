// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Depends on a copy of the library, and so is constructed directly after it.

#include "support/system_call_mark.h"
#include "vask_object.h"

extern "C" __attribute__((visibility("default"))) bool was_made_at_end;
bool was_made_at_end = false;

__attribute__((constructor)) static void mark_end() {
    vask_test::system_call_mark::end();
    was_made_at_end = vask_object::m_shared_info != nullptr;
}
