// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/c_border.h"

#include <exception>

#include "vask_object.h"

namespace {

void print(const char* callback, const char* what) {
    vask_object::vask_p("vask", VASK_P_ERR, "%s: An exception was thrown: %s\n", callback, what);
}

}  // namespace

void report_exception(const char* callback) noexcept {
    try {
        throw;
    } catch (const std::exception& exception) {
        print(callback, exception.what());
    } catch (...) {
        print(callback, "unknown");
    }
}
