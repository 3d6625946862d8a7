// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "bridge/recording_bridge.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class listening_bridge : public recording_bridge {
public:
    void on_signal(const char* data) { heard.push_back(std::string("on_signal ") + data); }
    void on_other(const char* data) { heard.push_back(std::string("on_other ") + data); }
    virtual void on_virtual(const char* data) {
        heard.push_back(std::string("on_virtual ") + data);
    }
    void replace_itself(const char* data) {
        heard.push_back(std::string("replace_itself ") + data);
        listen(1, &listening_bridge::on_other);
    }
    void remove_itself(const char* data) {
        heard.push_back(std::string("remove_itself ") + data);
        set_child_sig_cb(1, nullptr);
    }
    void fail(const char*) { throw std::runtime_error("cannot hear"); }
    void ask_back(const char* data) { heard.push_back("reply " + ask(CHILD_ECHO, data)); }

    template <typename Bridge>
    void listen(int signal_id, void (Bridge::*member)(const char*)) {
        set_child_sig_cb(signal_id, static_cast<child_sig_cb>(member));
    }

    /** Has the child raise a signal, and waits for it. */
    void provoke(const std::string& id_and_data) {
        const std::size_t before = signals.size();
        ask(CHILD_RAISE_SIGNAL, id_and_data);
        EXPECT_TRUE(wait_for_signals(before + 1));
    }

    std::vector<std::string> heard;
};

class overriding_bridge : public listening_bridge {
public:
    void on_virtual(const char* data) override {
        heard.push_back(std::string("overridden ") + data);
    }
};

class vanishing_bridge : public recording_bridge {
public:
    explicit vanishing_bridge(int& calls, bool throws = false) : m_calls(calls), m_throws(throws) {
        set_child_sig_cb(1, static_cast<child_sig_cb>(&vanishing_bridge::vanish));
    }

private:
    void vanish(const char*) {
        const bool throws = m_throws;
        ++m_calls;
        delete this;
        if (throws) {
            throw std::runtime_error("last words");
        }
    }

    int& m_calls;
    const bool m_throws;
};

/** A child as somebody sees it who is not its parent. */
class raw_child {
public:
    explicit raw_child(const std::string& name)
        : m_name(name), m_connection(dbus_bus_get(DBUS_BUS_SESSION, nullptr)) {}
    ~raw_child() { dbus_connection_unref(m_connection); }
    raw_child(const raw_child&) = delete;
    raw_child& operator=(const raw_child&) = delete;

    bool is_on_bus() const {
        return dbus_bus_name_has_owner(m_connection, m_name.c_str(), nullptr);
    }

    /** False when the child has not answered. */
    bool raise_signal(const char* id_and_data) {
        DBusMessage* call = dbus_message_new_method_call(m_name.c_str(), "/com/example/vask/Child",
                                                         "com.example.vask.Child", "Command");
        const dbus_int32_t id = CHILD_RAISE_SIGNAL;
        dbus_message_append_args(call, DBUS_TYPE_INT32, &id, DBUS_TYPE_STRING, &id_and_data,
                                 DBUS_TYPE_INVALID);
        DBusMessage* reply = dbus_connection_send_with_reply_and_block(
            m_connection, call, DBUS_TIMEOUT_USE_DEFAULT, nullptr);
        dbus_message_unref(call);
        if (reply == nullptr) {
            return false;
        }
        dbus_message_unref(reply);
        return true;
    }

private:
    const std::string m_name;
    DBusConnection* m_connection;
};

class child_signal : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(bridge.spawn_and_meet()); }

    log_catcher log;
    overriding_bridge bridge;
};

}  // namespace

TEST_F(child_signal, Reaches_its_callback_with_its_data) {
    bridge.listen(1, &listening_bridge::on_signal);
    bridge.listen(-2, &listening_bridge::on_other);

    bridge.provoke("1 h\xc3\xa4llo world");
    bridge.provoke("-2 x");
    bridge.provoke("1 again");

    EXPECT_THAT(bridge.heard,
                ElementsAre("on_signal h\xc3\xa4llo world", "on_other x", "on_signal again"));
}

