#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>

#include <climits>
#include <new>

#include "foundation/fail_point.h"
#include "foundation/library_lock.h"
#include "foundation/pid_array_view.h"
#include "foundation/pid_array_writer.h"
#include "foundation/signal_block.h"
#include "foundation/unique_fd.h"
#include "foundation/withheld_signal.h"
#include "vask_object.h"

namespace {

constexpr double reader_patience_sec = 5.0;

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

// A lookup, into a map that keeps what was found even where memory runs out: std::bad_alloc.
void look_up(const vask_object& looker, const char* shm_name, std::map<unsigned long, int>& found) {
    // O_NONBLOCK for a pipe of that name: it is not waited for, and then cannot be read.
    const unique_fd object(shm_open(shm_name, O_RDONLY | O_NONBLOCK, 0));
    if (!object) {
        looker.vask_p(VASK_P_DBG, "Failed to call shm_open @ find_stored_pid_from_shm\n");
        return;
    }
    pid_array_view view(object.get());
    const double start = vask_object::vask_gettime(VASK_TIME_SEC);
    if (start < 0) {
        return;
    }

    bool has_grown = false;
    for (;;) {
        const pid_array_snapshot snapshot = view.read();
        if (!snapshot.is_readable) {
            looker.vask_p(VASK_P_ERR, "Failed to call mmap @ find_stored_pid_from_shm\n");
            return;
        }
        const bool grows = view.can_grow(snapshot);
        bool is_late = false;
        if (grows || !snapshot.is_stable()) {
            const double now = vask_object::vask_gettime(VASK_TIME_SEC);
            if (now < 0) {
                return;
            }
            is_late = now > start + reader_patience_sec;
        }
        // Once in any case: a process that was stopped meanwhile still sees the whole record.
        if (grows && !(is_late && has_grown)) {
            if (!view.grow(snapshot)) {
                looker.vask_p(VASK_P_ERR, "Failed to call mremap @ find_stored_pid_from_shm\n");
                return;
            }
            has_grown = true;
            continue;
        }
        if (snapshot.sequence % 2 != 0) {
            if (!is_late) {
                continue;
            }
            // Whatever the record holds now is all there will be.
            looker.vask_p(
                VASK_P_WARN,
                "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 0.\n");
        }
        if (!snapshot.is_stable()) {
            view.drop_changed(snapshot);
        }
        add_living(view, snapshot.entry_count, found);
        // What an interrupted pass has found stays: it was registered at some time of the lookup.
        if (snapshot.is_stable() || is_late) {
            return;
        }
    }
}

// Holds the library lock in an object's slot for it, and keeps signals away meanwhile.
class lock_holder {
public:
    lock_holder(vask_object& object, sem_t*& slot) : m_object(object) {
        if (slot != nullptr) {
            m_holds = object.shm_lock();  // which refuses
        } else {
            slot = take_library_lock(object, &m_signals);
            m_holds = slot != nullptr;
        }
    }
    ~lock_holder() {
        if (m_holds) {
            m_object.shm_unlock();
        }
    }

    lock_holder(const lock_holder&) = delete;
    lock_holder& operator=(const lock_holder&) = delete;

