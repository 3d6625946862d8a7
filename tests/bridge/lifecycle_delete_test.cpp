#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <memory>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

using bridge_destructor = lifecycle_fixture;
using bridge_deleted_in_callback = lifecycle_fixture;

namespace {

/** What a subclass is told, kept outside of it because it may be gone. */
struct story {
    std::vector<child_end> ends;
    int requests = 0;
    bool deleted = false;
};

class told_bridge : public vask_app_bridge {
public:
    explicit told_bridge(story* told) : vask_app_bridge("bridge", true), m_story(told) {}
    ~told_bridge() override { m_story->deleted = true; }

    void child_exit_cb(bool is_main) override { m_story->ends.push_back({false, is_main}); }
    void child_crash_cb(bool is_main) override { m_story->ends.push_back({true, is_main}); }
    void terminate_worker_impl() override {
        ++m_story->requests;
        vask_app_bridge::terminate_worker_impl();
    }

    using vask_app_bridge::m_child_proxy;

protected:
    story* const m_story;
};

class suicidal_bridge : public told_bridge {
public:
    using told_bridge::told_bridge;

    void child_exit_cb(bool is_main) override {
        told_bridge::child_exit_cb(is_main);
        delete this;
    }
    void child_crash_cb(bool is_main) override {
        told_bridge::child_crash_cb(is_main);
        delete this;
    }
};

}  // namespace

TEST_F(bridge_destructor, Ends_the_child_and_blocks_until_it_is_gone) {
    auto bridge = std::make_unique<recording_bridge>(true);
    spawn_probe(*bridge, {"slow", "200"});
    ASSERT_TRUE(wait_until_ready());
    const int pid = bridge->get_child_pid();
    const double start = vask_object::vask_gettime(VASK_TIME_MSEC);
    bridge.reset();
    EXPECT_GE(vask_object::vask_gettime(VASK_TIME_MSEC) - start, 200);
    EXPECT_TRUE(is_gone(pid));
}

TEST_F(bridge_destructor, Ends_both_twins) {
    auto bridge = std::make_unique<recording_bridge>(true);
    bridge->enable_twins_mode();
    spawn_probe(*bridge, {"sleep"});
    EXPECT_EQ(count_children(), 2);
    bridge.reset();
    EXPECT_EQ(count_children(), 0);
    EXPECT_EQ(sigterm_record::sent, 2);
}

TEST_F(bridge_destructor, Ends_a_child_with_the_operation_of_the_base_and_calls_no_callback) {
    story told;
    {
        told_bridge bridge(&told);
        spawn_probe(bridge, {"sleep"});
    }
    let_child_watches_run();
    EXPECT_EQ(told.requests, 0);
    EXPECT_THAT(told.ends, IsEmpty());
    EXPECT_EQ(sigterm_record::sent, 1);
}

TEST_F(bridge_destructor, Waits_for_a_child_that_was_asked_before_without_asking_again) {
    auto bridge = std::make_unique<recording_bridge>(true);
    spawn_probe(*bridge, {"slow", "50"});
    ASSERT_TRUE(wait_until_ready());
    const int pid = bridge->get_child_pid();
    bridge->terminate_worker();
    bridge.reset();
    EXPECT_TRUE(is_gone(pid));
    EXPECT_EQ(sigterm_record::sent, 1);
}

TEST_F(bridge_destructor, Passes_over_a_child_that_has_died_already) {
    auto bridge = std::make_unique<recording_bridge>(true);
    bridge->spawn_child({"--exit", "0"});
    const int pid = bridge->get_child_pid();
    ASSERT_TRUE(wait_until_without_loop([pid] { return has_ended(pid); }));
    bridge.reset();
    EXPECT_TRUE(is_gone(pid));
    let_child_watches_run();
}

TEST_F(bridge_destructor, Without_a_child_only_says_so) {
    auto bridge = std::make_unique<vask_app_bridge>("bridge", true);
    log.clear();
    bridge.reset();
    EXPECT_THAT(own_lines(log),
                ElementsAre(line("DBG", "bridge", "virtual vask_app_bridge::~vask_app_bridge()"),
                            line("DBG", "bridge", "virtual vask_object::~vask_object()")));
}

TEST_F(bridge_destructor, Drops_the_commands_of_a_child_that_never_came_to_the_bus) {
    auto bridge = std::make_unique<recording_bridge>(true);
    spawn_probe(*bridge, {"sleep"});
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(bridge->send_cmd_no_reply(CHILD_ECHO, "never heard"));
    }
    bridge.reset();
    EXPECT_EQ(count_children(), 0);
}

TEST_F(bridge_deleted_in_callback, Of_a_crash_is_not_touched_any_more) {
    story told;
    auto* bridge = new suicidal_bridge(&told);
    spawn_probe(*bridge, {"sleep"});
    kill(bridge->get_child_pid(), SIGKILL);
    ASSERT_TRUE(wait_until([&told] { return told.deleted; }));
    EXPECT_THAT(told.ends, ElementsAre(main_worker_crash));
    let_child_watches_run();
}

TEST_F(bridge_deleted_in_callback, Of_an_exit_is_not_touched_any_more) {
    story told;
    auto* bridge = new suicidal_bridge(&told);
    spawn_probe(*bridge, {"sleep"});
    bridge->terminate_worker();
    ASSERT_TRUE(wait_until([&told] { return told.deleted; }));
    EXPECT_THAT(told.ends, ElementsAre(main_worker_exit));
    let_child_watches_run();
}

TEST_F(bridge_deleted_in_callback, Of_a_child_that_was_reaped_before_it_could_be_watched) {
    signal(SIGCHLD, SIG_IGN);
    for (int i = 0; i < 50; ++i) {
        story told;
        auto* bridge = new suicidal_bridge(&told);
        strlist argv = {"/bin/true"};
        strlist envs;
        bridge->spawn(argv, envs);
        ASSERT_TRUE(wait_until([&told] { return told.deleted; }));
        EXPECT_THAT(told.ends, ElementsAre(main_worker_crash));
    }
}

TEST_F(bridge_deleted_in_callback, Of_one_twin_ends_the_other) {
    story told;
    auto* bridge = new suicidal_bridge(&told);
    bridge->enable_twins_mode();
    spawn_probe(*bridge, {"sleep"});
    const int other = bridge->m_child_proxy[0]->get_pid();
    kill(bridge->m_child_proxy[1]->get_pid(), SIGKILL);
    ASSERT_TRUE(wait_until([&told] { return told.deleted; }));
    EXPECT_THAT(told.ends, ElementsAre(other_worker_crash));
    EXPECT_TRUE(is_gone(other));
    let_child_watches_run();
}

TEST_F(bridge_deleted_in_callback,
       Of_the_first_of_two_ends_that_are_due_hears_nothing_of_the_other) {
    story told;
    auto* bridge = new suicidal_bridge(&told);
    bridge->enable_twins_mode();
    spawn_probe(*bridge, {"sleep"});
    const int pids[] = {bridge->m_child_proxy[0]->get_pid(), bridge->m_child_proxy[1]->get_pid()};
    for (int pid : pids) {
        kill(pid, SIGKILL);
        ASSERT_TRUE(wait_until_without_loop([pid] { return has_ended(pid); }));
    }
    ASSERT_TRUE(wait_until([&told] { return told.deleted; }));
    let_child_watches_run();
    EXPECT_EQ(told.ends.size(), 1u);
    EXPECT_TRUE(is_gone(pids[0]));
    EXPECT_TRUE(is_gone(pids[1]));
}
