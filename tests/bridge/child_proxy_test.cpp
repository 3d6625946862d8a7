// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bridge/recording_bridge.h"
#include "support/interpose.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StrEq;

namespace {

constexpr int no_watch = 0;
constexpr int some_pid = 12345;

/** What the bus library was asked for, in this order. */
std::vector<std::string> bus_calls;

struct registration {
    GClosureMarshal marshaller;
    std::vector<GType> arguments;
};

std::vector<registration> registrations;

std::vector<GPid> closed_pids;
std::function<void()> on_close;

/** The types up to the closing G_TYPE_INVALID. */
std::vector<GType> read_types(va_list list, GType first) {
    std::vector<GType> types;
    for (GType type = first; type != G_TYPE_INVALID; type = va_arg(list, GType)) {
        types.push_back(type);
    }
    return types;
}

std::string names_of(const std::vector<GType>& types) {
    std::string names;
    for (const GType type : types) {
        names += std::string(" ") + g_type_name(type);
    }
    return names;
}

std::string handed_on;

void note_int_string(gpointer, int id, const char* data, gpointer) {
    handed_on = std::to_string(id) + " " + data;
}

void note_uint_int_string(gpointer, guint number, int id, const char* data, gpointer) {
    handed_on = std::to_string(number) + " " + std::to_string(id) + " " + data;
}

/** Has the marshaller call the callback with 3000000000, -5 and "text", as far as it takes them. */
std::string hand_on(const registration& marshalled, GCallback callback) {
    std::vector<GValue> values(1 + marshalled.arguments.size());
    g_value_init(&values[0], G_TYPE_POINTER);
    for (std::size_t i = 1; i < values.size(); ++i) {
        g_value_init(&values[i], marshalled.arguments[i - 1]);
        if (G_VALUE_HOLDS_UINT(&values[i])) {
            g_value_set_uint(&values[i], 3000000000);
        } else if (G_VALUE_HOLDS_INT(&values[i])) {
            g_value_set_int(&values[i], -5);
        } else {
            g_value_set_static_string(&values[i], "text");
        }
    }
    GClosure* closure = g_cclosure_new(callback, nullptr, nullptr);
    g_closure_set_marshal(closure, marshalled.marshaller);
    handed_on.clear();
    g_closure_invoke(closure, nullptr, static_cast<guint>(values.size()), values.data(), nullptr);
    g_closure_sink(closure);
    return handed_on;
}

gboolean stay(gpointer) {
    return G_SOURCE_CONTINUE;
}

/** Proxies of a bridge that has no child of its own. */
class child_proxy : public testing::Test {
protected:
    std::unique_ptr<vask_child_proxy> make_proxy(int pid, unsigned int watch_id = no_watch) {
        return std::make_unique<vask_child_proxy>(bridge, "proxy", pid, watch_id);
    }

    recording_bridge bridge;
};

/** The proxy of a child that was met. */
class met_child_proxy : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(bridge.spawn_and_meet()); }

    vask_child_proxy& proxy() { return *bridge.main_worker(); }

    /** Has the child raise one signal, and dispatches all that it has sent until then. */
    void raise_signal() {
        bridge.ask(CHILD_RAISE_SIGNAL, "5 hello");
        drain_main_loop();
    }

    /** The same through another proxy of the child, which hears the signal. */
    void raise_signal_through_another() {
        vask_child_proxy other(bridge, "other", bridge.get_child_pid(), no_watch);
        other.bus_setup(bridge.m_bus_connection);
        std::swap(bridge.m_child_proxy[0], bridge.m_child_proxy[1]);
        bridge.m_child_proxy[0] = &other;
        raise_signal();
        bridge.m_child_proxy[0] = nullptr;
        std::swap(bridge.m_child_proxy[0], bridge.m_child_proxy[1]);
    }

    recording_bridge bridge;
};

}  // namespace

extern "C" DBusGProxy* dbus_g_proxy_new_for_name(DBusGConnection* connection, const char* name,
                                                 const char* path, const char* interface) {
    bus_calls.push_back(std::string("proxy for ") + name);
    return next_function<DBusGProxy*(DBusGConnection*, const char*, const char*, const char*)>(
        "dbus_g_proxy_new_for_name")(connection, name, path, interface);
}