    explicit operator bool() const { return m_holds; }

private:
    const withheld_signal m_file_size{SIGXFSZ};  // these end after the lock
    signal_block m_signals;
    vask_object& m_object;
    bool m_holds = false;
};

// What has become of a registration, to be told when the lock is given back.
struct registration {
    pid_array_writer::result result = pid_array_writer::result::failed;
    pid_array_writer::call failed_call = pid_array_writer::call::mremap;
    bool has_lock = false;
    bool has_found_odd_sequence = false;
    bool is_key_in_use = false;
};

pid_array_writer::result write_record(pid_array_writer& writer) {
    const pid_array_writer::result begun = writer.begin();
    if (begun != pid_array_writer::result::done) {
        return begun;
    }
    const pid_array_writer::result written = writer.write();
    if (written == pid_array_writer::result::robbed) {
        return written;
    }
    // After a failure too: what was written until then is a record.
    const pid_array_writer::result ended = writer.end();
    VASK_FAIL_POINT("released");
    return written == pid_array_writer::result::done ? ended : written;
}

registration change_registry(const vask_object& object, sem_t* held_lock, const char* name,
                             unsigned long key) {
    registration made;
    made.has_lock = true;
    pid_array_writer writer(held_lock);
    made.result = writer.open(name);
    if (made.result == pid_array_writer::result::done) {
        const auto others = object.resize_pid_array(writer.array());
        VASK_FAIL_POINT("compacted");
        made.is_key_in_use = key != 0 && others.count(key) != 0;
        if (!made.is_key_in_use) {
            writer.append(vask_object::my_pid, key);
        }
        made.result = write_record(writer);
    }
    made.failed_call = writer.failed_call();
    made.has_found_odd_sequence = writer.has_found_odd_sequence();
    return made;
}

void report_failure(const vask_object& object, pid_array_writer::call call) {
    switch (call) {
        case pid_array_writer::call::shm_open:
            object.vask_p(VASK_P_ERR, "Failed to call shm_open @ store_pid_to_shm\n");
            break;
        case pid_array_writer::call::mmap:
            object.vask_p(VASK_P_ERR, "Failed to call mmap @ store_pid_to_shm\n");
            break;
        case pid_array_writer::call::fstat:
            object.vask_p(VASK_P_ERR, "Failed to call fstat @ store_pid_to_shm\n");
            break;
        case pid_array_writer::call::ftruncate:
            object.vask_p(VASK_P_ERR, "Failed to call ftruncate @ store_pid_to_shm\n");
            break;
        case pid_array_writer::call::mremap:
            object.vask_p(VASK_P_ERR, "Failed to call mremap @ store_pid_to_shm\n");
            break;
    }
}

void report(const vask_object& object, const registration& made, const std::string& shm_name,
            unsigned long key) {
    if (!made.has_lock) {
        object.vask_p(VASK_P_ERR, "Failed lock shm (shm_name:%s)\n", shm_name.c_str());
        return;
    }
    if (made.has_found_odd_sequence) {
        object.vask_p(
            VASK_P_WARN,
            "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 1.\n");
    }
    if (made.is_key_in_use && made.result != pid_array_writer::result::robbed) {
        object.vask_p(VASK_P_ERR, "Key(0x%lx) is already in use.\n", key);
    }
    if (made.result == pid_array_writer::result::failed) {
        report_failure(object, made.failed_call);
    }
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

bool vask_object::store_pid_to_shm(unsigned long key) try {
    const std::string shm_name = make_stored_pid_name(obj_name);
    vask_p(VASK_P_DBG, "store_pid_to_shm(%d,0x%lx)\n", my_pid, key);
    VASK_FAIL_POINT("named");
    for (;;) {
        registration made;
        {
            const lock_holder lock(*this, shm_lock_sem);
            if (lock) {
                VASK_FAIL_POINT("locked");
                made = change_registry(*this, shm_lock_sem, shm_name.c_str(), key);
            }
        }
        report(*this, made, shm_name, key);
        // Robbed of the lock, it has left the record to the robber, and begins again.
        if (made.result != pid_array_writer::result::robbed) {
            return made.result == pid_array_writer::result::done && !made.is_key_in_use;
        }
    }
} catch (const std::bad_alloc&) {
    // Nothing is allocated any more once the sequence is odd.
    report_failure(*this, pid_array_writer::call::mremap);
    return false;
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
    try {
        look_up(*this, make_stored_pid_name(name).c_str(), found);
    } catch (const std::bad_alloc&) {
        vask_p(VASK_P_ERR, "Failed to call mremap @ find_stored_pid_from_shm\n");
    }
    return found;
}
