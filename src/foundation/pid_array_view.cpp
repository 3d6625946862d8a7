#include "foundation/pid_array_view.h"

#include <sched.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace {

constexpr std::size_t entries_offset = offsetof(pid_array, entries);

// What another process does not have at the same address: tells whether a copy really came out of
// this one. The recorded process id is that of the parent in a child made by fork(), and the parent
// may be reading the registry too, even in the same nanosecond, but not on the same processor.
struct token {
    struct timespec now = {};
    int processor = sched_getcpu();

    token() { clock_gettime(CLOCK_MONOTONIC, &now); }
    bool operator==(const token& other) const {
        return now.tv_sec == other.now.tv_sec && now.tv_nsec == other.now.tv_nsec &&
               processor == other.processor;
    }
};

}  // namespace

pid_array_view::pid_array_view(int fd) : m_fd(fd) {}

bool pid_array_view::map() {
    return m_mapping.map(m_fd, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), PROT_READ);
}

std::size_t pid_array_view::reachable_size(const pid_array_snapshot& snapshot) const {
    struct stat object;
    if (fstat(m_fd, &object) != 0) {
        return 0;
    }
    return std::min(static_cast<std::size_t>(object.st_size), snapshot.wanted_size);
}

bool pid_array_view::can_grow(const pid_array_snapshot& snapshot) {
    return snapshot.wanted_size > m_mapping.size() && reachable_size(snapshot) > m_mapping.size();
}

bool pid_array_view::grow(const pid_array_snapshot& snapshot) {
    return m_mapping.grow(std::max(reachable_size(snapshot), m_mapping.size()));
}

pid_array_snapshot pid_array_view::read() {
    pid_array_snapshot snapshot;
    make_room();
    std::size_t length = read_through_mapping(snapshot);
    if (length == 0) {
        length = read_through_file(snapshot);
    }
    if (length < entries_offset) {
        return snapshot;
    }

    snapshot.sequence = load<std::uint32_t>(offsetof(pid_array, sequence));
    const auto count = std::max(load<std::int32_t>(offsetof(pid_array, count)), 0);
    const std::size_t wanted = std::min(static_cast<std::size_t>(count), most_entries);
    snapshot.wanted_size = entries_offset + wanted * sizeof(pid_array_entry);
    const std::size_t present = (length - entries_offset) / sizeof(pid_array_entry);
    snapshot.entry_count = std::min(wanted, present);
    return snapshot;
}

pid_array_entry pid_array_view::entry(std::size_t index) const {
    return load<pid_array_entry>(entries_offset + index * sizeof(pid_array_entry));
}

void pid_array_view::make_room() {
    m_copy = m_small_copy.data();
    if (m_mapping.size() > m_small_copy.size()) {
        m_large_copy.resize(m_mapping.size());
        m_copy = m_large_copy.data();
    }
}

template <typename Value>
Value pid_array_view::load(std::size_t offset) const {
    Value value;
    memcpy(&value, m_copy + offset, sizeof(value));
    return value;
}

// The whole view and then the sequence again, in one system call. 0 when that is not possible: the
// object has become shorter than the view, or the process may not read itself.
std::size_t pid_array_view::read_through_mapping(pid_array_snapshot& snapshot) {
    token own;
    token copy = own;
    copy.processor = ~own.processor;
    struct iovec from[] = {{&own, sizeof(own)},
                           {m_mapping.address(), m_mapping.size()},
                           {m_mapping.address(), sizeof(snapshot.sequence_after)}};
    struct iovec to[] = {{&copy, sizeof(copy)},
                         {m_copy, m_mapping.size()},
                         {&snapshot.sequence_after, sizeof(snapshot.sequence_after)}};
    const std::size_t whole = sizeof(own) + m_mapping.size() + sizeof(snapshot.sequence_after);
    const ssize_t copied =
        process_vm_readv(vask_object::my_pid, to, std::size(to), from, std::size(from), 0);
    const bool is_whole = copied == static_cast<ssize_t>(whole) && copy == own;
    return is_whole ? m_mapping.size() : 0;
}

std::size_t pid_array_view::read_through_file(pid_array_snapshot& snapshot) {
    const ssize_t length = pread(m_fd, m_copy, m_mapping.size(), 0);
    if (length < static_cast<ssize_t>(entries_offset) ||
        pread(m_fd, &snapshot.sequence_after, sizeof(snapshot.sequence_after), 0) !=
            static_cast<ssize_t>(sizeof(snapshot.sequence_after))) {
        return 0;
    }
    return static_cast<std::size_t>(length);
}
