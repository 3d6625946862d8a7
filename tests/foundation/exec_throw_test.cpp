// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Deferred calls that throw.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <vector>

#include "vask_exec.h"
#include "vask_test/googletest.h"
#include "vask_test/main_loop.h"
#include "vask_test/resource_count.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int data_a, data_b, data_c;

/** Notes each call's argument, and throws for one of them. */
class throwing : public vask_exec {
public:
    using vask_exec::exec_list;

    explicit throwing(void* bad) : m_bad(bad) {}

    void note(void* data) {
        calls.push_back(data);
        if (data == m_bad) {
            if (before) {
                // The object may be gone in the middle of it.
                const std::function<void()> action = before;
                action();
            }
            throw std::runtime_error("no paper");
        }
    }

    void add(void* data) { add_idle_exec_func(static_cast<vask_exec_func>(&throwing::note), data); }
    unsigned int add_timer(void* data) {
        return add_timer_exec_func(0, static_cast<vask_exec_func>(&throwing::note), data);
    }

    std::vector<void*> calls;
    std::function<void()> before;

private:
    void* m_bad;
};

testing::Matcher<const log_line&> thrown_from(const std::string& callback) {
    return logged("ERR", "vask", callback + ": An exception was thrown: no paper");
}

constexpr char idle[] = "vask_exec::idle_callback()";
constexpr char timer[] = "vask_exec::_timer_callback()";

size_t sources() {
    return resource_count::take().sources.size();
}

}  // namespace

TEST(exec_throw, An_idle_call_that_throws_is_reported_and_the_rest_run) {
    throwing object(&data_a);
    const size_t before = sources();
    log_catcher log;
    object.add(&data_a);
    object.add(&data_b);
    object.add(&data_c);
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_a, &data_b, &data_c));
    EXPECT_THAT(object.exec_list, IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(idle)));
    EXPECT_EQ(sources(), before);
}

TEST(exec_throw, After_an_idle_call_that_throws_further_ones_can_be_added) {
    throwing object(&data_a);
    log_catcher log;
    object.add(&data_a);
    drain_main_loop();
    object.add(&data_b);
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_a, &data_b));
}

TEST(exec_throw, An_idle_call_may_delete_its_object_before) {
    auto* object = new throwing(&data_a);
    object->before = [object] { delete object; };
    const size_t before = sources();
    log_catcher log;
    object->add(&data_a);
    drain_main_loop();
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(idle)));
    EXPECT_EQ(sources(), before);
}

TEST(exec_throw, An_override_of_idle_callback_that_throws_loses_one_call) {
    class overriding : public throwing {
    public:
        overriding() : throwing(nullptr) {}
        bool idle_callback() override {
            if (++dispatches == 1) {
                throw std::runtime_error("no paper");
            }
            return throwing::idle_callback();
        }
        int dispatches = 0;
    };
    overriding object;
    log_catcher log;
    object.add(&data_a);
    object.add(&data_b);
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_b));
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(idle)));
}

TEST(exec_throw, An_override_of_idle_callback_that_always_throws_does_not_keep_the_loop_busy) {
    class overriding : public throwing {
    public:
        overriding() : throwing(nullptr) {}
        bool idle_callback() override { throw std::runtime_error("no paper"); }
    };
    overriding object;
    const auto before = sources();
    log_catcher log;
    object.add(&data_a);
    object.add(&data_b);
    drain_main_loop();
    EXPECT_THAT(object.exec_list, IsEmpty());
    EXPECT_EQ(sources(), before);
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(idle), thrown_from(idle)));
}

TEST(exec_throw, What_an_idle_call_throws_reaches_an_application_that_dispatches_it_itself) {
    throwing object(&data_a);
    log_catcher log;
    object.add(&data_a);
    object.add(&data_b);
    EXPECT_THROW(object.idle_callback(), std::runtime_error);
    EXPECT_FALSE(object.idle_callback());
    EXPECT_THAT(object.calls, ElementsAre(&data_a, &data_b));
    EXPECT_THAT(log.lines(), IsEmpty());
    drain_main_loop();
}

TEST(exec_throw, A_timer_that_throws_is_reported_and_the_others_run) {
    throwing object(&data_a);
    const size_t before = sources();
    log_catcher log;
    object.add_timer(&data_a);
    object.add_timer(&data_b);
    drain_main_loop();
    EXPECT_THAT(object.calls, ElementsAre(&data_a, &data_b));
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(timer)));
    EXPECT_EQ(sources(), before);
}

TEST(exec_throw, A_timer_may_delete_its_object_before) {
    auto* object = new throwing(&data_a);
    object->before = [object] { delete object; };
    log_catcher log;
    object->add_timer(&data_a);
    drain_main_loop();
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(timer)));
}

TEST(exec_throw, A_timer_may_take_itself_back_before) {
    throwing object(&data_a);
    log_catcher log;
    const unsigned int id = object.add_timer(&data_a);
    object.before = [id] { g_source_remove(id); };
    drain_main_loop();
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(timer)));
}
