// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_PID_ARRAY_WRITER_H
#define VASK_PID_ARRAY_WRITER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "foundation/library_lock.h"
#include "foundation/memory_mapping.h"
#include "foundation/pid_array_bytes.h"
#include "foundation/unique_fd.h"

// One change of a process registry, made by the holder of the library lock: open() copies the
// record, the caller changes the copy, and commit() brings the change into the object. Another
// process that finds the record at any instant in between, because this one was killed, finds every
// entry that stays, and no pair that was not stored as one.
//
// Before each call that others can see, the writer looks whether the lock is still held. A writer
// that was stopped in between and robbed of the lock changes nothing any more, not even the
// sequence, which is the robber's then. Only a stop between that look and the very call goes
// unnoticed.
//
// Nothing is printed. The constructor and open() may run out of memory: std::bad_alloc. commit()
// throws nothing, so a sequence that was made odd is made even again: for a tenth of a second also
// if that store fails.
class pid_array_writer {
public:
    enum class result { done, failed, robbed };
    enum class call { shm_open, mmap, fstat, ftruncate, mremap };

    // How far a change has come, to be told when the lock is given back.
    struct outcome {
        pid_array_writer::result result = pid_array_writer::result::failed;
        // What has failed, after a result of `failed`: reading counts as measuring, and writing,
        // which lacks room more often than anything else, as sizing.
        call failed_call = call::mremap;
        // The sequence was odd already: an earlier writer had died at work.
        bool has_found_odd_sequence = false;
    };

    explicit pid_array_writer(sem_t* held_lock) : m_lock(held_lock) {}

    // Opens the object of that name, creating it if there is none, gives it room for one entry more
    // than it has, and copies it. Changes nothing of the record. False when that has failed, or the
    // lock was lost: the writer is good for nothing then.
    bool open(const char* name);

    // The copy, with room for one entry more than it had at first.
    pid_array* array();

    // Adds an entry to the copy.
    void append(std::int32_t pid, std::uint64_t key);

    // Makes the sequence odd, writes what the copy holds otherwise than the object does, and makes
    // the sequence even. After a failure some of it may be written, but no entry that stays is
    // lost.
    void commit();

    outcome get_outcome() const { return m_outcome; }

private:
    result open_object(const char* name);
    bool measure();
    bool copy_entries();
    result make_room();
    result begin();
    result write();
    result write_entry(std::size_t index);
    result end();
    result fail(call failed);
    template <typename Value>
    result put(std::size_t offset, Value value);

    const library_lock_watch m_lock;
    unique_fd m_object;
    memory_mapping m_mapping;              // shows that the object can be mapped, nothing else
    std::size_t m_entry_count = 0;         // found in the object; not read a second time
    std::vector<pid_array_entry> m_found;  // those entries and the unused one behind them
    std::vector<unsigned char> m_copy;     // the bytes of array()
    std::uint32_t m_sequence = 0;          // odd: what begin() has stored
    outcome m_outcome;
};

#endif
