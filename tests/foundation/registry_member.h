// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_REGISTRY_MEMBER_H
#define VASK_TEST_REGISTRY_MEMBER_H

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "support/forked_process.h"
#include "support/library_lock_state.h"
#include "support/registry_object.h"
#include "vask_test/main_loop.h"

using registry_map = std::map<unsigned long, int>;

/** A live process that has tried to register itself. */
class registry_member {
public:
    registry_member(const std::string& name, unsigned long key)
        : m_process([this, name, key] {
              named_object object(name.c_str());
              *m_result = object.store_pid_to_shm(key) ? registered : refused;
              wait_for_a_signal();
              return 0;
          }) {
        vask_test::wait_until_without_loop([this] { return *m_result != undecided; });
    }

    bool is_registered() const { return *m_result == registered; }
    pid_t pid() const { return m_process.pid(); }

    /** Ends it; it is a zombie until this object is gone or end() is called. */
    void end_unreaped() {
        kill(pid(), SIGKILL);
        m_process.wait_until_zombie();
    }
    void end() { m_process.kill_now(); }

private:
    enum result { undecided, registered, refused };

    const shared_value<std::atomic<result>> m_result;
    forked_process m_process;
};

class registry_test : public testing::Test {
protected:
    registry_map find(const std::string& name = "program") const {
        return looker.find_stored_pid_from_shm(name);
    }

    static vask_test::log_line in_use(const std::string& object, const std::string& key) {
        return vask_test::line("ERR", object, "Key(0x" + key + ") is already in use.");
    }

    static vask_test::log_line error(const std::string& object, const std::string& text) {
        return vask_test::line("ERR", object, text);
    }

    shared_objects_removed cleanup;
    vask_test::log_catcher log;
    named_object looker{"looker"};
    named_object object{"program"};
    const int my_pid = getpid();
};

#endif
