// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef DEMO_BRIDGE_H
#define DEMO_BRIDGE_H

#include <vask_app_bridge.h>

#include <string>
#include <vector>

/** How a worker has ended. */
struct worker_end {
    bool was_asked;
    bool was_main;
};

/**
 * @brief The parent's bridge of the demonstration: a bridge that remembers what it hears.
 *
 * The callbacks only take down what happened, and the story in the main program looks at it: so
 * everything is told in one place, and in its order.
 */
class demo_bridge : public vask_app_bridge {
public:
    explicit demo_bridge(const std::string& child_program);

    /** Starts the child, in twins mode both, unless it runs already. Does not wait for it. */
    void start_child();

    /** @return the child's reply, or an empty string, after a line of the library, without one */
    std::string ask(int command, std::string argument);

    bool is_main_worker_on_bus() const;
    bool is_other_worker_on_bus();

    /** @return the pid of the worker that is not the main one, -1 without it */
    int get_other_worker_pid();

    /** Whether tools find the main worker under its name and its process id, as the key. */
    bool is_child_registered();

    const std::vector<worker_end>& get_ends() const;
    const std::vector<std::string>& get_rings() const;
    const std::string& get_farewell() const;

    /** Asks the child to quit. Blocks until it has said goodbye. */
    void terminate_worker_impl() override;

    void child_exit_cb(bool is_main) override;
    void child_crash_cb(bool is_main) override;

private:
    void on_rang(const char* text);

    std::string m_child_program;
    std::vector<worker_end> m_ends;
    std::vector<std::string> m_rings;
    std::string m_farewell;
};

#endif
