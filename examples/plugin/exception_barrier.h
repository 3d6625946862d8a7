// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef EXCEPTION_BARRIER_H
#define EXCEPTION_BARRIER_H

#include <vask_object.h>

#include <exception>

/**
 * Makes a call that C has asked for: the browser's functions and the main loop's are none that an
 * exception could pass. One that gets here is logged.
 *
 * @param where       for the log
 * @param on_failure  what is returned instead
 */
template <typename Result, typename Call>
Result end_exceptions(const char* where, Result on_failure, Call call) noexcept {
    try {
        return call();
    } catch (const std::exception& error) {
        vask_object::vask_p("demo_plugin", VASK_P_ERR, "%s: %s\n", where, error.what());
    } catch (...) {
        vask_object::vask_p("demo_plugin", VASK_P_ERR, "%s: unknown exception\n", where);
    }
    return on_failure;
}

/** The same for a call without result. */
template <typename Call>
void end_exceptions(const char* where, Call call) noexcept {
    end_exceptions(where, false, [&call] {
        call();
        return true;
    });
}

#endif
