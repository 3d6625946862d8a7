// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <type_traits>
#include <utility>

#include "bridge/bus_monitor.h"
#include "bridge/recording_bridge.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto unknown_type = static_cast<auto_send_set_window_type>(3);

/** Whether send_window_data() can be called with such arguments. */
template <typename Enabler, typename... Arguments>
struct can_send : std::false_type {};

template <typename... Arguments>
struct can_send<decltype(void(std::declval<vask_app_bridge&>().send_window_data(
                    std::declval<Arguments>()...))),
                Arguments...> : std::true_type {};

static_assert(can_send<void, bool>::value, "");
static_assert(can_send<void, bool, vask_error*>::value, "");
static_assert(can_send<void, vask_child_proxy*, bool>::value, "");
static_assert(can_send<void, vask_child_proxy*, int>::value, "");
static_assert(can_send<void, vask_child_proxy*, bool, vask_error*>::value, "");
// A pointer is no answer to the question whether to force it.
static_assert(!can_send<void, vask_child_proxy*>::value, "");
static_assert(!can_send<void, const vask_child_proxy*>::value, "");
static_assert(!can_send<void, vask_error*>::value, "");
static_assert(!can_send<void, vask_child_proxy*, vask_error*>::value, "");

std::string entry_text(const vask_child_proxy* proxy, int count, bool force) {
    char text[200];
    snprintf(text, sizeof(text),
             "bool vask_app_bridge::send_window_data(vask_child_proxy*, bool, vask_error*): "
             "%p, %d, %d",
             static_cast<const void*>(proxy), count, force);
    return text;
}

class bridge_window : public testing::Test {
protected:
    void SetUp() override {
        err.set_code(VASK_ERR_INVALID_URI);
        err.set_message("untouched");
    }

    void be_verbose() {
        vask_object::print_msg_level = VASK_P_DBG;
        log.clear();
    }

    std::vector<std::string> quiet_journal() {
        vask_object::print_msg_level = VASK_P_INFO;
        return bridge.journal();
    }

    void expect_error_untouched() const {
        EXPECT_EQ(err.get_code(), VASK_ERR_INVALID_URI);
        EXPECT_EQ(err.get_message(), "untouched");
        EXPECT_EQ(err.get_next(), nullptr);
    }

    log_catcher log;
    recording_bridge bridge;
    vask_error err;
};

class send_window_data : public bridge_window {};

class set_window : public bridge_window {};

/** The geometry that a child gets when it is met. */
class geometry_at_rendezvous : public bridge_window {};

}  // namespace

TEST_F(send_window_data, Sends_the_saved_geometry_to_the_main_worker) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.save_window_data(1, -2, 300, 400, 5);
    be_verbose();

    EXPECT_TRUE(bridge.send_window_data(true, &err));

    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", entry_text(bridge.main_worker(), 0, true))));
    expect_error_untouched();
    EXPECT_THAT(quiet_journal(), ElementsAre("SetWindow 1 -2 300 400 5"));
}

TEST_F(send_window_data, Sends_the_saved_geometry_to_a_given_child) {
    bridge.enable_twins_mode();
    bridge.spawn_child();
    ASSERT_TRUE(bridge.wait_until_met());
    bridge.save_window_data(1, 2, 3, 4, 5);

    EXPECT_TRUE(bridge.send_window_data(bridge.m_child_proxy[1], true, &err));

    EXPECT_THAT(bridge.journal(), IsEmpty());
    bridge.switch_main_worker();
    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
}

TEST_F(send_window_data, Sends_also_what_was_never_saved) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_TRUE(bridge.send_window_data(true));
    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow -1 -1 -1 -1 0"));
}

TEST_F(send_window_data, Costs_one_message_on_the_bus) {
    ASSERT_TRUE(bridge.spawn_and_settle());
    bus_monitor bus;
    bridge.send_window_data(true);
    EXPECT_THAT(bus.stop(), ElementsAre(bus_message{"call without reply", "SetWindow"}));
}

TEST_F(send_window_data, Counts_what_it_sends) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
    bridge.send_window_data(true);
    bridge.send_window_data(true);
    EXPECT_EQ(bridge.m_window_data_sent_count, 2u);
}

TEST_F(send_window_data, Sends_unforced_only_the_first_time) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.save_window_data(1, 2, 3, 4, 5);
    EXPECT_TRUE(bridge.send_window_data(false, &err));
    bridge.save_window_data(6, 7, 8, 9, 10);
    be_verbose();

    EXPECT_TRUE(bridge.send_window_data(false, &err));

    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", entry_text(bridge.main_worker(), 1, false))));
    EXPECT_EQ(bridge.m_window_data_sent_count, 1u);
    EXPECT_THAT(quiet_journal(), ElementsAre("SetWindow 1 2 3 4 5"));
}

TEST_F(send_window_data, Sends_forced_every_time) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.save_window_data(1, 2, 3, 4, 5);
    EXPECT_TRUE(bridge.send_window_data(true));
    EXPECT_TRUE(bridge.send_window_data(true));
    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5", "SetWindow 1 2 3 4 5"));
}

