// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "leftovers.h"

#include <cstdio>

namespace vask_test {

namespace {

const char* singular_of(leftover_kind kind) {
    switch (kind) {
        case leftover_kind::process:
            return "process";
        case leftover_kind::descriptor:
            return "descriptor";
        case leftover_kind::shared_object:
            return "shared object";
        case leftover_kind::semaphore:
            return "semaphore";
        case leftover_kind::bus_name:
            return "bus name";
    }
    return "";
}

}  // namespace

void complain(const std::string& text) {
    std::fprintf(stderr, "vask-sealed: %s\n", text.c_str());
}

void leftovers::add(leftover_kind kind, const std::string& name, const std::string& description) {
    if (!m_wanted.may_be_left(kind, name)) {
        ++m_counts[kind];
        complain(std::string(singular_of(kind)) + " left behind: " + description);
    }
}

void leftovers::sum_up() const {
    std::string text;
    for (const auto& count : m_counts) {
        text += (text.empty() ? "" : ", ") + std::string(plural_of(count.first)) + ": " +
                std::to_string(count.second);
    }
    if (!text.empty()) {
        complain("left behind: " + text);
    }
}

}  // namespace vask_test
