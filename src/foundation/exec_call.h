#ifndef VASK_EXEC_CALL_H
#define VASK_EXEC_CALL_H

#include "vask_exec.h"

// Makes the call of a record. A member of a class whose vask_exec is not where the object begins
// moves the object's address; the sanitizer of gcc goes on taking it for that of a vask_exec.
__attribute__((no_sanitize("vptr"))) inline void call_member(vask_exec* object, vask_exec_func func,
                                                             void* data) {
    (object->*func)(data);
}

#endif
