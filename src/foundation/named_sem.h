// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_NAMED_SEM_H
#define VASK_NAMED_SEM_H

#include <semaphore.h>
#include <sys/types.h>

#include <string>

#include "foundation/shared_names.h"
#include "foundation/signal_block.h"
#include "foundation/unique_fd.h"

// Opens a named semaphore, creating it with the given mode and value if there is none. An existing
// one keeps its count. Null with errno on failure; EINVAL for a semaphore whose file has another
// size than this process's semaphores have (emptied, or made by a process of another word size), or
// holds no semaphore: using it would be fatal, or corrupt it.
sem_t* open_named_sem(const char* name, mode_t mode, unsigned int value);

// The same for a semaphore that must exist.
sem_t* open_existing_named_sem(const char* name);

// Whether the name leads to this open semaphore, which must have been opened under that name. False
// also when that cannot be found out.
bool is_named_sem(const char* name, sem_t* sem);

// Whether the name certainly leads elsewhere: it is gone, or another semaphore has it. False also
// when that cannot be found out.
bool is_removed_named_sem(const char* name, sem_t* sem);

// Takes a semaphore without sleeping, but lets others run a few times before it gives up. A holder
// of a few instructions has given it back by then; to sleep, to be woken and to come to the
// processor again costs more than that. Looking again and again instead would not help: a holder
// that does not run does not give it back. Tells no error: the wait that follows does.
bool take_sem_awake(sem_t* sem);

// Takes a semaphore within the given time. Returns 0, ETIMEDOUT or the error of sem_wait(). Signals
// do not end the wait. Setting the clock makes it neither longer nor shorter.
int take_sem_within(sem_t* sem, int msec);

constexpr int sem_wait_slice_msec = 100;
constexpr int unlimited_sem_wait_slices = -1;

// Takes a semaphore and blocks all signals in one step: no signal ends the holder or runs a handler
// in it. While it waits, a signal comes through within a slice. Returns 0 with the signals blocked.
// Otherwise returns ETIMEDOUT after that many slices, or the error of sem_wait(), and the signals
// are not blocked.
int take_sem_undisturbed(sem_t* sem, signal_block& signals, int slices = unlimited_sem_wait_slices);

// Print the line of vask_object for a wait, or the removal of a name, that failed with this error
// number.
void report_failed_sem_wait(int error);
void report_failed_sem_removal(const char* name, int error);

// A named semaphore together with the file it was opened from, so that it can be told from a later
// one of the same name.
class tracked_named_sem {
public:
    // Opens or creates it like open_named_sem(). After a failure handle() is null. Where the C
    // library keeps its semaphores elsewhere, it does without the file.
    tracked_named_sem(const char* name, mode_t mode, unsigned int value);
    ~tracked_named_sem();

    tracked_named_sem(const tracked_named_sem&) = delete;
    tracked_named_sem& operator=(const tracked_named_sem&) = delete;

    sem_t* handle() const { return m_handle; }

    // Hands the handle over to the caller, who closes it.
    sem_t* release();

    // Whether the name still leads to this semaphore.
    bool is_current() const;

    // Closes the handle, and removes the name unless it leads to another semaphore by now. If
    // several processes do this for the same semaphore, exactly one removes it. Where there is no
    // file, or a stranger keeps it locked for a second, they go on without that certainty.
    void close_and_remove();

private:
    bool open_existing();
    bool is_file_current() const;
    void lock_file() const;

    const char* const m_name;
    const std::string m_path;  // of the semaphore's file
    // No descriptor where the C library keeps its semaphores elsewhere.
    unique_fd m_file;
    sem_t* m_handle;  // null after a failure, release() or close_and_remove()
};

#endif