extern "C" void dbus_g_object_register_marshaller(GClosureMarshal marshaller, GType return_type,
                                                  ...) {
    va_list list;
    va_start(list, return_type);
    const GType first_type = va_arg(list, GType);
    const std::vector<GType> arguments = read_types(list, first_type);
    va_end(list);
    bus_calls.push_back(std::string("marshaller of ") + g_type_name(return_type) + " for" +
                        names_of(arguments));
    registrations.push_back({marshaller, arguments});
    dbus_g_object_register_marshaller_array(marshaller, return_type,
                                            static_cast<guint>(arguments.size()), arguments.data());
}

extern "C" void dbus_g_proxy_add_signal(DBusGProxy* proxy, const char* signal, GType first_type,
                                        ...) {
    va_list list;
    va_start(list, first_type);
    std::vector<GType> arguments = read_types(list, first_type);
    va_end(list);
    bus_calls.push_back(std::string("signal ") + signal + " with" + names_of(arguments));
    // No signal of the bridge has more.
    arguments.resize(3, G_TYPE_INVALID);
    next_function<void(DBusGProxy*, const char*, GType, ...)>("dbus_g_proxy_add_signal")(
        proxy, signal, arguments[0], arguments[1], arguments[2], G_TYPE_INVALID);
}

extern "C" void dbus_g_proxy_connect_signal(DBusGProxy* proxy, const char* signal,
                                            GCallback handler, void* data,
                                            GClosureNotify free_data) {
    bus_calls.push_back(std::string("handler of ") + signal);
    next_function<void(DBusGProxy*, const char*, GCallback, void*, GClosureNotify)>(
        "dbus_g_proxy_connect_signal")(proxy, signal, handler, data, free_data);
}

extern "C" void g_spawn_close_pid(GPid pid) {
    closed_pids.push_back(pid);
    if (on_close) {
        on_close();
    }
}

TEST_F(child_proxy, Knows_its_pid_and_starts_without_bus_and_termination) {
    const auto proxy = make_proxy(some_pid);

    EXPECT_EQ(proxy->get_pid(), some_pid);
    EXPECT_FALSE(proxy->is_terminating());
    EXPECT_EQ(proxy->get_bus_addr(), nullptr);
    EXPECT_EQ(proxy->get_bus_proxy(), nullptr);
    EXPECT_FALSE(proxy->is_bus_alive());
    EXPECT_EQ(proxy->dequeue_cmd(), nullptr);
}

TEST_F(child_proxy, Logs_its_pid_and_bus_name) {
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;

    const auto proxy = make_proxy(some_pid);

    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "proxy", "Created child_proxy for 12345"),
                                         line("DBG", "proxy",
                                              "D-Bus Interface of the child is "
                                              "'com.example.vask.Child_12345'")));
}

TEST_F(child_proxy, Logs_no_bus_name_for_pid_0) {
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;

    const auto proxy = make_proxy(0);

    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "proxy", "Created child_proxy for 0")));
}

TEST_F(child_proxy, Remembers_that_it_is_terminating) {
    const auto proxy = make_proxy(some_pid);
    proxy->set_terminating();
    EXPECT_TRUE(proxy->is_terminating());
}

TEST_F(child_proxy, Recognises_exactly_its_own_bus_name) {
    const auto proxy = make_proxy(some_pid);

    EXPECT_TRUE(proxy->is_mine("com.example.vask.Child_12345"));
    EXPECT_FALSE(proxy->is_mine("com.example.vask.Child_1234"));
    EXPECT_FALSE(proxy->is_mine("com.example.vask.Child_123456"));
    EXPECT_FALSE(proxy->is_mine("com.example.vask.Child"));
    EXPECT_FALSE(proxy->is_mine(""));
    EXPECT_FALSE(proxy->is_mine(nullptr));
}

TEST_F(child_proxy, Of_pid_0_recognises_no_name) {
    const auto proxy = make_proxy(0);

    EXPECT_FALSE(proxy->is_mine("com.example.vask.Child_0"));
    EXPECT_FALSE(proxy->is_mine(""));
    EXPECT_FALSE(proxy->is_mine(nullptr));
}

TEST_F(child_proxy, Keeps_a_copy_of_its_bus_address) {
    const auto proxy = make_proxy(some_pid);
    std::string address = ":1.7";

    proxy->set_bus_addr(address.c_str());
    address = "overwritten";

    EXPECT_THAT(proxy->get_bus_addr(), StrEq(":1.7"));
}

