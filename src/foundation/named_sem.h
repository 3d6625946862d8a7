#ifndef VASK_NAMED_SEM_H
#define VASK_NAMED_SEM_H

#include <semaphore.h>
#include <sys/types.h>

#include <string>

#include "foundation/unique_fd.h"

// The file that stands for a named semaphore.
std::string named_sem_path(const char* name);

// Opens a named semaphore, creating it with the given mode and value if there is none. An existing
// one keeps its count. Null with errno on failure; EINVAL for a semaphore whose file has another
// size than this process's semaphores have (emptied, or made by a process of another word size):
// using it would be fatal, or corrupt it.
sem_t* open_named_sem(const char* name, mode_t mode, unsigned int value);

// A named semaphore together with the file it was opened from, so that it can be told from a later
// one of the same name.
class tracked_named_sem {
public:
    // Opens or creates it like open_named_sem(). Tells success by handle().
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
    // stranger keeps the file locked: then they go on without that certainty after a second.
    void close_and_remove();

private:
    bool open_existing();

    const char* const m_name;
    const std::string m_path;
    unique_fd m_file;
    sem_t* m_handle;
};

#endif
