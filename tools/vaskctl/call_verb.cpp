// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "bus/bus_names.h"
#include "bus_link.h"
#include "command_line.h"
#include "complaint.h"
#include "json_writer.h"
#include "printable.h"
#include "process_table.h"
#include "target.h"
#include "terminal.h"
#include "vask_child_cmd.h"
#include "verbs.h"

namespace vaskctl {

namespace {

constexpr int usual_timeout_msec = 25000;
constexpr int bus_timeout_msec = 5000;

// The bus drops whoever sends a longer one.
constexpr std::size_t longest_argument = std::size_t{64} << 20;

struct command {
    int pid;
    int id;
    std::string argument;
};

command parse_command(const command_line& line) {
    const std::vector<std::string>& words = line.words();
    const long long id = parse_number(words[1], "a command number");
    if (id < INT_MIN || id > INT_MAX) {
        throw complaint(status_usage, "'" + words[1] + "' is not a command number");
    }
    const std::string argument = words.size() > 2 ? words[2] : "";
    if (!g_utf8_validate(argument.c_str(), -1, nullptr) || argument.size() > longest_argument) {
        throw complaint(status_usage,
                        "the argument cannot travel: it has to be UTF-8, and no "
                        "longer than 64 MiB");
    }
    const target wanted(words[0]);
    return {wanted.find(), static_cast<int>(id), argument};
}

std::string problem_of(const GError* error) {
    gchar* name =
        g_dbus_error_is_remote_error(error) ? g_dbus_error_get_remote_error(error) : nullptr;
    const std::string text = name != nullptr ? name : "";
    g_free(name);
    return text;
}

bool is_one_of(const std::string& name, std::initializer_list<const char*> wanted) {
    for (const char* each : wanted) {
        if (name == each) {
            return true;
        }
    }
    return false;
}

[[noreturn]] void complain(const command& sent, const GError* error, int timeout_msec) {
    const std::string name = problem_of(error);
    const std::string child = process_table().describe(sent.pid);
    if (is_one_of(name, {"org.freedesktop.DBus.Error.ServiceUnknown",
                         "org.freedesktop.DBus.Error.NameHasNoOwner"})) {
        throw complaint(status_no_such_child,
                        child + " is not on this session bus; see \"vaskctl tree\"");
    }
    if (is_one_of(name, {"org.freedesktop.DBus.Error.NoReply"})) {
        throw complaint(status_failed, child + " has ended before it replied");
    }
    if (name.empty() && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) {
        throw complaint(status_timed_out, child + " has not replied within " +
                                              std::to_string(timeout_msec) +
                                              " ms; \"vaskctl tree\" shows whether it is stopped");
    }
    if (name.empty()) {
        throw complaint(status_no_bus, std::string("the session bus fails: ") + error->message);
    }
    throw complaint(status_refused, child + " has refused command " + std::to_string(sent.id) +
                                        ": its handler failed, or it has none");
}

void print_reply(const command& sent, const call_result& result, bool as_json) {
    const std::string reply = text_in(result.reply);
    if (!as_json) {
        // A terminal obeys control characters.
        printf("%s\n", is_terminal() ? printable(reply, std::string::npos).c_str() : reply.c_str());
        return;
    }
    json_writer json;
    json.begin_object();
    json.add_member("pid", sent.pid);
    json.add_member("command", sent.id);
    json.add_member("reply", reply);
    json.add_member("usec", static_cast<std::int64_t>(result.msec * 1000));
    json.end_object();
    json.print_line();
}

}  // namespace

int run_call(const std::vector<std::string>& words) {
    command_line line("call", "TARGET COMMAND [ARGUMENT]",
                      "Sends a command to a child and prints its reply. TARGET is a process id, a "
                      "program or PROGRAM:KEY,\nCOMMAND a number.\n\nThe exit status is 3 when "
                      "there is no such child, 4 when it refuses, 5 when it has not replied "
                      "in time,\n6 without a session bus.");
    int timeout_msec = usual_timeout_msec;
    line.add_number("timeout", "How long to wait for the reply (25000)", "MSEC", &timeout_msec);
    line.parse(words);
    line.expect_words(2, 3);
    if (timeout_msec <= 0) {
        throw complaint(status_usage, "a timeout is a number of milliseconds above 0");
    }

    const command sent = parse_command(line);
    bus_link link{deadline(bus_timeout_msec)};
    link.call(
        vask_child_cmd_base::make_dbus_servie_name(sent.pid), VASK_CHILD_PATH, VASK_CHILD_INTERFACE,
        "Command", g_variant_new("(is)", sent.id, sent.argument.c_str()),
        [&](const call_result& result) {
            if (result.reply == nullptr) {
                complain(sent, result.error, timeout_msec);
            }
            print_reply(sent, result, line.json);
        },
        timeout_msec);
    link.wait(deadline(gint64{timeout_msec} + bus_timeout_msec));
    return status_done;
}

int run_send(const std::vector<std::string>& words) {
    command_line line("send", "TARGET COMMAND [ARGUMENT]",
                      "Sends a command to a child that is not to reply. TARGET is a process id, a "
                      "program or PROGRAM:KEY,\nCOMMAND a number. What becomes of it is not told.");
    line.parse(words);
    line.expect_words(2, 3);

    const command sent = parse_command(line);
    bus_link link{deadline(bus_timeout_msec)};
    const std::string name = vask_child_cmd_base::make_dbus_servie_name(sent.pid);
    bool is_there = false;
    link.call_bus("NameHasOwner", g_variant_new("(s)", name.c_str()),
                  [&is_there](const call_result& result) {
                      gboolean has_owner = FALSE;
                      if (result.reply != nullptr) {
                          g_variant_get(result.reply, "(b)", &has_owner);
                      }
                      is_there = has_owner != FALSE;
                  });
    link.wait(deadline(bus_timeout_msec));
    if (!is_there) {
        throw complaint(status_no_such_child, process_table().describe(sent.pid) +
                                                  " is not on this session bus; see \"vaskctl "
                                                  "tree\"");
    }
    link.send(name, VASK_CHILD_PATH, VASK_CHILD_INTERFACE, "Command",
              g_variant_new("(is)", sent.id, sent.argument.c_str()));
    return status_done;
}

}  // namespace vaskctl
