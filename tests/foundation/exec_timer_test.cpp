// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/interpose.h"
#include "vask_exec.h"
#include "vask_test/main_loop.h"
#include "vask_test/resource_count.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

int data_a, data_b;

class noting : public vask_exec {
public:
    void note(void* data) {
        calls.push_back(data);
        if (then) {
            then();
        }
    }

    virtual void greet(void*) { greetings.push_back("base"); }

    guint add(int interval_msec, void* data, vask_exec* target = nullptr) {
        return add_timer_exec_func(interval_msec, static_cast<vask_exec_func>(&noting::note), data,
                                   target);
    }

    std::vector<void*> calls;
    std::vector<std::string> greetings;
    std::function<void()> then;
};

class overriding : public noting {
public:
    void greet(void*) override { greetings.push_back("override"); }
};

/** The records of timers that GLib has not freed yet, and what frees them. */
std::map<gpointer, GDestroyNotify> unfreed_records;

void free_record(gpointer record) {
    const GDestroyNotify notification = unfreed_records.at(record);
    unfreed_records.erase(record);
    notification(record);
}

bool is_attached(guint id) {
    return g_main_context_find_source_by_id(nullptr, id) != nullptr;
}

}  // namespace

extern "C" guint g_timeout_add_full(gint priority, guint interval, GSourceFunc function,
                                    gpointer data, GDestroyNotify notification) {
    const bool is_timer = function == vask_exec::_timer_callback && notification;
    if (is_timer) {
        unfreed_records[data] = notification;
    }
    return next_function<guint(gint, guint, GSourceFunc, gpointer, GDestroyNotify)>(
        "g_timeout_add_full")(priority, interval, function, data,
                              is_timer ? free_record : notification);
}

TEST(exec_timer, With_0_milliseconds_runs_once_at_the_next_dispatch) {
    noting object;
    object.add(0, &data_a);
    g_main_context_iteration(nullptr, FALSE);
    EXPECT_THAT(object.calls, ElementsAre(&data_a));
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_a));
}

TEST(exec_timer, A_negative_interval_counts_as_0) {
    noting object;
    object.add(-1, &data_a);
    g_main_context_iteration(nullptr, FALSE);
    EXPECT_THAT(object.calls, ElementsAre(&data_a));
}

TEST(exec_timer, Runs_after_its_milliseconds_and_not_before) {
    noting object;
    const gint64 start = g_get_monotonic_time();
    object.add(30, &data_a);
    EXPECT_TRUE(wait_until([&] { return !object.calls.empty(); }));
    EXPECT_GE(g_get_monotonic_time() - start, 30 * 1000);
}

TEST(exec_timer, The_longest_interval_does_not_overflow) {
    noting object;
    const guint id = object.add(G_MAXINT, &data_a);
    GSource* source = g_main_context_find_source_by_id(nullptr, id);
    EXPECT_GT(g_source_get_ready_time(source) - g_get_monotonic_time(),
              (gint64{G_MAXINT} - 60000) * 1000);
    drain_main_loop();
    EXPECT_THAT(object.calls, IsEmpty());
    g_source_remove(id);
}

TEST(exec_timer, Its_source_ends_when_it_has_run) {
    noting object;
    const guint id = object.add(0, &data_a);
    EXPECT_TRUE(is_attached(id));
    drain_main_loop();
    EXPECT_FALSE(is_attached(id));
}

TEST(exec_timer, Has_default_priority) {
    noting object;
    const guint id = object.add(0, &data_a);
    EXPECT_EQ(g_source_get_priority(g_main_context_find_source_by_id(nullptr, id)),
              G_PRIORITY_DEFAULT);
    drain_main_loop();
}

TEST(exec_timer, Timers_of_one_object_run_by_their_time) {
    noting object;
    object.add(40, &data_a);
    object.add(1, &data_b);
    EXPECT_TRUE(wait_until([&] { return object.calls.size() == 2; }));
    EXPECT_THAT(object.calls, ElementsAre(&data_b, &data_a));
}

TEST(exec_timer, Removed_before_it_fires_it_never_runs) {
    noting object;
    EXPECT_TRUE(g_source_remove(object.add(0, &data_a)));
    drain_main_loop();
    EXPECT_THAT(object.calls, IsEmpty());
}

TEST(exec_timer, Leaves_the_freeing_of_its_record_to_the_notification_for_that) {
    noting object;
    object.add(0, &data_a);
    EXPECT_THAT(unfreed_records, ElementsAre(Pair(testing::_, delete_vask_exec_info)));
    drain_main_loop();
}

TEST(exec_timer, Removed_before_it_fires_its_record_is_freed) {
    noting object;
    const guint id = object.add(0, &data_a);
    EXPECT_THAT(unfreed_records, SizeIs(1));
    g_source_remove(id);
    EXPECT_THAT(unfreed_records, IsEmpty());
}

TEST(exec_timer, Frees_its_record_when_it_has_run) {
    noting object;
    object.then = [] { EXPECT_THAT(unfreed_records, SizeIs(1)); };
    object.add(0, &data_a);
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_a));
    EXPECT_THAT(unfreed_records, IsEmpty());
}

TEST(exec_timer, May_remove_itself_while_it_runs) {
    noting object;
    guint id = 0;
    object.then = [&id] { EXPECT_TRUE(g_source_remove(id)); };
    id = object.add(0, &data_a);
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_a));
}

TEST(exec_timer, May_start_another_one) {
    noting object;
    object.then = [&object] {
        if (object.calls.size() == 1) {
            object.add(0, &data_b);
        }
    };
    object.add(0, &data_a);
    EXPECT_TRUE(wait_until([&] { return object.calls.size() == 2; }));
    EXPECT_THAT(object.calls, ElementsAre(&data_a, &data_b));
}

TEST(exec_timer, May_delete_its_object) {
    auto* object = new noting;
    bool called = false;
    object->then = [&called, object] {
        called = true;
        delete object;
    };
    object->add(0, &data_a);
    drain_main_loop();
    EXPECT_TRUE(called);
}

TEST(exec_timer, Of_another_object_runs_on_that_object) {
    noting caller, target;
    caller.add(0, &data_a, &target);
    drain_main_loop();
    EXPECT_THAT(caller.calls, IsEmpty());
    EXPECT_THAT(target.calls, ElementsAre(&data_a));
}

TEST(exec_timer, A_virtual_function_runs_in_the_override_of_the_target) {
    overriding object;
    object.add_timer_exec_func(0, static_cast<vask_exec_func>(&noting::greet), nullptr);
    drain_main_loop();
    EXPECT_THAT(object.greetings, ElementsAre("override"));
}

TEST(exec_timer, The_callback_of_GLib_makes_the_call_and_ends_the_timer) {
    noting object;
    vask_obj_exec_info info = {static_cast<vask_exec_func>(&noting::note), &data_a, &object};
    EXPECT_EQ(vask_exec::_timer_callback(&info), 0);
    EXPECT_THAT(object.calls, ElementsAre(&data_a));
}

// The leak check of the sanitizers shows that the memory is given back.
TEST(exec_timer, Its_record_is_freed_by_the_destroy_notification) {
    delete_vask_exec_info(new vask_obj_exec_info());
}
