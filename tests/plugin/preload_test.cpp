// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Instances that are made ahead of time.

#include <glib.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <vector>

#include "recorded_plugin.h"
#include "support/interpose.h"
#include "vask_test/main_loop.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct scheduled_call {
    guint interval;
    GSourceFunc function;
    gpointer data;
    int pending_spawns;
};

/** Nobody else has timers in this program. */
recorded_factory* factory_of(gpointer data) {
    return static_cast<recorded_factory*>(static_cast<vask_np_factory*>(data));
}

std::vector<scheduled_call> scheduled;
int next_random = -1;

class preloading : public in_browser_with_plugin {
protected:
    void SetUp() override { scheduled.clear(); }

    void TearDown() override {
        for (NPP npp : opened) {
            browser.close(npp);
        }
        in_browser_with_plugin::TearDown();
    }

    recorded_instance* open() {
        opened.push_back(browser.open());
        return instance_of(opened.back());
    }

    bool wait_for_spawns() {
        return wait_until([this] { return factory.pending_spawns == 0; });
    }

    std::vector<NPP> opened;
};

class spawn_delay : public testing::Test {
protected:
    unsigned int with_random(int number) {
        next_random = number;
        return factory.calc_delayed_spawn_time();
    }

    vask_np_factory factory{"", "factory", "", ""};
};

}  // namespace

extern "C" guint g_timeout_add(guint interval, GSourceFunc function, gpointer data) {
    scheduled.push_back({interval, function, data, factory_of(data)->pending_spawns});
    return next_function<guint(guint, GSourceFunc, gpointer)>("g_timeout_add")(interval, function,
                                                                               data);
}

extern "C" int rand() noexcept {
    return next_random >= 0 ? next_random : next_function<int()>("rand")();
}

TEST_F(preloading, Is_off_at_first) {
    EXPECT_FALSE(open()->preloaded);
    EXPECT_EQ(factory.created, 1);
    EXPECT_THAT(scheduled, IsEmpty());
    EXPECT_EQ(factory.pending_spawns, 0);
}

TEST_F(preloading, Prepares_every_instance_once) {
    factory.set_preload(2);
    EXPECT_EQ(factory.preload_count, 2);
    ASSERT_EQ(factory.preload_queue.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(factory.queued(i)->preloaded);
        EXPECT_EQ(factory.queued(i)->preparations, 1);
        EXPECT_EQ(factory.queued(i)->npp, nullptr);
    }
    EXPECT_THAT(scheduled, IsEmpty());
}

TEST_F(preloading, Calls_an_instance_preloaded_once_it_is_prepared) {
    factory.set_preload(1);
    EXPECT_FALSE(factory.queued(0)->preloaded_at_preparation);
}

TEST_F(preloading, Hands_out_the_oldest_instance_first) {
    factory.set_preload(2);
    recorded_instance *first = factory.queued(0), *second = factory.queued(1);
    EXPECT_EQ(open(), first);
    EXPECT_EQ(open(), second);
    EXPECT_EQ(first->npp, opened[0]);
    EXPECT_EQ(factory.created, 2);
    EXPECT_TRUE(wait_for_spawns());
}

TEST_F(preloading, Gives_a_prepared_instance_the_attributes_of_its_element) {
    factory.set_preload(1);
    opened.push_back(browser.open({{"src", "a.html"}}));
    EXPECT_THAT(instance_of(opened[0])->properties, ElementsAre(testing::Pair("src", "a.html")));
    EXPECT_TRUE(wait_for_spawns());
}

TEST_F(preloading, Schedules_one_spawn_for_each_instance_taken_until_the_queue_is_full_again) {
    factory.set_preload(2);
    open();
    EXPECT_EQ(factory.preload_queue.size(), 1u);
    EXPECT_EQ(factory.pending_spawns, 1);
    EXPECT_EQ(scheduled.size(), 1u);

    open();
    EXPECT_EQ(factory.preload_queue.size(), 0u);
    EXPECT_EQ(factory.pending_spawns, 2);
    EXPECT_EQ(scheduled.size(), 2u);

    EXPECT_TRUE(wait_for_spawns());
    EXPECT_EQ(factory.preload_queue.size(), 2u);
    EXPECT_TRUE(factory.queued(0)->preloaded);
    EXPECT_EQ(factory.queued(0)->preparations, 1);
}

