// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "vask_exec.h"
#include "vask_object.h"
#include "vask_test/main_loop.h"
#include "vask_test/resource_count.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int data_a, data_b, data_c;

/** Notes each call's argument, and then does what the test wants. */
class noting : public vask_exec {
public:
    using vask_exec::exec_list;

    void note(void* data) {
        calls.push_back(data);
        queue_length_inside = exec_list.size();
        if (then) {
            then();
        }
    }

    virtual void greet(void*) { greetings.push_back("base"); }

    void add(void* data, vask_exec* target = nullptr) {
        add_idle_exec_func(static_cast<vask_exec_func>(&noting::note), data, target);
    }

    std::vector<void*> calls;
    std::vector<std::string> greetings;
    size_t queue_length_inside = 0;
    std::function<void()> then;
};

class overriding : public noting {
public:
    void greet(void*) override { greetings.push_back("override"); }
};

struct other_base {
    virtual ~other_base() = default;
    int filler = 0;
};

/** Its vask_exec is not where the object begins. */
class second_base : public other_base, public noting {
public:
    void own(void* data) {
        argument = data;
        self = this;
    }

    void* argument = nullptr;
    second_base* self = nullptr;
};

size_t idle_sources() {
    return resource_count::take().sources.size();
}

bool dispatch_once() {
    return g_main_context_iteration(nullptr, FALSE);
}

}  // namespace

TEST(exec_idle, Calls_run_in_the_order_in_which_they_were_added) {
    noting object;
    object.add(&data_a);
    object.add(&data_b);
    object.add(&data_c);

    drain_main_loop();

    EXPECT_THAT(object.calls, ElementsAre(&data_a, &data_b, &data_c));
}

TEST(exec_idle, Each_dispatch_runs_one_call) {
    noting object;
    object.add(&data_a);
    object.add(&data_b);
    object.add(&data_c);
    for (size_t dispatches = 1; dispatches <= 3; ++dispatches) {
        dispatch_once();
        EXPECT_EQ(object.calls.size(), dispatches);
    }
}

TEST(exec_idle, Several_calls_share_one_source) {
    noting object;
    const size_t before = idle_sources();
    object.add(&data_a);
    object.add(&data_b);
    object.add(&data_c);
    EXPECT_EQ(idle_sources(), before + 1);
    drain_main_loop();
}

TEST(exec_idle, Nothing_runs_while_it_is_added) {
    noting object;
    object.add(&data_a);
    EXPECT_THAT(object.calls, IsEmpty());
    drain_main_loop();
}

TEST(exec_idle, The_source_ends_with_the_last_call) {
    noting object;
    const size_t before = idle_sources();
    object.add(&data_a);
    object.add(&data_b);
    dispatch_once();
    EXPECT_EQ(idle_sources(), before + 1);
    dispatch_once();
    EXPECT_EQ(idle_sources(), before);
}

TEST(exec_idle, A_drained_queue_starts_anew) {
    noting object;
    object.add(&data_a);
    drain_main_loop();
    object.add(&data_b);
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_a, &data_b));
}

TEST(exec_idle, The_call_that_runs_is_still_in_the_queue) {
    noting object;
    object.add(&data_a);
    drain_main_loop();
    EXPECT_EQ(object.queue_length_inside, 1u);
    EXPECT_THAT(object.exec_list, IsEmpty());
}

TEST(exec_idle, A_call_added_by_a_call_runs_in_a_later_dispatch_of_the_same_source) {
    noting object;
    const size_t before = idle_sources();
    object.then = [&object] {
        if (object.calls.size() == 1) {
            object.add(&data_b);
        }
    };
    object.add(&data_a);

    dispatch_once();
    EXPECT_THAT(object.calls, ElementsAre(&data_a));
    EXPECT_EQ(idle_sources(), before + 1);
    dispatch_once();

    EXPECT_THAT(object.calls, ElementsAre(&data_a, &data_b));
    EXPECT_EQ(idle_sources(), before);
}

TEST(exec_idle, Other_sources_are_served_between_two_calls) {
    static noting object;
    static std::vector<size_t> calls_seen;
    const guint other = g_idle_add(
        [](gpointer) -> gboolean {
            calls_seen.push_back(object.calls.size());
            return G_SOURCE_CONTINUE;
        },
        nullptr);
    object.add(&data_a);
    object.add(&data_b);

    EXPECT_TRUE(wait_until([] { return object.calls.size() == 2; }));

    g_source_remove(other);
    EXPECT_THAT(calls_seen, testing::Contains(1u));
}

TEST(exec_idle, Timers_come_before_idle_calls) {
    noting object;
    object.add(&data_a);
    object.add_timer_exec_func(0, static_cast<vask_exec_func>(&noting::note), &data_b);
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_b, &data_a));
}

