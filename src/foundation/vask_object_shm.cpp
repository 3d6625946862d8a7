#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstddef>

#include "foundation/fail_point.h"
#include "foundation/pid_array_view.h"
#include "foundation/shared_mapping.h"
#include "foundation/unique_fd.h"
#include "vask_object.h"

// The registry is a sequence lock: writers, one at a time under the library lock, make the sequence
// odd, change the record, and make it even again. A reader takes what it has copied only if the
// sequence was even before and the same afterwards.

static_assert(offsetof(pid_array, sequence) == 0, "shared by all processes");
static_assert(offsetof(pid_array, count) == 4, "shared by all processes");
static_assert(offsetof(pid_array, entries) == 8, "shared by all processes");
static_assert(offsetof(pid_array_entry, pid) == 0, "shared by all processes");
static_assert(offsetof(pid_array_entry, key) == 8, "shared by all processes");
static_assert(sizeof(pid_array_entry) == 16, "shared by all processes");
static_assert(sizeof(pid_array) == 24, "shared by all processes");

namespace {

constexpr double reader_patience_sec = 5.0;

// Room for the given number of entries and one more.
constexpr std::size_t object_size(std::size_t count) {
    return sizeof(pid_array) + count * sizeof(pid_array_entry);
}

// A key that this process's numbers cannot express is nobody's here.
bool is_expressible(std::uint64_t key) {
    return key <= ULONG_MAX;
}

// Adds what a view has read last, without the ended processes.
void add_living(const pid_array_view& view, std::size_t count,
                std::map<unsigned long, int>& found) {
    for (std::size_t i = 0; i < count; ++i) {
        const pid_array_entry entry = view.entry(i);
        if (is_expressible(entry.key) && entry.pid > 0 && kill(entry.pid, 0) == 0) {
            // The last of several with one key counts. Most come in the order of their keys.
            const auto key = static_cast<unsigned long>(entry.key);
            found.emplace_hint(found.end(), key, entry.pid)->second = entry.pid;
        }
    }
}

class lock_holder {
public:
    explicit lock_holder(vask_object& object) : m_object(object), m_holds(object.shm_lock()) {}
    ~lock_holder() {
        if (m_holds) {
            m_object.shm_unlock();
        }
    }

    lock_holder(const lock_holder&) = delete;
    lock_holder& operator=(const lock_holder&) = delete;

    explicit operator bool() const { return m_holds; }

private:
    vask_object& m_object;
    const bool m_holds;
};

// Opened before it is created: the kernel may refuse O_CREAT for an object that another user owns.
unique_fd open_or_create(const char* name) {
    unique_fd object(shm_open(name, O_RDWR, 0));
    if (!object && errno == ENOENT) {
        object = unique_fd(shm_open(name, O_RDWR | O_CREAT, 0644));
    }
    return object;
}

// Number of entries that an object really has, whatever it claims. Read from the file: a load from
// a mapped page that has no memory yet would be fatal when there is none left.
std::size_t count_entries(int fd, std::size_t size) {
    std::int32_t count = 0;
    if (size < offsetof(pid_array, entries) ||
        pread(fd, &count, sizeof(count), offsetof(pid_array, count)) != sizeof(count)) {
        return 0;
    }
    const std::size_t room = (size - offsetof(pid_array, entries)) / sizeof(pid_array_entry);
    return std::min({static_cast<std::size_t>(std::max(count, 0)), room, most_entries});
}

// Reserves the memory as well: without it a full file system would make the first write fatal.
bool set_size(int fd, std::size_t size) {
    int error;
    do {
        error = posix_fallocate(fd, 0, static_cast<off_t>(size));
    } while (error == EINTR);
    return error == 0 && ftruncate(fd, static_cast<off_t>(size)) == 0;
}

pid_array_entry load(const pid_array_entry& entry) {
    pid_array_entry copy = {};
    copy.pid = __atomic_load_n(&entry.pid, __ATOMIC_RELAXED);
    copy.key = __atomic_load_n(&entry.key, __ATOMIC_RELAXED);
    return copy;
}

// At no instant does the entry show a pair that was never stored: the writer may be killed.
void store(pid_array_entry& entry, int pid, std::uint64_t key) {
    __atomic_store_n(&entry.pid, 0, __ATOMIC_RELAXED);
    __atomic_store_n(&entry.key, key, __ATOMIC_RELEASE);
    __atomic_store_n(&entry.pid, pid, __ATOMIC_RELEASE);
}

}  // namespace

std::string vask_object::make_stored_pid_name(const char* name) {
    return std::string("vask_proc_pid_") + name;
}

