// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <limits.h>
#include <semaphore.h>
#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "foundation/named_sem.h"
#include "instant_waits.h"
#include "shared_file.h"
#include "target.h"
#include "vask_object.h"

using vask_fuzz::input;
using vask_fuzz::require;

namespace {

const std::string names[] = {library_lock_name, "fuzz", "vask_shm_context_sem_fuzz"};

/** The semaphore that the library's lock is at an instant. */
struct lock_file {
    ino_t number;
    int value;
};

bool has_lock_file(struct stat* info) {
    return lstat(named_sem_path(library_lock_name).c_str(), info) == 0;
}

/** Nothing when there is none, or none that can be used. */
std::optional<lock_file> look_at_lock() {
    struct stat info;
    sem_t* const sem = has_lock_file(&info) ? open_existing_named_sem(library_lock_name) : nullptr;
    if (sem == nullptr) {
        return std::nullopt;
    }
    lock_file file = {info.st_ino, 0};
    sem_getvalue(sem, &file.value);
    sem_close(sem);
    return file;
}

/** An object per lock, and the semaphores that are open, each of them once. */
class host {
public:
    ~host() {
        for (sem_t* sem : m_open) {
            require(vask_object::close_named_sem(sem), "what was opened can be closed");
        }
    }

    void act(input& input) {
        const std::string& name = names[input.below(3)];
        switch (input.below(7)) {
            case 0:
                vask_fuzz::put_shared_file(named_sem_file_prefix + name, input);
                break;
            case 1:
                open(name, input);
                break;
            case 2:
                use(input);
                break;
            case 3:
                vask_object::destroy_sem(name.c_str());
                break;
            case 4:
                lock(m_first);
                break;
            case 5:
                lock(m_second);
                break;
            default:
                unlock(m_first);
                unlock(m_second);
                break;
        }
    }

private:
    class open_object : public vask_object {
    public:
        bool holds() const { return shm_lock_sem != nullptr; }
        bool holds_current() const {
            return holds() && is_named_sem(library_lock_name, shm_lock_sem);
        }
    };

    void open(const std::string& name, input& input) {
        const int initial = static_cast<std::int8_t>(input.byte());
        const int most = static_cast<std::int8_t>(input.byte());
        sem_t* const sem = input.flag()
                               ? vask_object::get_sem_for_shm(name.c_str())
                               : vask_object::create_named_sem(name.c_str(), initial, most);
        if (sem != nullptr) {
            m_open.push_back(sem);
        }
    }

    void use(input& input) {
        sem_t* const sem = m_open.empty() ? nullptr : m_open[input.below(m_open.size())];
        const bool done =
            input.flag() ? vask_object::vask_sem_wait(sem) : vask_object::vask_sem_post(sem);
        require(sem != nullptr || !done, "nothing is done to no semaphore");
    }

    void lock(open_object& object) {
        const bool held = object.holds();
        struct stat info;
        const bool is_unused = !has_lock_file(&info);
        const std::optional<lock_file> before = look_at_lock();
        vask_fuzz::instant_waits::begin();
        const bool locked = object.shm_lock();
        require(!vask_fuzz::instant_waits::have_no_end(), "whoever waits comes back");
        require(!held || !locked, "a lock is not taken twice");
        require(object.holds() == (held || locked), "what was taken is held");
        require(held || locked || (!before && !is_unused), "a lock can be taken");
        if (locked) {
            look_at_taken(before);
        }
    }

    // A stranger may have put a semaphore there that lets more than one in.
    void look_at_taken(const std::optional<lock_file>& before) {
        const std::optional<lock_file> after = look_at_lock();
        const bool was_free = before && before->value != 0;
        require(after && after->value == (was_free ? before->value - 1 : 0),
                "what was taken keeps others away");
        require(!before || was_free == (after->number == before->number),
                "a lock is held once, and who has waited in vain makes another");
    }

    void unlock(open_object& object) {
        const bool gives_back = object.holds_current();
        const std::optional<lock_file> before = look_at_lock();
        object.shm_unlock();
        const std::optional<lock_file> after = look_at_lock();
        require(!object.holds(), "what was given back is not held");
        if (before && before->value != SEM_VALUE_MAX) {
            require(after && after->value == before->value + (gives_back ? 1 : 0),
                    "what is given back is free");
        }
    }

    open_object m_first;
    open_object m_second;
    std::vector<sem_t*> m_open;
};

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
}

void run_target(input& input) {
    {
        host host;
        for (int i = 0; i < 32 && input.has_more(); ++i) {
            host.act(input);
        }
    }
    vask_fuzz::remove_shared_files();
}
