#ifndef VASK_EXEC_CALL_H
#define VASK_EXEC_CALL_H

#include <utility>

#include "vask_exec.h"

// Whether there is a handler: a null object or function means that none is set.
inline bool is_callable(const vask_obj_exec_info& handler) {
    return handler.obj != nullptr && handler.func != nullptr;
}

// Makes a call by a pointer to a member, which may be one of a derived class. Where the object's
// own class is not where the derived one begins, the pointer moves the object's address; the
// sanitizer of gcc goes on taking it for that of the own class.
template <typename Object, typename Result, typename... Parameters, typename... Arguments>
__attribute__((no_sanitize("vptr"))) inline Result call_member(
    Object* object, Result (Object::*member)(Parameters...), Arguments&&... arguments) {
    return (object->*member)(std::forward<Arguments>(arguments)...);
}

#endif
