// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_NAMED_OBJECT_H
#define VASK_TEST_NAMED_OBJECT_H

#include "vask_object.h"

/** The least that an application derives: a name, and the protected members within reach. */
class named_object : public vask_object {
public:
    explicit named_object(const char* name) { obj_name = name; }

    using vask_object::obj_name;
    using vask_object::shm_lock_sem;
};

#endif
