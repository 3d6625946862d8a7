// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_C_BORDER_H
#define VASK_C_BORDER_H

#include <cxxabi.h>

#include <utility>

// Prints the text of the exception that is being handled, and the callback that threw it.
void report_exception(const char* callback) noexcept;

// Makes a call on behalf of C, whose frames no exception may cross. If the call throws, the
// exception is reported under the callback's name, and the result is `failed`. The caller must not
// rely on any object after that: the callback may have deleted it before it threw.
template <typename Result, typename Call>
Result call_for_c(const char* callback, Result failed, Call&& call) {
    try {
        return std::forward<Call>(call)();
    } catch (const abi::__forced_unwind&) {
        throw;  // a cancelled thread unwinds by this, up to its start
    } catch (...) {
        report_exception(callback);
        return failed;
    }
}

// The same for a call without a result. False if the call has thrown.
template <typename Call>
bool call_for_c(const char* callback, Call&& call) {
    return call_for_c(callback, false, [&] {
        std::forward<Call>(call)();
        return true;
    });
}

#endif
