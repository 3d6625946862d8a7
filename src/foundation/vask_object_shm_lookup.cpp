// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <sys/mman.h>

#include <new>

#include "foundation/pid_array_view.h"
#include "foundation/unique_fd.h"
#include "vask_object.h"

namespace {

constexpr double reader_patience_sec = 5.0;

// The time that a lookup may take. It starts now; the clock is read again only where a reader would
// have to wait.
class reader_patience {
public:
    // False when the clock cannot be read.
    bool has_clock() const { return m_now >= 0; }

    void look_at_clock() { m_now = vask_object::vask_gettime(VASK_TIME_SEC); }
    bool is_over() const { return m_now > m_start + reader_patience_sec; }

private:
    const double m_start = vask_object::vask_gettime(VASK_TIME_SEC);
    double m_now = m_start;
};

// Adds what a view has read last, without the ended processes.
void add_living(const pid_array_view& view, std::size_t count,
                std::map<unsigned long, int>& found) {
    for (std::size_t i = 0; i < count; ++i) {
        const pid_array_entry entry = view.entry(i);
        if (is_expressible_key(entry.key) && vask_object::is_process_alive(entry.pid)) {
            // The last of several with one key counts. Most come in the order of their keys.
            const auto key = static_cast<unsigned long>(entry.key);
            found.emplace_hint(found.end(), key, entry.pid)->second = entry.pid;
        }
    }
}

// Reads until a lookup may take what it has read: the whole record, with no writer at work, or with
// one when the time is over. False when that fails.
bool wait_for_record(const vask_object& looker, pid_array_view& view, reader_patience& patience,
                     pid_array_snapshot& snapshot) {
    for (;;) {
        snapshot = view.read();
        if (!snapshot.is_readable) {
            looker.vask_p(VASK_P_ERR, "Failed to call mmap @ find_stored_pid_from_shm\n");
            return false;
        }
        const bool can_grow = view.can_grow(snapshot);
        if (can_grow || !snapshot.is_stable()) {
            patience.look_at_clock();
            if (!patience.has_clock()) {
                return false;
            }
        }
        // It grows once even when the time is over: a reader that was stopped meanwhile still sees
        // the whole record.
        if (can_grow && !(patience.is_over() && view.has_grown())) {
            if (!view.grow(snapshot)) {
                looker.vask_p(VASK_P_ERR, "Failed to call mremap @ find_stored_pid_from_shm\n");
                return false;
            }
        } else if (!snapshot.is_being_written() || patience.is_over()) {
            return true;
        }
    }
}

// Looks a registry up, into a map that keeps what was found even where memory runs out:
// std::bad_alloc.
void look_up(const vask_object& looker, const char* shm_name, std::map<unsigned long, int>& found) {
    // A pipe of that name is opened without waiting for a writer; reading it fails then.
    const unique_fd object(shm_open(shm_name, O_RDONLY | O_NONBLOCK, 0));
    if (!object) {
        looker.vask_p(VASK_P_DBG, "Failed to call shm_open @ find_stored_pid_from_shm\n");
        return;
    }
    pid_array_view view(object.get());
    reader_patience patience;
    pid_array_snapshot snapshot;
    while (patience.has_clock() && wait_for_record(looker, view, patience, snapshot)) {
        if (snapshot.is_being_written()) {
            // The record will hold no more than it holds now.
            looker.vask_p(
                VASK_P_WARN,
                "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 0.\n");
        }
        if (!snapshot.is_stable()) {
            view.drop_changed(snapshot);
        }
        add_living(view, snapshot.entry_count, found);
        // What an interrupted pass has found stays: it was registered at some time of the lookup.
        if (snapshot.is_stable() || patience.is_over()) {
            return;
        }
    }
}

}  // namespace

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
