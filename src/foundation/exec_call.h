// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_EXEC_CALL_H
#define VASK_EXEC_CALL_H

#include <utility>

#include "vask_exec.h"

// Whether there is a handler: a null object or function means that none is set.
inline bool is_callable(const vask_obj_exec_info& handler) {
    return handler.obj != nullptr && handler.func != nullptr;
}

// Calls a pointer to a member, which may be a member of a derived class. Where the base is not at
// the start of the derived class, the pointer moves the object's address; gcc's sanitizer still
// takes the moved address for one of the base.
template <typename Object, typename Result, typename... Parameters, typename... Arguments>
__attribute__((no_sanitize("vptr"))) inline Result call_member(
    Object* object, Result (Object::*member)(Parameters...), Arguments&&... arguments) {
    return (object->*member)(std::forward<Arguments>(arguments)...);
}

#endif