TEST_F(preloading, Counts_a_spawn_before_it_schedules_it) {
    factory.set_preload(1);
    open();
    EXPECT_EQ(factory.pending_spawns_at_delay, 1);
    ASSERT_EQ(scheduled.size(), 1u);
    EXPECT_EQ(scheduled[0].pending_spawns, 1);
    EXPECT_TRUE(wait_for_spawns());
}

TEST_F(preloading, Counts_a_spawn_until_its_instance_is_made) {
    factory.set_preload(1);
    open();
    EXPECT_TRUE(wait_for_spawns());
    EXPECT_EQ(factory.pending_spawns_at_creation, 1);
}

TEST_F(preloading, Makes_an_instance_directly_when_the_queue_is_empty) {
    factory.set_preload(1);
    open();
    EXPECT_EQ(factory.pending_spawns, 1);
    EXPECT_FALSE(open()->preloaded);
    EXPECT_EQ(factory.pending_spawns, 1);
    EXPECT_EQ(scheduled.size(), 1u);
    EXPECT_TRUE(wait_for_spawns());
}

TEST_F(preloading, Schedules_nothing_while_enough_instances_are_left) {
    factory.set_preload(1);
    factory.make_preload_instance();
    open();
    EXPECT_EQ(factory.preload_queue.size(), 1u);
    EXPECT_EQ(factory.pending_spawns, 0);
    EXPECT_THAT(scheduled, IsEmpty());
}

TEST_F(preloading, Schedules_one_spawn_at_a_time) {
    factory.set_preload(1);
    factory.preload_count = 3;
    open();
    EXPECT_EQ(factory.pending_spawns, 1);
    EXPECT_TRUE(wait_for_spawns());
    EXPECT_EQ(factory.preload_queue.size(), 1u);
}

TEST_F(preloading, Adds_to_what_is_queued) {
    factory.set_preload(2);
    factory.set_preload(1);
    EXPECT_EQ(factory.preload_count, 1);
    EXPECT_EQ(factory.preload_queue.size(), 3u);
}

TEST_F(preloading, Makes_nothing_for_a_count_of_zero_or_less) {
    factory.set_preload(0);
    EXPECT_EQ(factory.created, 0);
    factory.set_preload(-1);
    EXPECT_EQ(factory.preload_count, -1);
    EXPECT_EQ(factory.created, 0);
}

TEST_F(preloading, Stops_when_the_count_becomes_zero) {
    factory.set_preload(1);
    factory.set_preload(0);
    EXPECT_TRUE(open()->preloaded);
    EXPECT_THAT(scheduled, IsEmpty());
}

TEST_F(preloading, Waits_as_long_as_the_factory_says) {
    factory.spawns_at_once = false;
    next_random = 0;
    factory.set_preload(1);
    open();
    ASSERT_EQ(scheduled.size(), 1u);
    EXPECT_EQ(scheduled[0].interval, 2000u);
    EXPECT_EQ(scheduled[0].function, &vask_np_factory::_delayed_spawn_preload_instance);
    EXPECT_EQ(scheduled[0].data, static_cast<vask_np_factory*>(&factory));
    EXPECT_TRUE(g_source_remove_by_user_data(scheduled[0].data));
}

TEST_F(preloading, Spawns_once_by_a_timer_that_ends) {
    factory.pending_spawns = 1;
    EXPECT_EQ(
        vask_np_factory::_delayed_spawn_preload_instance(static_cast<vask_np_factory*>(&factory)),
        FALSE);
    EXPECT_EQ(factory.preload_queue.size(), 1u);
    EXPECT_EQ(factory.pending_spawns, 0);
}

namespace {

/** Throws where it makes, prepares or schedules an instance, as often as it is told. */
class failing_factory : public recorded_factory {
public:
    class failing_instance : public recorded_instance {
    public:
        explicit failing_instance(failing_factory& factory)
            : recorded_instance(plugin_object_name), m_factory(factory) {}

        void init_preload() override { m_factory.fail(m_factory.failing_preparations); }

    private:
        failing_factory& m_factory;
    };

    vask_np_instance* create_instance() override {
        ++attempts;
        fail(failing_creations);
        if (nulls-- > 0) {
            return nullptr;
        }
        return new failing_instance(*this);
    }

