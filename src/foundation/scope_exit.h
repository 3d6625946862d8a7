// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SCOPE_EXIT_H
#define VASK_SCOPE_EXIT_H

#include <utility>

// Runs an action when it goes out of scope, also because of an exception. The action must not
// throw.
template <typename Action>
class scope_exit {
public:
    explicit scope_exit(Action action) : m_action(std::move(action)) {}
    ~scope_exit() { m_action(); }
    scope_exit(const scope_exit&) = delete;
    scope_exit& operator=(const scope_exit&) = delete;

private:
    Action m_action;
};

#endif