bool vask_object::store_pid_to_shm(unsigned long key) {
    const std::string shm_name = make_stored_pid_name(obj_name);
    const auto page_size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    vask_p(VASK_P_DBG, "store_pid_to_shm(%d,0x%lx)\n", my_pid, key);
    VASK_FAIL_POINT("named");

    lock_holder lock(*this);
    if (!lock) {
        vask_p(VASK_P_ERR, "Failed lock shm (shm_name:%s)\n", shm_name.c_str());
        return false;
    }
    VASK_FAIL_POINT("locked");
    const unique_fd object = open_or_create(shm_name.c_str());
    if (!object) {
        vask_p(VASK_P_ERR, "Failed to call shm_open @ store_pid_to_shm\n");
        return false;
    }
    VASK_FAIL_POINT("opened");
    shared_mapping mapping;
    if (!mapping.map(object.get(), page_size, PROT_READ | PROT_WRITE)) {
        vask_p(VASK_P_ERR, "Failed to call mmap @ store_pid_to_shm\n");
        return false;
    }
    VASK_FAIL_POINT("mapped");
    struct stat info;
    if (fstat(object.get(), &info) != 0) {
        vask_p(VASK_P_ERR, "Failed to call fstat @ store_pid_to_shm\n");
        return false;
    }
    VASK_FAIL_POINT("measured");
    const std::size_t old_count =
        count_entries(object.get(), static_cast<std::size_t>(info.st_size));
    const std::size_t new_size = object_size(old_count);
    if (!set_size(object.get(), new_size)) {
        vask_p(VASK_P_ERR, "Failed to call ftruncate @ store_pid_to_shm\n");
        return false;
    }
    VASK_FAIL_POINT("sized");
    if (new_size > page_size && !mapping.grow(new_size)) {
        vask_p(VASK_P_ERR, "Failed to call mremap @ store_pid_to_shm\n");
        return false;
    }
    VASK_FAIL_POINT("grown");

    auto* array = static_cast<pid_array*>(mapping.address());
    std::uint32_t sequence = __atomic_load_n(&array->sequence, __ATOMIC_ACQUIRE);
    if (sequence % 2 != 0) {
        vask_p(VASK_P_WARN,
               "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 1.\n");
        sequence = 1;
    } else {
        ++sequence;
    }
    __atomic_store_n(&array->sequence, sequence, __ATOMIC_RELAXED);
    // No change of the record may be seen before the odd sequence.
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
    VASK_FAIL_POINT("marked");

    __atomic_store_n(&array->count, static_cast<std::int32_t>(old_count), __ATOMIC_RELAXED);
    const std::map<unsigned long, int> others = resize_pid_array(array);
    VASK_FAIL_POINT("compacted");
    const bool is_free = key == 0 || others.count(key) == 0;
    if (is_free) {
        const std::int32_t count = __atomic_load_n(&array->count, __ATOMIC_RELAXED);
        store(array->entries[count], my_pid, key);
        __atomic_store_n(&array->count, count + 1, __ATOMIC_RELAXED);
    } else {
        vask_p(VASK_P_ERR, "Key(0x%lx) is already in use.\n", key);
    }
    VASK_FAIL_POINT("appended");
    __atomic_store_n(&array->sequence, sequence + 1, __ATOMIC_RELEASE);
    VASK_FAIL_POINT("released");
    return is_free;
}

std::map<unsigned long, int> vask_object::resize_pid_array(pid_array* array) const {
    std::map<unsigned long, int> kept_by_key;
    const std::int32_t count = __atomic_load_n(&array->count, __ATOMIC_RELAXED);
    std::int32_t kept = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        const pid_array_entry entry = load(array->entries[i]);
        if (entry.pid <= 0 || entry.pid == my_pid || !is_process_alive(entry.pid)) {
            continue;
        }
        if (kept != i) {
            store(array->entries[kept], entry.pid, entry.key);
        }
        ++kept;
        if (is_expressible(entry.key)) {
            kept_by_key[static_cast<unsigned long>(entry.key)] = entry.pid;
        }
    }
    __atomic_store_n(&array->count, kept, __ATOMIC_RELAXED);
    return kept_by_key;
}

std::map<unsigned long, int> vask_object::find_stored_pid_from_shm(const std::string& name) const {
    return find_stored_pid_from_shm(name.c_str());
}

std::map<unsigned long, int> vask_object::find_stored_pid_from_shm(const char* name) const {
    std::map<unsigned long, int> found;
    // O_NONBLOCK for a pipe of that name: it is not waited for, and then cannot be mapped.
    const unique_fd object(shm_open(make_stored_pid_name(name).c_str(), O_RDONLY | O_NONBLOCK, 0));
    if (!object) {
        vask_p(VASK_P_DBG, "Failed to call shm_open @ find_stored_pid_from_shm\n");
        return found;
    }
    pid_array_view view(object.get());
    if (!view.map()) {
        vask_p(VASK_P_ERR, "Failed to call mmap @ find_stored_pid_from_shm\n");
        return found;
    }
    const double start = vask_gettime(VASK_TIME_SEC);
    if (start < 0) {
        return found;
    }

    bool has_grown = false;
    for (;;) {
        const pid_array_snapshot snapshot = view.read();
        const bool grows = view.can_grow(snapshot);
        bool is_late = false;
        if (grows || !snapshot.is_stable()) {
            const double now = vask_gettime(VASK_TIME_SEC);
            if (now < 0) {
                return found;
            }
            is_late = now > start + reader_patience_sec;
        }
        // Once in any case: a process that was stopped meanwhile still sees the whole record.
        if (grows && !(is_late && has_grown)) {
            if (!view.grow(snapshot)) {
                vask_p(VASK_P_ERR, "Failed to call mremap @ find_stored_pid_from_shm\n");
                return found;
            }
            has_grown = true;
            continue;
        }
        if (snapshot.sequence % 2 != 0) {
            if (!is_late) {
                continue;
            }
            // Whatever the record holds now is all there will be.
            vask_p(VASK_P_WARN,
                   "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 0.\n");
        }
        add_living(view, snapshot.entry_count, found);
        // What an interrupted pass has found stays: it was registered at some time of the lookup.
        if (snapshot.is_stable() || is_late) {
            return found;
        }
    }
}
