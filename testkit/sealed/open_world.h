// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_OPEN_WORLD_H
#define VASK_TEST_OPEN_WORLD_H

#include <string>
#include <vector>

#include "shared_names.h"

namespace vask_test {

/**
 * Where the machine allows no private world: its tests run one after the other, over all users, in
 * a directory of their own. What the user's programs have left of the library in /dev/shm is out of
 * sight for so long.
 */
class open_world {
public:
    open_world() = default;
    /** Takes away what the test has left, and puts back what was there. */
    ~open_world();
    open_world(const open_world&) = delete;
    open_world& operator=(const open_world&) = delete;

    /** Waits for its turn. Returns "" or what did not work. */
    std::string enter();
    const std::string& directory() const { return m_directory; }
    /** What this user's processes share and did not before, but for what others use that were not
     *  started here. */
    std::vector<shared_thing> new_things() const;

private:
    std::string put_aside();
    void put_back() const;

    int m_turn = -1;
    bool m_has_begun = false;
    std::string m_directory;
    std::string m_aside;  // empty while nothing is
    std::string m_moving;
    std::vector<shared_thing> m_old_things;
};

}  // namespace vask_test

#endif
