// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/main_loop.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <stdlib.h>

using namespace vask_test;

namespace {

gboolean set_flag(gpointer flag) {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
}

gboolean stay_pending(gpointer) {
    return G_SOURCE_CONTINUE;
}

}  // namespace

TEST(wait_until, Dispatches_until_the_condition_holds) {
    bool flag = false;
    g_timeout_add(20, set_flag, &flag);
    EXPECT_TRUE(wait_until([&flag] { return flag; }));
}

TEST(wait_until, Notices_what_happens_outside_of_the_loop) {
    int calls = 0;
    EXPECT_TRUE(wait_until([&calls] { return ++calls == 3; }));
}

TEST(wait_until, Gives_up_at_the_deadline) {
    EXPECT_FALSE(wait_until([] { return false; }, 20));
}

TEST(wait_until, Stretches_the_deadline_by_the_factor) {
    const char* factor = getenv("VASK_TEST_TIMEOUT_FACTOR");
    const std::string saved = factor ? factor : "1";
    setenv("VASK_TEST_TIMEOUT_FACTOR", "20", 1);
    const gint64 begin = g_get_monotonic_time();
    EXPECT_FALSE(wait_until([] { return false; }, 10));
    EXPECT_GE(g_get_monotonic_time() - begin, 200 * 1000);
    setenv("VASK_TEST_TIMEOUT_FACTOR", saved.c_str(), 1);
}

TEST(wait_until_without_loop, Dispatches_nothing) {
    bool flag = false;
    const guint id = g_idle_add(set_flag, &flag);
    int calls = 0;
    EXPECT_TRUE(wait_until_without_loop([&calls] { return ++calls == 3; }));
    EXPECT_FALSE(wait_until_without_loop([&flag] { return flag; }, 20));
    g_source_remove(id);
}

TEST(drain_main_loop, Dispatches_only_what_is_pending) {
    bool now = false;
    bool later = false;
    g_idle_add(set_flag, &now);
    const guint id = g_timeout_add_seconds(1000, set_flag, &later);
    drain_main_loop();
    EXPECT_TRUE(now);
    EXPECT_FALSE(later);
    g_source_remove(id);
}

TEST(drain_main_loop, Ends_although_a_source_stays_pending) {
    const guint id = g_idle_add(stay_pending, nullptr);
    drain_main_loop();
    g_source_remove(id);
}
