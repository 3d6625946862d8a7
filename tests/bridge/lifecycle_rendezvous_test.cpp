// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StrEq;

namespace {

const log_line not_all_line = line("DBG", "bridge", "Not all established yet.");
const log_line connected_line = line("DBG", "bridge", "The child has connected to the bus");
const log_line already_line = line("DBG", "bridge", "aNewOwner is already the owner");
const log_line new_owner_line = line("INFO", "bridge", "Here comes a new owner");
const log_line lost_line = line("INFO", "bridge", "The child has lost the connection!");
const log_line disconnect_line = line("DBG", "bridge", "Disconnect NameOwnerChanged signal");

std::string pointer_text(const void* pointer) {
    char text[32];
    snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

/** A child that stays away from the bus, so that nobody but the test reports changes of names. */
class bridge_name_owner_changed : public lifecycle_fixture {
protected:
    explicit bridge_name_owner_changed(bool twins = false) {
        if (twins) {
            bridge.enable_twins_mode();
        }
        spawn_probe(bridge, {"sleep"});
        drain_main_loop();
        log.clear();
    }

    void change(const std::string& name, const char* old_owner, const char* new_owner) {
        log.clear();
        bridge.name_owner_changed(nullptr, name.c_str(), old_owner, new_owner, nullptr);
        changed_name = name;
    }

    void change_child(const char* old_owner, const char* new_owner) {
        change(bridge.child_name(), old_owner, new_owner);
    }

    /** The lines of the last change: the two that always come, and those. */
    std::vector<log_line> with_head(const std::vector<log_line>& lines) const {
        std::vector<log_line> result = {
            line("DBG", "bridge",
                 "void vask_app_bridge::name_owner_changed(DBusGProxy*, const char*, const char*, "
                 "const char*, void*): " +
                     changed_name + " (" + pointer_text(&bridge) + ")"),
            line("DBG", "bridge",
                 "m_child_proxy[] = {" + printf_pointer(bridge.m_child_proxy[0]) + ", " +
                     printf_pointer(bridge.m_child_proxy[1]) + "}")};
        result.insert(result.end(), lines.begin(), lines.end());
        return result;
    }

    static std::string printf_pointer(vask_child_proxy* proxy) {
        return pointer_text(static_cast<void*>(proxy));
    }

    bool is_watching() const { return bridge.m_bus_daemon_proxy != nullptr; }

    recording_bridge bridge;
    std::string changed_name;
};

/** Two such children. */
class bridge_name_owner_changed_of_twins : public bridge_name_owner_changed {
protected:
    bridge_name_owner_changed_of_twins() : bridge_name_owner_changed(true) {}

    const char* address(int slot) const { return bridge.m_child_proxy[slot]->get_bus_addr(); }
};

}  // namespace

TEST_F(bridge_name_owner_changed, Without_children_is_only_logged) {
    recording_bridge lonely(true);
    log.clear();
    lonely.name_owner_changed(nullptr, "com.example.vask.Child_1", "", ":1.1", nullptr);
    EXPECT_THAT(own_lines(log),
                ElementsAre(line("DBG", "bridge",
                                 "void vask_app_bridge::name_owner_changed(DBusGProxy*, const "
                                 "char*, const char*, const char*, void*): "
                                 "com.example.vask.Child_1 (" +
                                     pointer_text(static_cast<vask_app_bridge*>(&lonely)) + ")")));
}

TEST_F(bridge_name_owner_changed, Outside_of_the_prefix_changes_nothing) {
    for (const char* name : {":1.7", "org.freedesktop.DBus", "com.example.vask.Chil",
                             "com.example.vask.child_1", "x.com.example.vask.Child_1", ""}) {
        change(name, "", ":1.7");
        EXPECT_EQ(own_lines(log), with_head({}));
    }
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_TRUE(is_watching());
}

TEST_F(bridge_name_owner_changed, Of_another_child_leaves_the_own_one_to_be_waited_for) {
    change("com.example.vask.Child_4711", "", ":1.7");
    EXPECT_EQ(own_lines(log), with_head({not_all_line}));
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_TRUE(is_watching());
}

TEST_F(bridge_name_owner_changed, Of_the_bare_interface_name_counts_as_one_of_another_child) {
    change("com.example.vask.Child", "", ":1.7");
    EXPECT_EQ(own_lines(log), with_head({not_all_line}));
}

TEST_F(bridge_name_owner_changed, Of_another_child_ends_the_watch_when_the_own_one_is_met) {
    change_child("", ":1.7");
    bridge.init_proxy();
    change("com.example.vask.Child_4711", "", ":1.8");
    EXPECT_EQ(own_lines(log), with_head({disconnect_line}));
    EXPECT_STREQ(bridge.get_child_bus_addr(), ":1.7");
    EXPECT_FALSE(is_watching());
}

TEST_F(bridge_name_owner_changed, Of_the_own_child_is_its_first_appearance) {
    change_child("", ":1.7");
    EXPECT_EQ(own_lines(log), with_head({connected_line, disconnect_line}));
    EXPECT_STREQ(bridge.get_child_bus_addr(), ":1.7");
    EXPECT_NE(bridge.main_worker()->get_bus_proxy(), nullptr);
    EXPECT_FALSE(is_watching());
}

TEST_F(bridge_name_owner_changed,
       On_the_first_appearance_keeps_the_connection_when_the_watch_ends) {
    DBusGConnection* connection = bridge.m_bus_connection;
    change_child("", ":1.7");
    EXPECT_EQ(bridge.m_bus_connection, connection);
}

TEST_F(bridge_name_owner_changed, On_the_first_appearance_sends_the_queued_commands) {
    bridge.send_cmd_no_reply(1, "queued");
    change_child("", ":1.7");
    EXPECT_EQ(bridge.main_worker()->dequeue_cmd(), nullptr);
}

TEST_F(bridge_name_owner_changed, On_the_first_appearance_sends_the_geometry_if_that_is_wanted) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.save_window_data(1, 2, 3, 4, 5);
    change_child("", ":1.7");
    EXPECT_EQ(bridge.m_window_data_sent_count, 1u);
}

