// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "leak_listener.h"

namespace vask_test {

namespace {

bool leftovers_accepted = false;

}  // namespace

void leak_listener::OnTestStart(const testing::TestInfo&) {
    leftovers_accepted = false;
    m_before = resource_count::take();
}

void leak_listener::OnTestEnd(const testing::TestInfo&) {
    if (leftovers_accepted) {
        return;
    }
    const std::string difference = m_before.difference(resource_count::take());
    if (!difference.empty()) {
        ADD_FAILURE() << "resources changed:\n" << difference;
    }
}

void leak_listener::accept_leftovers() {
    leftovers_accepted = true;
}

}  // namespace vask_test
