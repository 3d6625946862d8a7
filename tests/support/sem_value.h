// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEM_VALUE_H
#define VASK_TEST_SEM_VALUE_H

#include <fcntl.h>
#include <semaphore.h>

namespace vask_test {

/** The value of a named semaphore, 0 while somebody holds it; `missing` where there is none. */
inline int sem_value(const char* name, int missing) {
    sem_t* sem = sem_open(name, 0);
    if (sem == SEM_FAILED) {
        return missing;
    }
    int value = missing;
    sem_getvalue(sem, &value);
    sem_close(sem);
    return value;
}

}  // namespace vask_test

#endif
