// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What a tool initialises: the calls are counted here and go on to the libraries.

#include <dbus/dbus-glib.h>
#include <glib-object.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/interpose.h"
#include "vask_child_cmd.h"

using namespace vask_test;

namespace {

int type_system_initialisations = 0;
int thread_initialisations = 0;

class tool_initialisation : public testing::Test {
protected:
    void SetUp() override {
        type_system_initialisations = 0;
        thread_initialisations = 0;
    }
};

}  // namespace

extern "C" void g_type_init() {
    static const auto next = next_function<void()>("g_type_init");
    ++type_system_initialisations;
    next();
}

extern "C" void dbus_g_thread_init() {
    static const auto next = next_function<void()>("dbus_g_thread_init");
    ++thread_initialisations;
    next();
}

TEST_F(tool_initialisation, Is_done_by_the_tool) {
    const vask_child_cmd tool("tool", "program", "1", false);
    EXPECT_EQ(type_system_initialisations, 1);
    EXPECT_EQ(thread_initialisations, 1);
}

TEST_F(tool_initialisation, Is_left_out_on_request) {
    const vask_child_cmd tool("tool", "program", "1", true);
    EXPECT_EQ(type_system_initialisations, 0);
    EXPECT_EQ(thread_initialisations, 0);
}

TEST_F(tool_initialisation, Is_not_the_business_of_a_bare_controller) {
    const vask_child_cmd_base controller("controller", "program");
    EXPECT_EQ(type_system_initialisations, 0);
    EXPECT_EQ(thread_initialisations, 0);
}