TEST(exec_idle, A_call_of_another_object_is_made_on_that_object) {
    noting caller, target;
    caller.add(&data_a, &target);
    drain_main_loop();
    EXPECT_THAT(caller.calls, IsEmpty());
    EXPECT_THAT(target.calls, ElementsAre(&data_a));
}

TEST(exec_idle, The_list_of_the_caller_decides_whether_a_source_is_started_for_another_object) {
    noting busy_caller, target;
    busy_caller.add(&data_a);
    const size_t before = idle_sources();
    busy_caller.add(&data_b, &target);
    EXPECT_EQ(idle_sources(), before);

    drain_main_loop();
    EXPECT_THAT(target.calls, IsEmpty());

    // The source that this call starts serves both.
    noting idle_caller;
    idle_caller.add(&data_c, &target);
    drain_main_loop();
    EXPECT_THAT(target.calls, ElementsAre(&data_b, &data_c));
}

TEST(exec_idle, A_dispatch_that_finds_nothing_ends_its_source) {
    noting target;
    const guint superfluous = g_idle_add(vask_exec::_idle_callback, &target);
    EXPECT_NE(g_main_context_find_source_by_id(nullptr, superfluous), nullptr);
    drain_main_loop();
    EXPECT_EQ(g_main_context_find_source_by_id(nullptr, superfluous), nullptr);
}

TEST(exec_idle, Two_sources_of_one_queue_make_each_call_once) {
    noting first_caller, second_caller, target;
    const size_t before = idle_sources();
    first_caller.add(&data_a, &target);
    second_caller.add(&data_b, &target);
    EXPECT_EQ(idle_sources(), before + 2);

    drain_main_loop();

    EXPECT_THAT(target.calls, ElementsAre(&data_a, &data_b));
    EXPECT_EQ(idle_sources(), before);
}

TEST(exec_idle, A_call_of_an_empty_queue_does_nothing) {
    noting object;
    EXPECT_FALSE(object.idle_callback());
    EXPECT_THAT(object.calls, IsEmpty());
}

TEST(exec_idle, A_second_source_that_is_dispatched_inside_a_call_does_not_run_it_again) {
    noting first_caller, second_caller, target;
    first_caller.add(&data_a, &target);
    second_caller.add(&data_b, &target);
    bool nested = false;
    target.then = [&nested] {
        if (!nested) {
            nested = true;
            drain_main_loop();
        }
    };

    drain_main_loop();

    EXPECT_THAT(target.calls, ElementsAre(&data_a, &data_b));
}

TEST(exec_idle, The_result_tells_whether_calls_remain) {
    noting object;
    object.add(&data_a);
    object.add(&data_b);
    EXPECT_TRUE(object.idle_callback());
    EXPECT_FALSE(object.idle_callback());
    drain_main_loop();
}

TEST(exec_idle, A_virtual_function_runs_in_the_override_of_the_target) {
    overriding object;
    object.add_idle_exec_func(static_cast<vask_exec_func>(&noting::greet), nullptr);
    drain_main_loop();
    EXPECT_THAT(object.greetings, ElementsAre("override"));
}

TEST(exec_idle, A_member_of_a_class_with_another_base_finds_its_object) {
    second_base object;
    object.add_idle_exec_func(static_cast<vask_exec_func>(&second_base::own), &data_a);
    drain_main_loop();
    EXPECT_EQ(object.self, &object);
    EXPECT_EQ(object.argument, &data_a);
}

TEST(exec_idle, The_dispatch_goes_to_an_overridden_idle_callback) {
    class counting : public noting {
    public:
        bool idle_callback() override {
            ++dispatches;
            return noting::idle_callback();
        }
        int dispatches = 0;
    };
    counting object;
    object.add(&data_a);
    object.add(&data_b);
    drain_main_loop();
    EXPECT_EQ(object.dispatches, 2);
}

TEST(exec_idle, The_end_of_an_object_forgets_its_calls_without_making_them) {
    std::vector<std::string> calls;
    auto object = std::make_unique<noting>();
    object->then = [&calls] { calls.push_back("called"); };
    object->exec_list.push_back({static_cast<vask_exec_func>(&noting::note), &data_a});
    object.reset();
    drain_main_loop();
    EXPECT_THAT(calls, IsEmpty());
}

TEST(exec_idle, The_end_of_an_object_leaves_its_source_to_the_main_loop) {
    auto object = std::make_unique<noting>();
    noting* const former = object.get();
    object->add(&data_a);
    object.reset();
    EXPECT_TRUE(g_source_remove_by_user_data(static_cast<vask_exec*>(former)));
}

TEST(exec_idle, An_exec_is_no_base_object) {
    EXPECT_FALSE((std::is_base_of<vask_object, vask_exec>::value));
}
