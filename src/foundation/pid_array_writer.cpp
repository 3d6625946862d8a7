// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/pid_array_writer.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "foundation/fail_point.h"

namespace {

// Far shorter than the lock may be held.
constexpr int attempts_to_end = 10;
constexpr useconds_t pause_between_attempts_usec = 10000;

// Tries to open before it creates: the kernel may refuse O_CREAT for an object that another user
// owns.
unique_fd open_or_create(const char* name) {
    unique_fd object(shm_open(name, O_RDWR, 0));
    if (!object && errno == ENOENT) {
        object = unique_fd(shm_open(name, O_RDWR | O_CREAT, 0644));
    }
    return object;
}

// What lies behind the object's end is not read, and those bytes stay as they are.
bool read_all(int fd, void* bytes, std::size_t size, std::size_t offset) {
    auto* to = static_cast<unsigned char*>(bytes);
    while (size > 0) {
        const ssize_t length = pread(fd, to, size, static_cast<off_t>(offset));
        if (length <= 0) {
            return length == 0;
        }
        to += length;
        offset += static_cast<std::size_t>(length);
        size -= static_cast<std::size_t>(length);
    }
    return true;
}

bool is_same(const pid_array_entry& a, const pid_array_entry& b) {
    return a.pid == b.pid && a.key == b.key;
}

}  // namespace

bool pid_array_writer::open(const char* name) {
    m_outcome.result = open_object(name);
    return m_outcome.result == result::done;
}

pid_array_writer::result pid_array_writer::open_object(const char* name) {
    m_object = open_or_create(name);
    if (!m_object) {
        return fail(call::shm_open);
    }
    VASK_FAIL_POINT("opened");
    // Nobody reads or writes the mapping. It shows that the object can be mapped.
    const auto page_size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    if (!m_mapping.map_file(m_object.get(), page_size)) {
        return fail(call::mmap);
    }
    VASK_FAIL_POINT("mapped");
    if (!measure() || !copy_entries()) {
        return fail(call::fstat);
    }
    VASK_FAIL_POINT("measured");
    const result made = make_room();
    if (made != result::done) {
        return made;
    }
    VASK_FAIL_POINT("sized");
    const std::size_t size = entry_offset(m_entry_count + 1);
    if (size > page_size && !m_mapping.grow(size)) {
        return fail(call::mremap);
    }
    VASK_FAIL_POINT("grown");
    return result::done;
}

// Counts the entries that the object really has, whatever it claims.
bool pid_array_writer::measure() {
    struct stat info;
    if (fstat(m_object.get(), &info) != 0) {
        return false;
    }
    const auto size = usable_size(info.st_size);
    if (size < entry_offset(0)) {
        return true;
    }
    std::int32_t count = 0;
    if (pread(m_object.get(), &count, sizeof(count), offsetof(pid_array, count)) !=
        static_cast<ssize_t>(sizeof(count))) {
        return false;
    }
    m_entry_count =
        std::min({static_cast<std::size_t>(std::max(count, 0)), entries_in(size), most_entries});
    return true;
}

bool pid_array_writer::copy_entries() {
    m_found.resize(m_entry_count + 1);
    if (!read_all(m_object.get(), m_found.data(), m_found.size() * sizeof(pid_array_entry),
                  entry_offset(0))) {
        return false;
    }
    m_copy.resize(entry_offset(m_found.size()));
    array()->count = static_cast<std::int32_t>(m_entry_count);
    memcpy(m_copy.data() + entry_offset(0), m_found.data(),
           m_found.size() * sizeof(pid_array_entry));
    return true;
}

// Writes the unused entry as it is, so that there is memory for it: a full file system shows now,
// not when the sequence is odd. A sandbox may forbid the call that reserves memory.
pid_array_writer::result pid_array_writer::make_room() {
    const std::size_t offset = entry_offset(m_entry_count);
    const pid_array_entry& unused = m_found[m_entry_count];
    result made = put(offset + offsetof(pid_array_entry, pid), unused.pid);
    if (made == result::done) {
        made = put(offset + offsetof(pid_array_entry, key), unused.key);
    }
    if (made != result::done) {
        return made;
    }
    if (!m_lock.is_still_held()) {
        return result::robbed;
    }
    const auto size = static_cast<off_t>(entry_offset(m_entry_count + 1));
    return ftruncate(m_object.get(), size) == 0 ? result::done : fail(call::ftruncate);
}

