// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "../programs/child_servant_commands.h"
#include "support/test_program.h"
#include "vask_test/served_child.h"
#include "vask_test/started_process.h"

using namespace vask_test;

namespace {

struct node_unref {
    void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
};

std::string arguments(const char* direction, GDBusArgInfo** list) {
    std::string text;
    for (; list && *list; ++list) {
        text += std::string(direction) + (*list)->name + " " + (*list)->signature + "\n";
    }
    return text;
}

// The names of a signal's arguments do not reach the bus, only their types.
std::string types(GDBusArgInfo** list) {
    std::string text;
    for (; list && *list; ++list) {
        text += std::string("  ") + (*list)->signature + "\n";
    }
    return text;
}

/** The child interface in a description, as text of our own, or what is wrong with it. */
std::string child_interface_in(const std::string& xml) {
    GError* error = nullptr;
    const std::unique_ptr<GDBusNodeInfo, node_unref> node(
        g_dbus_node_info_new_for_xml(xml.c_str(), &error));
    if (!node) {
        const std::string reason = error->message;
        g_error_free(error);
        return reason + " in " + xml;
    }
    const GDBusInterfaceInfo* interface =
        g_dbus_node_info_lookup_interface(node.get(), child_interface);
    if (!interface) {
        return "no child interface";
    }
    // In no order that anybody could rely on.
    std::set<std::string> members;
    for (GDBusMethodInfo** method = interface->methods; method && *method; ++method) {
        members.insert(std::string("method ") + (*method)->name + "\n" +
                       arguments("  in ", (*method)->in_args) +
                       arguments("  out ", (*method)->out_args));
    }
    for (GDBusSignalInfo** signal = interface->signals; signal && *signal; ++signal) {
        members.insert(std::string("signal ") + (*signal)->name + "\n" + types((*signal)->args));
    }
    for (GDBusPropertyInfo** property = interface->properties; property && *property; ++property) {
        members.insert(std::string("property ") + (*property)->name + "\n");
    }
    return std::accumulate(members.begin(), members.end(), std::string());
}

const char expected_interface[] =
    "method Command\n"
    "  in CommandId i\n"
    "  in Argument s\n"
    "  out Reply s\n"
    "method SetWindow\n"
    "  in x i\n"
    "  in y i\n"
    "  in w i\n"
    "  in h i\n"
    "  in id u\n"
    "signal ChildSignal\n"
    "  i\n"
    "  s\n";

std::vector<std::string> interfaces_in(const std::string& xml) {
    std::vector<std::string> names;
    const std::unique_ptr<GDBusNodeInfo, node_unref> node(
        g_dbus_node_info_new_for_xml(xml.c_str(), nullptr));
    for (GDBusInterfaceInfo** interface = node ? node->interfaces : nullptr;
         interface && *interface; ++interface) {
        names.push_back((*interface)->name);
    }
    return names;
}

std::string installed_description() {
    std::ifstream file(VASK_TEST_INTERFACE_XML);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string output_of(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "re");
    char buffer[4096];
    std::size_t length;
    while ((length = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        output.append(buffer, length);
    }
    pclose(pipe);
    return output;
}

bool is_there(const std::string& program) {
    return !output_of("command -v " + program).empty();
}

class running_child : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(client.wait_for_name(name)); }

    message_ptr properties_call(const char* method, const char* interface) {
        message_ptr message = child.new_call(DBUS_INTERFACE_PROPERTIES, method);
        dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &interface, DBUS_TYPE_INVALID);
        return message;
    }

    bus_reply get(const char* interface, const char* property) {
        message_ptr message = properties_call("Get", interface);
        dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &property, DBUS_TYPE_INVALID);
        return client.call(message);
    }

    bus_reply set(const char* interface, const char* property, const char* type,
                  const void* value) {
        message_ptr message = properties_call("Set", interface);
        dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &property, DBUS_TYPE_INVALID);
        DBusMessageIter end, variant;
        dbus_message_iter_init_append(message.get(), &end);
        dbus_message_iter_open_container(&end, DBUS_TYPE_VARIANT, type, &variant);
        dbus_message_iter_append_basic(&variant, type[0], value);
        dbus_message_iter_close_container(&end, &variant);
        return client.call(message);
    }

    void expect_alive() { EXPECT_EQ(child.command(SERVANT_LITERAL).text, servant_literal); }

    bus_client client;
    started_process process{test_program("child_servant"), {}};
    const std::string name = child_name(process.pid());
    served_child child{client, name};
};

const char* const property_names[] = {"obj_addr", "obj-addr", "ObjAddr", "objAddr"};
const char* const interface_names[] = {child_interface, "", "org.freedesktop.DBus.Properties",
                                       "VaskChild"};

}  // namespace

TEST(installed_interface, Is_that_of_a_child) {
    EXPECT_EQ(child_interface_in(installed_description()), expected_interface);
}

TEST(installed_interface, Is_at_the_path_of_a_child) {
    const std::unique_ptr<GDBusNodeInfo, node_unref> node(
        g_dbus_node_info_new_for_xml(installed_description().c_str(), nullptr));
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->path, child_path().c_str());
    EXPECT_THAT(interfaces_in(installed_description()), testing::ElementsAre(child_interface));
}

TEST_F(running_child, Has_the_installed_interface) {
    const bus_reply description = child.introspect();
    ASSERT_TRUE(description.ok) << description.error_name;
    EXPECT_EQ(child_interface_in(description.text), child_interface_in(installed_description()));
}

TEST_F(running_child, Has_no_interfaces_but_its_own_and_those_of_every_object) {
    EXPECT_THAT(interfaces_in(child.introspect().text),
                testing::UnorderedElementsAre(child_interface, DBUS_INTERFACE_INTROSPECTABLE,
                                              DBUS_INTERFACE_PROPERTIES));
}

TEST_F(running_child, Looks_the_same_to_an_independent_tool) {
    if (!is_there("gdbus")) {
        GTEST_SKIP() << "gdbus is not installed";
    }
    const std::string xml = output_of("gdbus introspect --session --xml --dest " + name +
                                      " --object-path " + child_path());
    EXPECT_EQ(child_interface_in(xml), expected_interface);
}

TEST_F(running_child, Lets_nobody_read_the_address_of_its_object) {
    for (const char* interface : interface_names) {
        for (const char* property : property_names) {
            EXPECT_FALSE(get(interface, property).ok) << interface << " " << property;
        }
    }
    expect_alive();
}

TEST_F(running_child, Lets_nobody_write_the_address_of_its_object) {
    const dbus_uint64_t address = 0x41414141;
    const dbus_uint32_t short_address = 0x41414141;
    const char* text = "AAAA";
    for (const char* interface : interface_names) {
        for (const char* property : property_names) {
            EXPECT_FALSE(set(interface, property, "t", &address).ok) << interface << property;
            EXPECT_FALSE(set(interface, property, "x", &address).ok) << interface << property;
            EXPECT_FALSE(set(interface, property, "u", &short_address).ok) << interface << property;
            EXPECT_FALSE(set(interface, property, "s", &text).ok) << interface << property;
        }
    }
    expect_alive();
}

TEST_F(running_child, Lists_no_properties) {
    for (const char* interface : interface_names) {
        const bus_reply reply = client.call(properties_call("GetAll", interface));
        EXPECT_TRUE(!reply.ok || reply.signature == "a{sv}") << reply.signature;
        EXPECT_EQ(reply.elements, 0) << interface;
    }
    expect_alive();
}
