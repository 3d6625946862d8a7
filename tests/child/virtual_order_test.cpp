// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Applications that were built against an earlier library call virtual operations by their slots.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "support/open_app.h"
#include "support/virtual_table.h"
#include "vask_app_bridge.h"
#include "vask_child.h"
#include "vask_child_cmd.h"
#include "vask_error.h"
#include "vask_exec.h"
#include "vask_socket.h"
#include "vask_window_props.h"

using namespace vask_test;
using testing::AnyOf;
using testing::ElementsAre;

namespace {

/** The pointer to a virtual member is its place in the table, in bytes. Most processors add one. */
template <typename Member>
std::size_t slot_number(Member member) {
    std::size_t place;
    std::memcpy(&place, &member, sizeof place);
    return place / sizeof(slot);
}

}  // namespace

// Every destructor has two slots: one leaves the memory alone, the other one frees it.

TEST(virtual_order, Of_the_base_object) {
    const vask_object object;
    EXPECT_THAT(virtual_functions(object),
                ElementsAre("vask_object::~vask_object()", "vask_object::~vask_object()"));
}

TEST(virtual_order, Of_an_abstract_error) {
    // There are no objects of this class: the destructor's slots show in those of its subclass.
    EXPECT_EQ(slot_number(&vask_abstract_error::clone), 2u);
}

TEST(virtual_order, Of_an_error) {
    const vask_error error;
    // It adds nothing to the destructor of its base class, which may stand in its place.
    EXPECT_THAT(virtual_functions(error),
                ElementsAre(AnyOf("vask_error::~vask_error()",
                                  "vask_abstract_error::~vask_abstract_error()"),
                            "vask_error::~vask_error()", "vask_error::clone() const"));
}

TEST(virtual_order, Of_an_application) {
    const vask_app app("app", 0, nullptr);
    EXPECT_THAT(virtual_functions(app),
                ElementsAre("vask_app::run()", "vask_app::~vask_app()", "vask_app::~vask_app()"));
}

TEST(virtual_order, Of_a_child) {
    command_line outside_the_bus{no_sys_init_marker};
    const vask_child child("child", outside_the_bus.argc(), outside_the_bus.argv());
    EXPECT_THAT(
        virtual_functions(child),
        ElementsAre(
            "vask_child::run()", "vask_child::~vask_child()", "vask_child::~vask_child()",
            "vask_child::emit_signal(int, char const*)",
            "vask_child::set_window(int, int, int, int, unsigned int)",
            "vask_child::command(int, char const*, char const**)",
            "vask_child::connect_child_signal(void (*)(vask_child*, int, char const*, void*), "
            "int, void*)",
            "vask_child::disconnect_child_signal(void (*)(vask_child*, int, char const*, void*), "
            "int, void*)"));
}

TEST(virtual_order, Of_window_properties) {
    const vask_window_props props;
    EXPECT_THAT(virtual_functions(props), ElementsAre("vask_window_props::~vask_window_props()",
                                                      "vask_window_props::~vask_window_props()"));
}

TEST(virtual_order, Of_a_child_proxy) {
    vask_app_bridge bridge("bridge", true);
    const vask_child_proxy proxy(bridge, "proxy", 0, 0);
    EXPECT_THAT(virtual_functions(proxy), ElementsAre("vask_child_proxy::~vask_child_proxy()",
                                                      "vask_child_proxy::~vask_child_proxy()"));
}

TEST(virtual_order, Of_a_bridge) {
    const vask_app_bridge bridge("bridge", true);
    EXPECT_THAT(
        virtual_functions(bridge),
        ElementsAre("vask_app_bridge::~vask_app_bridge()", "vask_app_bridge::~vask_app_bridge()",
                    "vask_app_bridge::child_signal(int, char const*)",
                    "vask_app_bridge::set_window(int, int, int, int, unsigned long)",
                    "vask_app_bridge::switch_main_worker()", "vask_app_bridge::child_exit_cb(bool)",
                    "vask_app_bridge::child_crash_cb(bool)",
                    "vask_app_bridge::terminate_worker_impl()"));
}

TEST(virtual_order, Of_a_controller) {
    const vask_child_cmd_base controller("controller", "program");
    EXPECT_THAT(virtual_functions(controller),
                ElementsAre("vask_child_cmd_base::~vask_child_cmd_base()",
                            "vask_child_cmd_base::~vask_child_cmd_base()"));
}

TEST(virtual_order, Of_a_controller_tool) {
    const vask_child_cmd tool("tool", "program", "1", true);
    EXPECT_THAT(virtual_functions(tool), ElementsAre("vask_child_cmd::~vask_child_cmd()",
                                                     "vask_child_cmd::~vask_child_cmd()"));
}

TEST(virtual_order, Of_a_deferred_call) {
    const vask_exec exec;
    EXPECT_THAT(virtual_functions(exec),
                ElementsAre("vask_exec::idle_callback()", "vask_exec::~vask_exec()",
                            "vask_exec::~vask_exec()"));
}

TEST(virtual_order, Of_a_socket) {
    const vask_socket socket(VASK_SOCK_TCP, 0, nullptr);
    EXPECT_THAT(virtual_functions(socket),
                ElementsAre("vask_exec::idle_callback()", "vask_socket::~vask_socket()",
                            "vask_socket::~vask_socket()", "vask_socket::read_done()"));
}

TEST(virtual_order, Of_a_server_socket) {
    const vask_server_socket server(VASK_SOCK_TCP, 0);
    EXPECT_THAT(
        virtual_functions(server),
        ElementsAre("vask_exec::idle_callback()", "vask_server_socket::~vask_server_socket()",
                    "vask_server_socket::~vask_server_socket()", "vask_server_socket::read_done()",
                    "vask_server_socket::accepted(_GIOChannel*, GIOCondition, bool)"));
}

TEST(virtual_order, Of_a_client_socket) {
    const vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, 0, nullptr);
    EXPECT_THAT(
        virtual_functions(client),
        ElementsAre("vask_exec::idle_callback()", "vask_client_socket::~vask_client_socket()",
                    "vask_client_socket::~vask_client_socket()", "vask_socket::read_done()"));
}