pid_array* pid_array_writer::array() {
    return reinterpret_cast<pid_array*>(m_copy.data());
}

void pid_array_writer::append(std::int32_t pid, std::uint64_t key) {
    pid_array_entry& entry = array()->entries[array()->count++];
    entry.pid = pid;
    entry.key = key;
}

void pid_array_writer::commit() {
    m_outcome.result = begin();
    if (m_outcome.result != result::done) {
        return;
    }
    m_outcome.result = write();
    if (m_outcome.result == result::robbed) {
        return;
    }
    // After a failure, too: what was written until then is a record.
    const result ended = end();
    if (m_outcome.result == result::done) {
        m_outcome.result = ended;
    }
    VASK_FAIL_POINT("released");
}

// The first store of all that change the record [R3].
pid_array_writer::result pid_array_writer::begin() {
    std::uint32_t sequence = 0;
    if (!read_all(m_object.get(), &sequence, sizeof(sequence), offsetof(pid_array, sequence))) {
        return fail(call::fstat);
    }
    m_outcome.has_found_odd_sequence = sequence % 2 != 0;
    m_sequence = m_outcome.has_found_odd_sequence ? 1 : sequence + 1;
    const result written = put(offsetof(pid_array, sequence), m_sequence);
    VASK_FAIL_POINT("marked");
    return written;
}

pid_array_writer::result pid_array_writer::write() {
    const auto count = static_cast<std::size_t>(array()->count);
    for (std::size_t i = 0; i < count; ++i) {
        if (is_same(array()->entries[i], m_found[i])) {
            continue;
        }
        const result written = write_entry(i);
        if (written != result::done) {
            return written;
        }
        VASK_FAIL_POINT("entered");
    }
    const result written = put(offsetof(pid_array, count), array()->count);
    VASK_FAIL_POINT("counted");
    return written;
}

pid_array_writer::result pid_array_writer::write_entry(std::size_t index) {
    const pid_array_entry& entry = array()->entries[index];
    const std::size_t offset = entry_offset(index);
    // At no instant does the object hold a pair that was never stored [R4].
    result written = put(offset + offsetof(pid_array_entry, pid), std::int32_t{0});
    if (written == result::done) {
        written = put(offset + offsetof(pid_array_entry, key), entry.key);
    }
    if (written == result::done) {
        written = put(offset + offsetof(pid_array_entry, pid), entry.pid);
    }
    return written;
}

// The last store of all [R5]. It is tried again: an odd sequence would hold up every lookup until
// the next registration.
pid_array_writer::result pid_array_writer::end() {
    result ended = put(offsetof(pid_array, sequence), m_sequence + 1);
    for (int i = 1; i < attempts_to_end && ended == result::failed; ++i) {
        usleep(pause_between_attempts_usec);
        ended = put(offsetof(pid_array, sequence), m_sequence + 1);
    }
    return ended;
}

pid_array_writer::result pid_array_writer::fail(call failed) {
    m_outcome.failed_call = failed;
    return result::failed;
}

// Nobody sees this store before the earlier ones [R2].
template <typename Value>
pid_array_writer::result pid_array_writer::put(std::size_t offset, Value value) {
    if (!m_lock.is_still_held()) {  // [L3]
        return result::robbed;
    }
    std::atomic_thread_fence(std::memory_order_release);  // [R2]
    const ssize_t written =
        pwrite(m_object.get(), &value, sizeof(value), static_cast<off_t>(offset));
    if (written == -1 && errno == EINTR) {
        return put(offset, value);
    }
    return written == static_cast<ssize_t>(sizeof(value)) ? result::done : fail(call::ftruncate);
}