TEST_F(send_window_data, Sends_unforced_again_to_the_next_child) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.save_window_data(1, 2, 3, 4, 5);
    bridge.send_window_data(false);
    kill(bridge.get_child_pid(), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
    bridge.init_proxy();
    ASSERT_TRUE(bridge.spawn_and_meet());

    EXPECT_TRUE(bridge.send_window_data(false));

    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
}

TEST_F(send_window_data, Fails_before_spawn) {
    be_verbose();

    EXPECT_FALSE(bridge.send_window_data(true, &err));

    EXPECT_EQ(err.get_code(), VASK_ERR_NOT_SPAWNED);
    EXPECT_EQ(err.get_message(), "Cannot call send_window_data() prior to spawn()!");
    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "bridge", entry_text(nullptr, 0, true)),
                                         line("ERR", "bridge",
                                              "Cannot call send_window_data() prior to spawn()!")));
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
}

TEST_F(send_window_data, Fails_without_a_child_to_send_to) {
    EXPECT_FALSE(bridge.send_window_data(nullptr, false, &err));
    EXPECT_EQ(err.get_code(), VASK_ERR_NOT_SPAWNED);
    EXPECT_FALSE(bridge.send_window_data(nullptr, true, nullptr));
}

TEST_F(send_window_data, Fails_before_the_child_is_met) {
    bridge.spawn_child();
    be_verbose();

    EXPECT_FALSE(bridge.send_window_data(false, &err));

    EXPECT_EQ(err.get_code(), VASK_ERR_NO_CHILD_PROXY);
    EXPECT_EQ(err.get_message(), "No child proxy yet!");
    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", entry_text(bridge.main_worker(), 0, false)),
                            line("DBG", "bridge", "No child proxy yet!")));
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
    EXPECT_FALSE(bridge.send_window_data(true, nullptr));
}

// Whether something was sent is asked before whether there is somebody to send to.
TEST_F(send_window_data, Succeeds_unforced_without_a_child_once_something_was_sent) {
    bridge.m_window_data_sent_count = 1;
    EXPECT_TRUE(bridge.send_window_data(nullptr, false, &err));
    expect_error_untouched();
    EXPECT_FALSE(bridge.send_window_data(nullptr, true, &err));
    EXPECT_EQ(err.get_code(), VASK_ERR_NOT_SPAWNED);
}

TEST_F(send_window_data, Sends_the_low_32_bits_of_the_window_id) {
    if (sizeof(vask_window_id_t) == 4) {
        GTEST_SKIP() << "Window ids have 32 bits here.";
    }
    constexpr auto long_id = static_cast<vask_window_id_t>(0x100000007ull);
    ASSERT_TRUE(bridge.spawn_and_meet());

    bridge.save_window_data(1, 2, 3, 4, 0xffffffffUL);
    bridge.send_window_data(true);
    bridge.save_window_data(1, 2, 3, 4, long_id);
    bridge.send_window_data(true);

    EXPECT_EQ(bridge.get_window_xid(), long_id);
    EXPECT_THAT(bridge.journal(),
                ElementsAre("SetWindow 1 2 3 4 4294967295", "SetWindow 1 2 3 4 7"));
}

TEST_F(send_window_data, Is_lost_silently_while_the_child_is_without_its_name) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.ask(CHILD_RELEASE_NAME);
    log.clear();

    EXPECT_TRUE(bridge.send_window_data(true, &err));

    drain_main_loop();
    EXPECT_EQ(log.text(), "");
}

TEST_F(set_window, Logs_the_values_under_labels_out_of_order) {
    be_verbose();

    bridge.set_window(1, 2, 3, 4, 0x5a);

    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge",
                                 "virtual void vask_app_bridge::set_window(int, int, int, int, "
                                 "vask_window_id_t): (x, y, h, w, id) = (1, 2, 3, 4, 0x5a)")));
}

TEST_F(set_window, Saves_and_sends_nothing_at_first) {
    ASSERT_TRUE(bridge.spawn_and_meet());

    bridge.set_window(1, 2, 3, 4, 5);

    EXPECT_EQ(bridge.get_window_x(), -1);
    EXPECT_EQ(bridge.get_window_width(), -1);
    EXPECT_EQ(bridge.get_window_xid(), 0u);
    EXPECT_FALSE(bridge.is_window_data_changed());
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(set_window, Saves_and_sends_nothing_when_told_so) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_NONE);
    bridge.set_window(1, 2, 3, 4, 5);
    EXPECT_EQ(bridge.get_window_width(), -1);
}

TEST_F(set_window, Only_saves_before_spawn) {
    log.clear();
    for (const auto type :
         {VASK_AUTO_SEND_SET_WINDOW_ALWAYS, VASK_AUTO_SEND_SET_WINDOW_CHANGED, unknown_type}) {
        bridge.set_auto_send_set_window_type(type);
        bridge.set_window(type, 2, 3, 4, 5);
        EXPECT_EQ(bridge.get_window_x(), type);
        EXPECT_EQ(bridge.get_window_xid(), 5u);
    }
    EXPECT_EQ(log.text(), "");
}

