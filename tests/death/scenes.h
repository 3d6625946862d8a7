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
    /** In the judge, as soon as that is so: nobody has repaired anything yet. */
    virtual void look_at_once(const fault_plan&, aftermath&) {}
    /** In the judge: lets the victim do what it does next, if it lives. */
    virtual void let_victim_go_on(shared_plan& plan);
    /** In another process while the victim is stopped, if it is to be robbed. That process lives on
     *  until the judge has looked. */
    virtual void rob() {}
    int robber = -1;

    /** In the judge. */
    virtual void look(const fault_plan& plan, aftermath& after) = 0;

    /** Whether the victim's process ends after the operation, as a child's does. */
    virtual bool ends_with_operation() const { return false; }

    /** How long others can hold up the operation, by what the library promises. */
    virtual double promised_sec(const fault_plan& plan) const = 0;

    bool victim_lives() const;
    /** Nothing stops it, and it does not come to an end. */
    bool victim_hangs() const { return m_victim_hangs; }

protected:
    /** In the victim: before the steps are counted; the operation; and what it does next, without a
     *  fault, to end up as it always ends. False when that does not work. */
    virtual void prepare() {}
    virtual bool operate() { return true; }
    virtual bool do_next() { return true; }

    int m_victim = -1;
    /** In the victim. */
    fault_plan* m_plan = nullptr;

private:
    [[noreturn]] void act(fault_plan& plan);
    void wait_for_victim(const std::function<bool()>& is_done);

    bool m_victim_hangs = false;
};

struct operation {
    const char* subsystem;
    const char* name;
    /** Nobody can take a lock away from it. */
    const char* why_not_robbed;
    std::function<std::unique_ptr<scene>()> make_scene;
};

const std::vector<operation>& all_operations();

}  // namespace vask_test

#endif
