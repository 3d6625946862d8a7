// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SCENES_H
#define VASK_TEST_SCENES_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "death/aftermath.h"
#include "death/fault_steps.h"

namespace vask_test {

/** What the operation has said of itself. */
enum operation_result { unfinished, done, failed, thrown };

/**
 * An operation in its surroundings: who else is there, what a victim does, and what others find
 * afterwards. The judge of a cell makes one, in a world of its own, and forks or starts the victim.
 */
class scene {
public:
    virtual ~scene() = default;

    /** In the judge, before the victim. */
    virtual void set() {}
    /** In the judge: starts the victim and waits until its operation is over, or it is dead. */
    virtual void let_victim_act(shared_plan& plan);
    /** In another process while the victim is stopped, if it is to be robbed. That process lives on
     *  until the judge has looked. */
    virtual void rob() {}
    int robber = -1;

    /** In the judge. */
    virtual void look(const fault_plan& plan, aftermath& after) = 0;

    /** Whether the victim's process ends after the operation, as a child's does. */
    virtual bool ends_with_operation() const { return false; }

    bool victim_lives() const;

protected:
    /** In the victim: before the steps are counted; the operation; and what it does next, without a
     *  fault, to end up as it always ends. False when that does not work. */
    virtual void prepare() {}
    virtual bool operate() { return true; }
    virtual bool do_next() { return true; }

    int m_victim = -1;

private:
    [[noreturn]] void act(fault_plan& plan);
};

struct operation {
    const char* subsystem;
    const char* name;
    /** Nobody can take a lock away from it. */
    const char* why_not_robbed;
    /** It waits for seconds by itself. */
    bool is_long;
    std::function<std::unique_ptr<scene>()> make_scene;
};

const std::vector<operation>& all_operations();

/** What this process could leak, as text. */
std::string own_resources();

}  // namespace vask_test

#endif