TEST_F(child_proxy, Replaces_its_bus_address) {
    const auto proxy = make_proxy(some_pid);

    proxy->set_bus_addr(":1.7");
    proxy->set_bus_addr(":1.8");
    EXPECT_THAT(proxy->get_bus_addr(), StrEq(":1.8"));

    proxy->set_bus_addr(nullptr);
    EXPECT_EQ(proxy->get_bus_addr(), nullptr);
}

TEST_F(child_proxy, Without_address_takes_null_as_address) {
    const auto proxy = make_proxy(some_pid);
    proxy->set_bus_addr(nullptr);
    EXPECT_EQ(proxy->get_bus_addr(), nullptr);
}

TEST_F(child_proxy, Can_be_given_its_own_address) {
    const auto proxy = make_proxy(some_pid);
    proxy->set_bus_addr(":1.7");
    proxy->set_bus_addr(proxy->get_bus_addr());
    EXPECT_THAT(proxy->get_bus_addr(), StrEq(":1.7"));
}

TEST_F(child_proxy, Takes_its_watch_along_when_it_is_deleted) {
    const guint watch = g_timeout_add_seconds(1000, stay, nullptr);
    auto proxy = make_proxy(some_pid, watch);
    ASSERT_NE(g_main_context_find_source_by_id(nullptr, watch), nullptr);

    proxy.reset();

    EXPECT_EQ(g_main_context_find_source_by_id(nullptr, watch), nullptr);
}

TEST_F(child_proxy, Closes_its_pid_when_it_is_deleted) {
    auto proxy = make_proxy(some_pid);
    EXPECT_THAT(closed_pids, IsEmpty());
    proxy.reset();
    EXPECT_THAT(closed_pids, ElementsAre(some_pid));
}

TEST_F(child_proxy, Has_ended_its_watch_when_it_closes_its_pid) {
    const guint watch = g_timeout_add_seconds(1000, stay, nullptr);
    auto proxy = make_proxy(some_pid, watch);
    bool is_watching = true;
    on_close = [watch, &is_watching] {
        is_watching = g_main_context_find_source_by_id(nullptr, watch) != nullptr;
    };
    proxy.reset();
    on_close = nullptr;
    EXPECT_FALSE(is_watching);
}

TEST_F(child_proxy, Closes_no_pid_0) {
    make_proxy(0).reset();
    EXPECT_THAT(closed_pids, IsEmpty());
}

// GLib complains of a source 0, which ends the test program.
TEST_F(child_proxy, Without_pid_and_watch_is_deleted_quietly) {
    vask_object::print_msg_level = VASK_P_INFO;
    log_catcher log;

    make_proxy(0).reset();

    EXPECT_EQ(log.text(), "");
}

TEST_F(child_proxy, Is_deleted_whole_as_a_base_object) {
    auto* proxy = new vask_child_proxy(bridge, "proxy", some_pid, no_watch);
    proxy->set_bus_addr(":1.7");
    proxy->enqueue_cmd(new child_cmd_buffer(1, "waiting"));

    vask_object* base = proxy;
    delete base;
}

TEST_F(child_proxy, Makes_a_bus_proxy_for_the_child_and_releases_it) {
    const auto proxy = make_proxy(some_pid);

    proxy->bus_setup(bridge.m_bus_connection);

    ASSERT_NE(proxy->get_bus_proxy(), nullptr);
    EXPECT_THAT(dbus_g_proxy_get_bus_name(proxy->get_bus_proxy()),
                StrEq("com.example.vask.Child_12345"));
    EXPECT_THAT(dbus_g_proxy_get_path(proxy->get_bus_proxy()), StrEq("/com/example/vask/Child"));
    EXPECT_THAT(dbus_g_proxy_get_interface(proxy->get_bus_proxy()),
                StrEq("com.example.vask.Child"));
    EXPECT_TRUE(proxy->is_bus_alive());

    proxy->bus_destroy();

    EXPECT_EQ(proxy->get_bus_proxy(), nullptr);
    EXPECT_FALSE(proxy->is_bus_alive());
}

TEST_F(child_proxy, Is_set_up_on_the_bus_step_by_step) {
    const auto proxy = make_proxy(some_pid);
    bus_calls.clear();
    proxy->bus_setup(bridge.m_bus_connection);
    EXPECT_THAT(bus_calls,
                ElementsAre("proxy for com.example.vask.Child_12345",
                            "marshaller of void for gint gchararray",
                            "signal ChildSignal with gint gchararray", "handler of ChildSignal",
                            "marshaller of void for guint gint gchararray"));
}

