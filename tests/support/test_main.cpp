// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "leak_listener.h"
#include "log_catcher.h"
#include "resource_count.h"
#include "skip_list.h"

namespace {

class before_printer : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult&) override {
        vask_test::log_catcher::suspend();
    }
};

class after_printer : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult&) override {
        vask_test::log_catcher::resume();
    }
};

void add_listeners() {
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    testing::TestEventListener* printer = listeners.Release(listeners.default_result_printer());
    listeners.Append(new before_printer);
    listeners.Append(printer);
    listeners.Append(new after_printer);
    listeners.Append(new vask_test::leak_listener);
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    if (!GTEST_FLAG_GET(list_tests)) {
        vask_test::skip_listed_tests();
        add_listeners();
        vask_test::warm_up_process_resources();
    }
    return RUN_ALL_TESTS();
}
