// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_LIBRARY_LOCK_H
#define VASK_LIBRARY_LOCK_H

#include <semaphore.h>
#include <sys/types.h>

#include <string>

#include "foundation/shared_names.h"

class signal_block;
class vask_object;

// Waits for the library lock as vask_object::shm_lock() does. Returns the semaphore, which the
// caller posts and closes, or null.
//
// Given a signal block, it blocks the signals in the step that takes the lock, and leaves them
// blocked. They come through between short waits, and while a line is printed.
sem_t* take_library_lock(const vask_object& waiter, signal_block* signals);

// Tells the holder of the library lock whether it still excludes the others. A process that has
// waited for 5 seconds takes the holder for dead and replaces the semaphore; a holder that was only
// stopped or slow must then leave alone what the lock protects.
class library_lock_watch {
public:
    // The handle stays the caller's and must stay open. Throws std::bad_alloc.
    explicit library_lock_watch(sem_t* held);

    // Whether the lock's name still leads to the semaphore that is held. Throws nothing.
    bool is_still_held() const;

private:
    sem_t* const m_held;
    const std::string m_path;  // of the semaphore's file
    // Of the held semaphore's file; 0 where that is unknown. Then its handle is compared each time.
    dev_t m_device = 0;
    ino_t m_number = 0;
};

#endif
