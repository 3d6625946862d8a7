// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "instant_waits.h"

#include <sched.h>
#include <semaphore.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace {

// More than the library waits in a row for anything that ends.
constexpr int longest_row = 60;

int waits_in_a_row = 0;
bool was_endless = false;

int wait_in_vain(int error) {
    const bool ends = ++waits_in_a_row < longest_row;
    waits_in_a_row = ends ? waits_in_a_row : 0;
    was_endless = was_endless || (!ends && error == ETIMEDOUT);
    errno = ends ? error : EINVAL;
    return -1;
}

int wait_for(sem_t* sem, int error) {
    if (sem_trywait(sem) != 0) {
        return wait_in_vain(error);
    }
    waits_in_a_row = 0;
    return 0;
}

}  // namespace

void vask_fuzz::instant_waits::begin() {
    waits_in_a_row = 0;
    was_endless = false;
}

bool vask_fuzz::instant_waits::have_no_end() {
    return was_endless;
}

extern "C" {

int sem_wait(sem_t* sem) {
    return wait_for(sem, EINTR);
}

int sem_clockwait(sem_t* sem, clockid_t, const timespec*) {
    return wait_for(sem, ETIMEDOUT);
}

int sched_yield() {
    return 0;
}

int usleep(useconds_t) {
    return 0;
}

}  // extern "C"
