// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_info/record_access.h"

#include "foundation/log_place.h"
#include "shared_info/source_unit.h"

sem_t* report_no_context() {
    vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("m_shared_info_ctx == NULL"));
    return nullptr;
}

sem_t* report_no_semaphore() {
    vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("sem == NULL"));
    return nullptr;
}
