#ifndef VASK_NAMED_SEM_H
#define VASK_NAMED_SEM_H

#include <semaphore.h>
#include <sys/types.h>

#include <string>

#include "foundation/signal_block.h"
#include "foundation/unique_fd.h"

// The file that stands for a named semaphore.
std::string named_sem_path(const char* name);

// Opens a named semaphore, creating it with the given mode and value if there is none. An existing
// one keeps its count. Null with errno on failure; EINVAL for a semaphore whose file has another
// size than this process's semaphores have (emptied, or made by a process of another word size):
// using it would be fatal, or corrupt it.
sem_t* open_named_sem(const char* name, mode_t mode, unsigned int value);

// The same for one that must exist.
sem_t* open_existing_named_sem(const char* name);

// Whether the name leads to this open semaphore, which must have been opened under that name. Not
// so where that cannot be told.
bool is_named_sem(const char* name, sem_t* sem);

// Whether it certainly does not: the name is gone, or leads to another one.
bool is_removed_named_sem(const char* name, sem_t* sem);

// Takes a semaphore without sleeping, but lets others run a few times before it gives up. Who holds
// it for a few instructions has given it back by then, and going to sleep, being woken and coming
// to the processor again cost more than that. To look at it again and again instead does not help:
// a holder who is not running does not give it back. No error is told: the wait that follows does.
bool take_sem_awake(sem_t* sem);

// Takes a semaphore within the given time: 0, ETIMEDOUT or what sem_wait() fails with. Signals do
// not end the wait. Setting the clock makes it neither longer nor shorter.
int take_sem_within(sem_t* sem, int msec);

constexpr int sem_wait_slice_msec = 100;
constexpr int unlimited_sem_wait_slices = -1;

// Takes a semaphore and blocks all signals in one step: nobody is ended by one, or runs its
// handler, who has the semaphore. Who merely waits sees a signal within a slice. 0 with the signals
// blocked; otherwise ETIMEDOUT after so many slices, or what sem_wait() fails with, and the signals
// are not blocked.
int take_sem_undisturbed(sem_t* sem, signal_block& signals, int slices = unlimited_sem_wait_slices);

// What vask_object says when a wait, or the removal of a name, fails with an error number.
void report_failed_sem_wait(int error);
void report_failed_sem_removal(const char* name, int error);

// A named semaphore together with the file it was opened from, so that it can be told from a later
// one of the same name.
class tracked_named_sem {
public:
    // Opens or creates it like open_named_sem(). Tells success by handle(). Where named semaphores
    // have their files elsewhere it does without.
    tracked_named_sem(const char* name, mode_t mode, unsigned int value);
    ~tracked_named_sem();

    tracked_named_sem(const tracked_named_sem&) = delete;
    tracked_named_sem& operator=(const tracked_named_sem&) = delete;

    sem_t* handle() const { return m_handle; }

    // Hands the handle over to the caller, who closes it.
    sem_t* release();

    // Whether the name still leads to this semaphore.
    bool is_current() const;

    // Closes the handle, and removes the name unless it leads to another semaphore by now. Of
    // several processes that do this for the same semaphore exactly one removes it, unless a
    // stranger keeps the file locked, or there is none: then they go on without that certainty,
    // after a second.
    void close_and_remove();

private:
    bool open_existing();
    bool is_file_current() const;
    void lock_file() const;

    const char* const m_name;
    const std::string m_path;
    // None where semaphores have their files elsewhere.
    unique_fd m_file;
    sem_t* m_handle;
};

#endif