TEST_F(bridge_name_owner_changed, On_the_first_appearance_sends_no_geometry_if_it_is_not_wanted) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_NONE);
    bridge.save_window_data(1, 2, 3, 4, 5);
    change_child("", ":1.7");
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
}

TEST_F(bridge_name_owner_changed, On_the_first_appearance_sends_no_geometry_without_an_area) {
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.save_window_data(1, 2, 0, 4, 5);
    change_child("", ":1.7");
    change_child(":1.7", "");
    bridge.save_window_data(1, 2, 3, 0, 5);
    change_child("", ":1.7");
    change_child(":1.7", "");
    bridge.save_window_data(1, 2, -3, -4, 5);
    change_child("", ":1.7");
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
}

TEST_F(bridge_name_owner_changed, To_the_owner_that_is_known_changes_nothing) {
    change_child("", ":1.7");
    DBusGProxy* bus_proxy = bridge.main_worker()->get_bus_proxy();
    change_child("", ":1.7");
    EXPECT_EQ(own_lines(log), with_head({already_line, disconnect_line}));
    EXPECT_STREQ(bridge.get_child_bus_addr(), ":1.7");
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), bus_proxy);
}

TEST_F(bridge_name_owner_changed, To_another_owner_takes_its_address_and_nothing_else) {
    change_child("", ":1.7");
    DBusGProxy* bus_proxy = bridge.main_worker()->get_bus_proxy();
    bridge.main_worker()->enqueue_cmd(new child_cmd_buffer(1, "stays"));
    change_child("", ":1.8");
    EXPECT_EQ(own_lines(log), with_head({new_owner_line, disconnect_line}));
    EXPECT_STREQ(bridge.get_child_bus_addr(), ":1.8");
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), bus_proxy);
    child_cmd_buffer* cmd = bridge.main_worker()->dequeue_cmd();
    EXPECT_NE(cmd, nullptr);
    delete cmd;
}

TEST_F(bridge_name_owner_changed, From_the_known_owner_is_a_loss_and_the_watch_goes_on) {
    change_child("", ":1.7");
    bridge.init_proxy();
    DBusGProxy* bus_proxy = bridge.main_worker()->get_bus_proxy();
    change_child(":1.7", "");
    EXPECT_EQ(own_lines(log), with_head({lost_line}));
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), bus_proxy);
    EXPECT_TRUE(is_watching());
}

TEST_F(bridge_name_owner_changed, From_the_known_owner_to_another_is_a_loss_too) {
    change_child("", ":1.7");
    bridge.init_proxy();
    change_child(":1.7", ":1.8");
    EXPECT_EQ(own_lines(log), with_head({lost_line}));
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_TRUE(is_watching());
}

TEST_F(bridge_name_owner_changed, From_an_unknown_owner_changes_no_address_and_ends_the_watch) {
    change_child("", ":1.7");
    bridge.init_proxy();
    change_child(":1.6", "");
    EXPECT_EQ(own_lines(log), with_head({disconnect_line}));
    EXPECT_STREQ(bridge.get_child_bus_addr(), ":1.7");
    EXPECT_FALSE(is_watching());
}

TEST_F(bridge_name_owner_changed, From_an_owner_before_the_child_was_met_ends_the_watch) {
    change_child(":1.6", "");
    EXPECT_EQ(own_lines(log), with_head({disconnect_line}));
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_FALSE(is_watching());
}

TEST_F(bridge_name_owner_changed, From_nobody_to_nobody_ends_the_watch) {
    change_child("", "");
    EXPECT_EQ(own_lines(log), with_head({disconnect_line}));
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
}

TEST_F(bridge_name_owner_changed, After_a_loss_is_a_first_appearance_again) {
    change_child("", ":1.7");
    change_child(":1.7", "");
    bridge.main_worker()->enqueue_cmd(new child_cmd_buffer(1, "goes out"));
    change_child("", ":1.9");
    EXPECT_EQ(own_lines(log), with_head({connected_line, disconnect_line}));
    EXPECT_STREQ(bridge.get_child_bus_addr(), ":1.9");
    EXPECT_EQ(bridge.main_worker()->dequeue_cmd(), nullptr);
}

TEST_F(bridge_name_owner_changed, Is_told_by_the_bus_with_the_bridge_as_user_data) {
    EXPECT_TRUE(is_watching());
    log.clear();
    recording_bridge other(true);
    other.spawn_child();
    const std::string head = "const char*, void*): " + other.child_name();
    EXPECT_TRUE(wait_until([this, &head] { return log.text().find(head) != std::string::npos; }));
    EXPECT_THAT(own_lines(log), Contains(not_all_line));
}

TEST_F(bridge_name_owner_changed_of_twins, Is_shown_to_both_in_the_order_of_their_slots) {
    bridge.switch_main_worker();
    change_child("", ":1.7");
    EXPECT_EQ(own_lines(log), with_head({not_all_line, connected_line}));
    EXPECT_EQ(address(0), nullptr);
    EXPECT_STREQ(address(1), ":1.7");
    EXPECT_TRUE(is_watching());

    bridge.switch_main_worker();
    change_child("", ":1.8");
    EXPECT_EQ(own_lines(log), with_head({connected_line, disconnect_line}));
    EXPECT_STREQ(address(0), ":1.8");
    EXPECT_STREQ(address(1), ":1.7");
    EXPECT_FALSE(is_watching());
}