TEST_F(child_signal, Without_data_arrives_with_the_empty_text) {
    bridge.listen(1, &listening_bridge::on_signal);
    bridge.ask(CHILD_RAISE_SIGNAL_WITHOUT_DATA, "1");
    ASSERT_TRUE(bridge.wait_for_signals(1));
    EXPECT_THAT(bridge.heard, ElementsAre("on_signal "));
}

TEST_F(child_signal, Is_logged) {
    bridge.listen(5, &listening_bridge::on_signal);
    bridge.ask(CHILD_RAISE_SIGNAL, "5 hello");
    vask_object::print_msg_level = VASK_P_DBG;
    log.clear();

    ASSERT_TRUE(bridge.wait_for_signals(1));

    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "bridge", "signal from child: 5, hello")));
}

TEST_F(child_signal, Without_callback_is_warned_of) {
    bridge.listen(1, &listening_bridge::on_signal);
    log.clear();

    bridge.provoke("2 hello");

    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "bridge", "Signal: '2' is not supported")));
    EXPECT_THAT(bridge.heard, IsEmpty());
}

TEST_F(child_signal, Reaches_the_callback_that_was_set_last) {
    bridge.listen(1, &listening_bridge::on_signal);
    bridge.listen(1, &listening_bridge::on_other);
    bridge.provoke("1 x");
    EXPECT_THAT(bridge.heard, ElementsAre("on_other x"));
}

TEST_F(child_signal, Has_no_callback_any_more_when_null_was_set) {
    bridge.listen(1, &listening_bridge::on_signal);
    bridge.set_child_sig_cb(1, nullptr);
    bridge.set_child_sig_cb(2, nullptr);
    EXPECT_TRUE(bridge.m_child_sig_cbs.empty());
    log.clear();
    bridge.provoke("1 x");
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "bridge", "Signal: '1' is not supported")));
    EXPECT_THAT(bridge.heard, IsEmpty());
}

TEST_F(child_signal, May_take_its_own_callback_away) {
    bridge.listen(1, &listening_bridge::remove_itself);
    bridge.provoke("1 x");
    bridge.provoke("1 y");
    EXPECT_THAT(bridge.heard, ElementsAre("remove_itself x"));
}

TEST_F(child_signal, Whose_callback_throws_is_reported_and_does_not_harm_the_next) {
    bridge.listen(1, &listening_bridge::fail);
    bridge.listen(2, &listening_bridge::on_signal);
    log.clear();
    bridge.provoke("1 x");
    bridge.provoke("2 y");
    bridge.provoke("1 z");
    const log_line thrown_line = line(
        "ERR", "vask", "vask_app_bridge::child_signal(): An exception was thrown: cannot hear");
    EXPECT_THAT(log.lines(), ElementsAre(thrown_line, thrown_line));
    EXPECT_THAT(bridge.heard, ElementsAre("on_signal y"));
}

TEST_F(child_signal, Reaches_the_overriding_member) {
    bridge.listen(1, &listening_bridge::on_virtual);
    bridge.provoke("1 x");
    EXPECT_THAT(bridge.heard, ElementsAre("overridden x"));
}

TEST_F(child_signal, May_replace_its_own_callback) {
    bridge.listen(1, &listening_bridge::replace_itself);
    bridge.provoke("1 x");
    bridge.provoke("1 y");
    EXPECT_THAT(bridge.heard, ElementsAre("replace_itself x", "on_other y"));
}

TEST_F(child_signal, May_be_answered_with_a_command) {
    bridge.listen(1, &listening_bridge::ask_back);
    bridge.provoke("1 x");
    EXPECT_THAT(bridge.heard, ElementsAre("reply x"));
}

TEST_F(child_signal, Goes_through_the_virtual_operation) {
    bridge.provoke("7 hello");
    EXPECT_THAT(bridge.signals, ElementsAre(Pair(7, "hello")));
}

