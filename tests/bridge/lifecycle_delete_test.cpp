// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using bridge_destructor = lifecycle_fixture;
using bridge_deleted_in_callback = lifecycle_fixture;
using bridge_callback = lifecycle_fixture;

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

/** Waits in a main loop of its own for the end of whoever it has asked to end. Whoever touches it
 *  after its end finds nothing that makes sense. */
class looping_bridge : public told_bridge {
public:
    using told_bridge::told_bridge;

    void child_exit_cb(bool is_main) override {
        told_bridge::child_exit_cb(is_main);
        delete this;
    }
    void terminate_worker_impl() override {
        story* const told = m_story;
        told_bridge::terminate_worker_impl();
        EXPECT_TRUE(wait_until([told] { return told->deleted; }));
    }

    static void* operator new(size_t size) { return last_size = size, ::operator new(size); }
    static void operator delete(void* place) {
        memset(place, 0xdd, last_size);
        ::operator delete(place);
    }

private:
    static size_t last_size;
};

size_t looping_bridge::last_size = 0;

class throwing_bridge : public told_bridge {
public:
    using told_bridge::told_bridge;

    void child_exit_cb(bool is_main) override {
        told_bridge::child_exit_cb(is_main);
        throw std::runtime_error("no exit");
    }
    void child_crash_cb(bool is_main) override {
        told_bridge::child_crash_cb(is_main);
        throw 42;
    }
};

class throwing_suicidal_bridge : public told_bridge {
public:
    using told_bridge::told_bridge;

    void child_crash_cb(bool is_main) override {
        told_bridge::child_crash_cb(is_main);
        delete this;
        throw std::runtime_error("last words");
    }
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

/** Asks its child in a way that fails. */
class speechless_bridge : public told_bridge {
public:
    using told_bridge::told_bridge;

    void terminate_worker_impl() override {
        ++m_story->requests;
        throw std::runtime_error("no words");
    }
};

/** Leaves the asking to the destructor. */
class hasty_bridge : public told_bridge {
public:
    using told_bridge::told_bridge;

    void terminate_worker_impl() override {
        ++m_story->requests;
        delete this;
    }
};

}  // namespace

TEST_F(bridge_destructor, Ends_the_children_whose_requests_to_end_have_thrown) {
    story told;
    auto bridge = std::make_unique<speechless_bridge>(&told);
    bridge->enable_twins_mode();
    spawn_probe(*bridge, {"sleep"});
    const int pids[] = {bridge->m_child_proxy[0]->get_pid(), bridge->m_child_proxy[1]->get_pid()};
    EXPECT_THROW(bridge->terminate_worker(), std::runtime_error);
    bridge->switch_main_worker();
    EXPECT_THROW(bridge->terminate_worker(), std::runtime_error);
    bridge.reset();
    EXPECT_EQ(told.requests, 2);
    EXPECT_TRUE(is_gone(pids[0]));
    EXPECT_TRUE(is_gone(pids[1]));
}

TEST_F(bridge_destructor, Ends_the_child_when_the_request_to_end_deletes_the_bridge_instead) {
    story told;
    auto* const bridge = new hasty_bridge(&told);
    spawn_probe(*bridge, {"sleep"});
    const int pid = bridge->get_child_pid();
    bridge->terminate_worker();
    EXPECT_TRUE(told.deleted);
    EXPECT_EQ(told.requests, 1);
    EXPECT_TRUE(is_gone(pid));
}

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

// One that leaves SIGTERM to the kernel is ended by it even so.
TEST_F(bridge_destructor, Ends_a_stopped_child_that_handles_its_SIGTERM) {
    auto bridge = std::make_unique<recording_bridge>(true);
    spawn_probe(*bridge, {"slow", "50"});
    ASSERT_TRUE(wait_until_ready());
    const int pid = bridge->get_child_pid();
    kill(pid, SIGSTOP);
    bridge.reset();
    EXPECT_TRUE(is_gone(pid));
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

TEST_F(bridge_deleted_in_callback, Of_an_end_that_the_request_for_all_ends_has_waited_for) {
    story told;
    auto* bridge = new looping_bridge(&told);
    bridge->enable_twins_mode();
    spawn_probe(*bridge, {"sleep"});
    bridge->terminate_all_workers();
    EXPECT_TRUE(told.deleted);
    EXPECT_EQ(told.requests, 1);
    EXPECT_THAT(told.ends, ElementsAre(main_worker_exit));
    let_child_watches_run();
    EXPECT_EQ(count_children(), 0);
}

TEST_F(bridge_callback, Of_an_exit_that_throws_is_reported_and_leaves_the_bridge_usable) {
    story told;
    throwing_bridge bridge(&told);
    for (std::size_t times = 1; times <= 2; ++times) {
        spawn_probe(bridge, {"sleep"});
        bridge.terminate_worker();
        log.clear();
        ASSERT_TRUE(wait_until([&] { return told.ends.size() == times; }));
        EXPECT_THAT(own_lines(log),
                    Contains(line("ERR", "vask",
                                  "vask_app_bridge::child_exit_cb(): An exception was thrown: no "
                                  "exit"))
                        .Times(1));
        EXPECT_EQ(bridge.get_child_pid(), -1);
    }
}

TEST_F(bridge_callback, Of_a_crash_that_throws_is_reported_and_leaves_the_bridge_usable) {
    story told;
    throwing_bridge bridge(&told);
    for (std::size_t times = 1; times <= 2; ++times) {
        spawn_probe(bridge, {"sleep"});
        kill(bridge.get_child_pid(), SIGKILL);
        log.clear();
        ASSERT_TRUE(wait_until([&] { return told.ends.size() == times; }));
        EXPECT_THAT(own_lines(log),
                    Contains(line("ERR", "vask",
                                  "vask_app_bridge::child_crash_cb(): An exception was thrown: "
                                  "unknown"))
                        .Times(1));
    }
}

TEST_F(bridge_callback, May_delete_the_bridge_and_throw_then) {
    story told;
    auto* bridge = new throwing_suicidal_bridge(&told);
    spawn_probe(*bridge, {"sleep"});
    kill(bridge->get_child_pid(), SIGKILL);
    ASSERT_TRUE(wait_until([&told] { return told.deleted; }));
    let_child_watches_run();
    EXPECT_THAT(told.ends, ElementsAre(main_worker_crash));
}