TEST_F(child_proxy, Registers_marshallers_that_fit_the_signals_that_a_child_may_have) {
    const auto proxy = make_proxy(some_pid);
    registrations.clear();
    proxy->bus_setup(bridge.m_bus_connection);
    ASSERT_EQ(registrations.size(), 2u);
    EXPECT_EQ(hand_on(registrations[0], G_CALLBACK(note_int_string)), "-5 text");
    EXPECT_EQ(hand_on(registrations[1], G_CALLBACK(note_uint_int_string)), "3000000000 -5 text");
}

TEST_F(child_proxy, Setting_up_the_bus_leaves_the_bus_address_alone) {
    const auto proxy = make_proxy(some_pid);
    proxy->bus_setup(bridge.m_bus_connection);
    EXPECT_EQ(proxy->get_bus_addr(), nullptr);
}

TEST_F(child_proxy, Destroying_a_bus_proxy_that_is_not_there_does_nothing) {
    const auto proxy = make_proxy(some_pid);
    proxy->bus_destroy();
    proxy->bus_setup(bridge.m_bus_connection);
    proxy->bus_destroy();
    proxy->bus_destroy();
    EXPECT_EQ(proxy->get_bus_proxy(), nullptr);
}

TEST_F(child_proxy, Makes_no_bus_proxy_without_connection) {
    const auto proxy = make_proxy(some_pid);
    proxy->bus_setup(nullptr);
    EXPECT_EQ(proxy->get_bus_proxy(), nullptr);
}

TEST_F(child_proxy, Makes_no_bus_proxy_for_pid_0) {
    const auto proxy = make_proxy(0);
    proxy->bus_setup(bridge.m_bus_connection);
    EXPECT_EQ(proxy->get_bus_proxy(), nullptr);
}

TEST_F(child_proxy, Is_deleted_with_its_bus_proxy) {
    auto proxy = make_proxy(some_pid);
    proxy->bus_setup(bridge.m_bus_connection);
    DBusGProxy* bus_proxy = proxy->get_bus_proxy();
    g_object_add_weak_pointer(G_OBJECT(bus_proxy), reinterpret_cast<gpointer*>(&bus_proxy));

    proxy.reset();

    EXPECT_EQ(bus_proxy, nullptr);
}

TEST_F(met_child_proxy, Hands_signals_of_the_child_to_the_bridge) {
    raise_signal();
    EXPECT_THAT(bridge.signals, ElementsAre(Pair(5, "hello")));
}

TEST_F(met_child_proxy, That_is_set_up_again_hears_a_signal_once) {
    proxy().bus_setup(bridge.m_bus_connection);
    raise_signal();
    EXPECT_THAT(bridge.signals, ElementsAre(Pair(5, "hello")));
}

TEST_F(met_child_proxy, That_is_set_up_again_releases_the_former_bus_proxy) {
    DBusGProxy* former = proxy().get_bus_proxy();
    g_object_add_weak_pointer(G_OBJECT(former), reinterpret_cast<gpointer*>(&former));

    proxy().bus_setup(bridge.m_bus_connection);

    EXPECT_EQ(former, nullptr);
    EXPECT_EQ(bridge.ask(CHILD_ECHO, "still there"), "still there");
}

TEST_F(met_child_proxy, Hears_nothing_once_its_bus_proxy_is_destroyed) {
    proxy().bus_destroy();
    raise_signal_through_another();
    EXPECT_THAT(bridge.signals, ElementsAre(Pair(5, "hello")));
}

TEST_F(met_child_proxy, Hears_nothing_through_a_destroyed_bus_proxy_that_somebody_else_keeps) {
    auto* kept = static_cast<DBusGProxy*>(g_object_ref(proxy().get_bus_proxy()));
    proxy().bus_destroy();
    raise_signal_through_another();
    EXPECT_THAT(bridge.signals, ElementsAre(Pair(5, "hello")));
    g_object_unref(kept);
}

TEST_F(met_child_proxy, Hears_its_own_child_only) {
    recording_bridge other;
    ASSERT_TRUE(other.spawn_and_meet());

    raise_signal();

    EXPECT_THAT(bridge.signals, ElementsAre(Pair(5, "hello")));
    EXPECT_THAT(other.signals, ElementsAre());
}