TEST_F(set_window, Only_saves_before_the_child_is_met) {
    bridge.spawn_child();
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);

    bridge.set_window(1, 2, 3, 4, 5);

    EXPECT_EQ(bridge.get_window_width(), 3);
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
}

TEST_F(set_window, Only_saves_while_the_child_is_without_connection) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.main_worker()->set_bus_addr(nullptr);

    bridge.set_window(1, 2, 3, 4, 5);

    EXPECT_EQ(bridge.get_window_width(), 3);
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(set_window, Sends_every_time_when_told_so) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);

    bridge.set_window(1, 2, 3, 4, 5);
    bridge.set_window(1, 2, 3, 4, 5);

    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5", "SetWindow 1 2 3 4 5"));
}

TEST_F(set_window, Sends_changes_only_when_told_so) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);

    bridge.set_window(1, 2, 3, 4, 5);
    bridge.set_window(1, 2, 3, 4, 5);
    bridge.set_window(1, 2, 3, 4, 6);
    bridge.set_window(1, 2, 3, 4, 6);
    bridge.set_window(0, 2, 3, 4, 6);

    EXPECT_THAT(bridge.journal(),
                ElementsAre("SetWindow 1 2 3 4 5", "SetWindow 1 2 3 4 6", "SetWindow 0 2 3 4 6"));
}

TEST_F(set_window, Sends_an_old_geometry_that_was_never_sent) {
    bridge.save_window_data(1, 2, 3, 4, 5);
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);

    bridge.set_window(1, 2, 3, 4, 5);
    bridge.set_window(1, 2, 3, 4, 5);

    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
}

TEST_F(set_window, Saves_but_does_not_send_under_an_unknown_type) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.set_auto_send_set_window_type(unknown_type);

    bridge.set_window(1, 2, 3, 4, 5);

    EXPECT_EQ(bridge.get_window_width(), 3);
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(set_window, Sends_to_the_main_one_of_twins) {
    bridge.enable_twins_mode();
    bridge.spawn_child();
    ASSERT_TRUE(bridge.wait_until_met());
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.switch_main_worker();

    bridge.set_window(1, 2, 3, 4, 5);

    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
    bridge.switch_main_worker();
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(geometry_at_rendezvous, Comes_before_the_commands_that_were_queued) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);
    bridge.spawn_child();
    bridge.send_cmd_no_reply(CHILD_ECHO, "A", nullptr);
    bridge.set_window(1, 2, 3, 4, 5);
    bridge.send_cmd_no_reply(CHILD_ECHO, "B", nullptr);
    bridge.send_cmd_no_reply(CHILD_ECHO, "C", nullptr);

    ASSERT_TRUE(bridge.wait_until_met());

    EXPECT_THAT(bridge.journal(),
                ElementsAre("SetWindow 1 2 3 4 5", "Command 1 A", "Command 1 B", "Command 1 C"));
    EXPECT_EQ(bridge.m_window_data_sent_count, 1u);
}

TEST_F(geometry_at_rendezvous, Is_the_last_one_that_was_saved) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.spawn_child();
    bridge.set_window(1, 2, 3, 4, 5);
    bridge.set_window(6, 7, 8, 9, 10);

    ASSERT_TRUE(bridge.wait_until_met());

    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 6 7 8 9 10"));
}

TEST_F(geometry_at_rendezvous, Is_sent_under_an_unknown_type) {
    bridge.set_auto_send_set_window_type(unknown_type);
    bridge.set_window(1, 2, 3, 4, 5);
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
}

TEST_F(geometry_at_rendezvous, Is_not_sent_when_nothing_was_ever_saved) {
    bridge.set_window(1, 2, 3, 4, 5);
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(geometry_at_rendezvous, Is_not_sent_without_auto_send) {
    bridge.save_window_data(1, 2, 3, 4, 5);
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(geometry_at_rendezvous, Is_not_sent_without_width) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.set_window(1, 2, 0, 4, 5);
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(geometry_at_rendezvous, Is_not_sent_without_height) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.set_window(1, 2, 3, 0, 5);
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(geometry_at_rendezvous, Goes_to_each_of_the_twins) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);
    bridge.set_window(1, 2, 3, 4, 5);
    bridge.enable_twins_mode();
    bridge.spawn_child();
    ASSERT_TRUE(bridge.wait_until_met());

    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
    bridge.switch_main_worker();
    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
}

TEST_F(geometry_at_rendezvous, Goes_to_the_next_child_again) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);
    bridge.set_window(1, 2, 3, 4, 5);
    ASSERT_TRUE(bridge.spawn_and_meet());
    kill(bridge.get_child_pid(), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));

    bridge.init_proxy();
    ASSERT_TRUE(bridge.spawn_and_meet());

    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
}