TEST_F(child_signal, Can_be_handed_in_by_hand) {
    bridge.listen(1, &listening_bridge::on_signal);
    bridge.child_signal(1, "hello");
    EXPECT_THAT(bridge.heard, ElementsAre("on_signal hello"));
}

TEST_F(child_signal, Waits_while_a_command_is_being_sent) {
    bridge.listen(1, &listening_bridge::on_signal);
    bridge.ask(CHILD_RAISE_SIGNAL, "1 one");
    bridge.ask(CHILD_RAISE_SIGNAL, "1 two");
    EXPECT_THAT(bridge.heard, IsEmpty());

    ASSERT_TRUE(bridge.wait_for_signals(2));

    EXPECT_THAT(bridge.heard, ElementsAre("on_signal one", "on_signal two"));
}

TEST_F(child_signal, Comes_from_each_of_the_twins) {
    overriding_bridge twins;
    twins.listen(1, &listening_bridge::on_signal);
    twins.enable_twins_mode();
    twins.spawn_child();
    ASSERT_TRUE(twins.wait_until_met());

    twins.provoke("1 first");
    twins.switch_main_worker();
    twins.provoke("1 second");

    EXPECT_THAT(twins.heard, ElementsAre("on_signal first", "on_signal second"));
}

TEST_F(child_signal, Arrives_once_after_the_child_was_lost_and_met_again) {
    const std::string name = bridge.child_name();
    const std::string address = bridge.get_child_bus_addr();
    bridge.name_owner_changed(nullptr, name.c_str(), address.c_str(), "", nullptr);
    ASSERT_EQ(bridge.get_child_bus_addr(), nullptr);
    bridge.name_owner_changed(nullptr, name.c_str(), "", address.c_str(), nullptr);
    ASSERT_NE(bridge.get_child_bus_addr(), nullptr);

    bridge.ask(CHILD_RAISE_SIGNAL, "7 hello");
    bridge.ask(CHILD_ECHO, "all signals have come");
    drain_main_loop();

    EXPECT_THAT(bridge.signals, ElementsAre(Pair(7, "hello")));
}

TEST(early_child_signal, Is_lost_when_the_child_was_not_met_yet) {
    recording_bridge bridge;
    bridge.spawn_child();
    raw_child child(bridge.child_name());
    ASSERT_TRUE(wait_until_without_loop([&child] { return child.is_on_bus(); }));
    ASSERT_TRUE(child.raise_signal("1 early"));

    ASSERT_TRUE(bridge.wait_until_met());
    bridge.ask(CHILD_RAISE_SIGNAL, "2 late");
    ASSERT_TRUE(bridge.wait_for_signals(1));

    EXPECT_THAT(bridge.signals, ElementsAre(Pair(2, "late")));
}

TEST(child_signal_callback, May_delete_the_bridge) {
    int calls = 0;
    auto* bridge = new vanishing_bridge(calls);
    ASSERT_TRUE(bridge->spawn_and_meet());
    bridge->ask(CHILD_RAISE_SIGNAL, "1 first");
    bridge->ask(CHILD_RAISE_SIGNAL, "1 second");

    EXPECT_TRUE(wait_until([&calls] { return calls > 0; }));
    drain_main_loop();

    EXPECT_EQ(calls, 1);
}

TEST(child_signal_callback, May_delete_the_bridge_and_throw_then) {
    log_catcher log;
    int calls = 0;
    auto* bridge = new vanishing_bridge(calls, true);
    ASSERT_TRUE(bridge->spawn_and_meet());
    bridge->ask(CHILD_RAISE_SIGNAL, "1 first");
    log.clear();

    EXPECT_TRUE(wait_until([&calls] { return calls > 0; }));
    drain_main_loop();

    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "vask",
                                 "vask_app_bridge::child_signal(): An exception was thrown: last "
                                 "words")));
}
