#ifndef VASK_C_BORDER_H
#define VASK_C_BORDER_H

#include <cxxabi.h>

#include <utility>

// Prints what the exception that is being handled says, and whose it is.
void report_exception(const char* callback) noexcept;

// Makes a call for C, whose frames no exception may cross: one that is thrown is reported under the
// name of the callback, and the call has given `failed`. The caller must not rely on any object
// after that: the callback may have deleted it before it threw.
template <typename Result, typename Call>
Result call_for_c(const char* callback, Result failed, Call&& call) {
    try {
        return std::forward<Call>(call)();
    } catch (const abi::__forced_unwind&) {
        throw;  // the end of a thread that is cancelled is no exception of anybody's
    } catch (...) {
        report_exception(callback);
        return failed;
    }
}

// The same for a call without a result; false when it has thrown.
template <typename Call>
bool call_for_c(const char* callback, Call&& call) {
    return call_for_c(callback, false, [&] {
        std::forward<Call>(call)();
        return true;
    });
}

#endif