    unsigned int calc_delayed_spawn_time() override {
        fail(failing_delays);
        return recorded_factory::calc_delayed_spawn_time();
    }

    static void fail(int& times) {
        if (times-- > 0) {
            throw std::runtime_error("no child");
        }
    }

    int attempts = 0;
    int failing_creations = 0;
    int failing_preparations = 0;
    int failing_delays = 0;
    int nulls = 0;
};

class failing_preloading : public preloading {
protected:
    void SetUp() override {
        preloading::SetUp();
        browser.load(plugin_functions(&failing));
        failing.set_preload(1);
        failing.attempts = 0;
    }

    void TearDown() override {
        for (NPP npp : opened) {
            browser.close(npp);
        }
        opened.clear();
        failing.delete_queue();
        preloading::TearDown();
    }

    bool wait_for_instance() {
        return wait_until([this] { return failing.preload_queue.size() == 1; });
    }

    static log_line reported(const char* what) {
        return line("ERR", "vask",
                    std::string("vask_np_factory::delayed_spawn_preload_instance(): An exception "
                                "was thrown: ") +
                        what);
    }

    failing_factory failing;
};

}  // namespace

TEST_F(failing_preloading, Tries_again_when_an_instance_cannot_be_made) {
    failing.failing_creations = 2;
    open();
    EXPECT_TRUE(wait_for_instance());
    EXPECT_EQ(failing.attempts, 3);
    EXPECT_EQ(failing.pending_spawns, 0);
    EXPECT_EQ(scheduled.size(), 1u);
    EXPECT_THAT(log.lines(), ElementsAre(reported("no child"), reported("no child")));
}

TEST_F(failing_preloading, Deletes_an_instance_that_cannot_be_prepared_and_makes_another) {
    failing.failing_preparations = 1;
    open();
    EXPECT_TRUE(wait_for_instance());
    EXPECT_EQ(failing.attempts, 2);
    EXPECT_EQ(recorded_instance::alive, 2);
    EXPECT_EQ(failing.pending_spawns, 0);
    EXPECT_THAT(log.lines(), ElementsAre(reported("no child")));
}

TEST_F(failing_preloading, Tries_again_when_there_is_no_memory_for_an_instance) {
    failing.nulls = 1;
    open();
    EXPECT_TRUE(wait_for_instance());
    EXPECT_THAT(log.lines(), ElementsAre(reported("std::bad_alloc")));
}

TEST_F(failing_preloading, Hands_out_the_same_instance_after_a_delay_that_could_not_be_found) {
    recorded_instance* const ready = failing.queued(0);
    failing.failing_delays = 1;
    EXPECT_THROW(failing.get_preload_instance(), std::runtime_error);
    EXPECT_EQ(failing.pending_spawns, 0);
    EXPECT_EQ(open(), ready);
    EXPECT_EQ(failing.pending_spawns, 1);
    EXPECT_TRUE(wait_for_instance());
}

TEST_F(preloading, Leaves_what_is_queued_when_the_factory_ends) {
    recorded_instance* queued = nullptr;
    {
        recorded_factory short_lived;
        short_lived.set_preload(1);
        queued = short_lived.queued(0);
    }
    EXPECT_EQ(recorded_instance::alive, 1);
    delete queued;
}

TEST_F(preloading, Leaves_a_scheduled_spawn_when_the_factory_ends) {
    std::unique_ptr<vask_np_instance> taken;
    {
        recorded_factory short_lived;
        short_lived.spawns_at_once = false;
        short_lived.set_preload(1);
        taken.reset(short_lived.get_preload_instance());
    }
    ASSERT_EQ(scheduled.size(), 1u);
    EXPECT_TRUE(g_source_remove_by_user_data(scheduled[0].data));
}

TEST_F(spawn_delay, Is_two_seconds_at_least) {
    EXPECT_EQ(with_random(0), 2000u);
}

TEST_F(spawn_delay, Is_four_seconds_at_most) {
    EXPECT_EQ(with_random(RAND_MAX), 4000u);
}

TEST_F(spawn_delay, Is_three_seconds_in_the_middle) {
    EXPECT_NEAR(with_random(RAND_MAX / 2), 3000, 1);
}

TEST_F(spawn_delay, Is_cut_to_whole_milliseconds) {
    // 2000 milliseconds and 0.9 of one.
    EXPECT_EQ(with_random(966367), 2000u);
}
