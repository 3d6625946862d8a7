// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_HELD_SEMAPHORE_H
#define VASKCTL_HELD_SEMAPHORE_H

#include <semaphore.h>

#include <string>

#include "foundation/unique_fd.h"
#include "process_table.h"
#include "semaphore.h"

namespace vaskctl {

// A semaphore in the hands of the tool, for a repair of what it guards: taken in the ordinary way,
// or left by a holder that is certainly dead. It is given back at the end, whatever happens.
//
// Two repairs of one semaphore at the same time would give it back twice, so they exclude each
// other by a lock on its file, as the library's own recovery does.
class held_semaphore {
public:
    // Throws a complaint where it can be had neither way. A held one is not waited for.
    held_semaphore(const std::string& name, const process_table& processes);
    ~held_semaphore();

    held_semaphore(const held_semaphore&) = delete;
    held_semaphore& operator=(const held_semaphore&) = delete;

    // Whether the holder before was a dead one.
    bool is_adopted() const { return m_is_adopted; }

    // Whether the name still leads to it; otherwise somebody has replaced it, and what it guards is
    // that one's.
    bool is_current() const { return m_examined.file().is_current(); }

private:
    void open_handle(const std::string& name);

    const semaphore m_examined;  // what the repair was decided on
    unique_fd m_file_lock;       // keeps other repairs away while it is open
    sem_t* m_handle = nullptr;   // closed by the destructor; null for none
    bool m_is_adopted = false;
};

}  // namespace vaskctl

#endif
