// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <new>

#include "foundation/fail_point.h"
#include "foundation/library_lock.h"
#include "foundation/pid_array_writer.h"
#include "foundation/shared_names.h"
#include "foundation/signal_block.h"
#include "foundation/withheld_signal.h"
#include "vask_object.h"

namespace {

// Takes the library lock for an object, keeps it in the object's slot, and blocks signals
// meanwhile.
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
    const withheld_signal m_file_size{SIGXFSZ};  // these two end after the lock
    signal_block m_signals;
    vask_object& m_object;
    bool m_holds = false;
};

// What has become of a registration, to be told when the lock is given back.
struct registration {
    bool has_lock = false;
    bool is_key_in_use = false;
    pid_array_writer::outcome change;
};

// The holder of the lock replaces this process's entries by one with that key, unless another
// process has the key.
registration change_registry(const vask_object& object, sem_t* held_lock, const char* name,
                             unsigned long key) {
    registration made;
    made.has_lock = true;
    pid_array_writer writer(held_lock);
    if (writer.open(name)) {
        const auto others = object.resize_pid_array(writer.array());
        VASK_FAIL_POINT("compacted");
        made.is_key_in_use = key != 0 && others.count(key) != 0;
        if (!made.is_key_in_use) {
            writer.append(vask_object::my_pid, key);
        }
        writer.commit();
    }
    made.change = writer.get_outcome();
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
    if (made.change.has_found_odd_sequence) {
        object.vask_p(
            VASK_P_WARN,
            "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 1.\n");
    }
    if (made.is_key_in_use && made.change.result != pid_array_writer::result::robbed) {
        object.vask_p(VASK_P_ERR, "Key(0x%lx) is already in use.\n", key);
    }
    if (made.change.result == pid_array_writer::result::failed) {
        report_failure(object, made.change.failed_call);
    }
}

pid_array_entry load(const pid_array_entry& entry) {
    pid_array_entry copy = {};
    copy.pid = __atomic_load_n(&entry.pid, __ATOMIC_RELAXED);  // [R1]
    copy.key = __atomic_load_n(&entry.key, __ATOMIC_RELAXED);
    return copy;
}

// At no instant does the entry hold a pair that was never stored: the writer may be killed [R4].
void store(pid_array_entry& entry, int pid, std::uint64_t key) {
    __atomic_store_n(&entry.pid, 0, __ATOMIC_RELEASE);  // [R2], as the next two
    __atomic_store_n(&entry.key, key, __ATOMIC_RELEASE);
    __atomic_store_n(&entry.pid, pid, __ATOMIC_RELEASE);
}

}  // namespace

std::string vask_object::make_stored_pid_name(const char* name) {
    return std::string(registry_prefix) + name;
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
        if (made.change.result != pid_array_writer::result::robbed) {
            return made.change.result == pid_array_writer::result::done && !made.is_key_in_use;
        }
    }
} catch (const std::bad_alloc&) {
    // Nothing is thrown any more once the sequence is odd.
    report_failure(*this, pid_array_writer::call::mremap);
    return false;
}

std::map<unsigned long, int> vask_object::resize_pid_array(pid_array* array) const {
    std::map<unsigned long, int> kept_by_key;
    const std::int32_t count = __atomic_load_n(&array->count, __ATOMIC_RELAXED);  // [R1]
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
        if (is_expressible_key(entry.key)) {
            kept_by_key[static_cast<unsigned long>(entry.key)] = entry.pid;
        }
    }
    __atomic_store_n(&array->count, kept, __ATOMIC_RELEASE);  // [R5]
    return kept_by_key;
}
