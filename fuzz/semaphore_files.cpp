// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <semaphore.h>

#include <string>
#include <vector>

#include "foundation/shared_names.h"
#include "shared_file.h"
#include "target.h"
#include "vask_object.h"

using vask_fuzz::input;
using vask_fuzz::require;

namespace {

const std::string names[] = {library_lock_name, "fuzz", "vask_shm_context_sem_fuzz"};

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
                m_first.shm_unlock();
                m_second.shm_unlock();
                break;
        }
    }

private:
    class open_object : public vask_object {
    public:
        bool holds() const { return shm_lock_sem != nullptr; }
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
        const bool locked = object.shm_lock();
        require(!held || !locked, "a lock is not taken twice");
        require(object.holds() == (held || locked), "what was taken is held");
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
