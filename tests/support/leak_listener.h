// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LEAK_LISTENER_H
#define VASK_TEST_LEAK_LISTENER_H

#include <gtest/gtest.h>

#include "resource_count.h"

namespace vask_test {

/** Fails every test after which the process holds other resources than before. */
class leak_listener : public testing::EmptyTestEventListener {
public:
    void OnTestStart(const testing::TestInfo& info) override;
    void OnTestEnd(const testing::TestInfo& info) override;

    /** For the running test only. */
    static void accept_leftovers();

private:
    resource_count m_before;
};

}  // namespace vask_test

#endif
