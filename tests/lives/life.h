// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LIFE_H
#define VASK_TEST_LIFE_H

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "operation.h"

namespace vask_test {

class life;

/** Steps that belong to no family of classes. */
constexpr int common_family = -1;

/** What a step is: how often it is chosen, and what it does. */
struct operation_kind {
    std::string name;
    int family;
    double weight;
    std::function<void(life&, int slot, int value)> play;
};

/** The objects of one kind of class in a life, and what can be done to them. */
class family {
public:
    virtual ~family() = default;

    /** Deletes all its objects. */
    virtual void end() = 0;
};

/** What an object can do when the library calls it, given by whoever is called. */
struct reactions {
    std::function<void()> delete_self = [] {};
    std::function<void()> delete_other = [] {};
    std::function<void()> again = [] {};
};

/**
 * Plays one program, in a process of its own.
 *
 * What the library's calls do is decided beforehand: "on_crash 0 3" has the next crash that is
 * reported, of whichever bridge, answered in the third way.
 */
class life {
public:
    life();
    ~life();
    life(const life&) = delete;
    life& operator=(const life&) = delete;

    static const std::vector<operation_kind>& kinds();
    static bool knows(const std::string& name);
    static int families();

    /** Plays it to its end, where all objects are deleted. @return "" or what is wrong then */
    std::string play(const program& steps);

    /** To be called where the library has called an object. */
    void react(const std::string& event, const reactions& possible);

    template <typename Family>
    Family& of() {
        return *static_cast<Family*>(m_families.at(Family::number).get());
    }

    /** Notes what must not be. */
    void blame(const std::string& text);

    /** Lets the main loop run for so long, also in a call of the library. */
    void loop(int msec);

private:
    friend const std::vector<operation_kind>& common_kinds();

    void play_next();
    void end();

    program m_steps;
    std::size_t m_next = 0;
    int m_depth = 0;
    std::map<std::string, std::deque<int>> m_plans;
    std::vector<std::unique_ptr<family>> m_families;
    std::string m_blame;
};

/** The families' steps. */
std::vector<operation_kind> bridge_kinds();
std::vector<operation_kind> socket_kinds();
std::vector<operation_kind> tool_kinds();
std::vector<operation_kind> page_kinds();
std::vector<operation_kind> child_kinds();

/** The families' objects, in the same order. */
std::unique_ptr<family> make_bridges(life& owner);
std::unique_ptr<family> make_sockets(life& owner);
std::unique_ptr<family> make_tools(life& owner);
std::unique_ptr<family> make_pages(life& owner);
std::unique_ptr<family> make_children(life& owner);

}  // namespace vask_test

#endif
