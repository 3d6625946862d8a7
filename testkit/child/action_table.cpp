// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "action_table.h"

#include <dbus/dbus.h>
#include <glib.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "script_file.h"
#include "vask_version.h"

namespace vask_test {

namespace {

struct connection_unref {
    void operator()(DBusConnection* connection) const { dbus_connection_unref(connection); }
};

// The one that the child has.
std::unique_ptr<DBusConnection, connection_unref> session_bus() {
    std::unique_ptr<DBusConnection, connection_unref> bus(dbus_bus_get(DBUS_BUS_SESSION, nullptr));
    if (!bus) {
        throw std::runtime_error("there is no session bus");
    }
    return bus;
}

std::string own_name() {
    return std::string(vask_bus_prefix()) + ".vask.Child_" + std::to_string(getpid());
}

// Whoever asked for the crash does not want to keep it.
void leave_no_core() {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    prctl(PR_SET_DUMPABLE, 0);
}

bool is_number(const std::string& text) {
    try {
        std::size_t length = 0;
        std::stoi(text, &length);
        return length == text.size();
    } catch (const std::logic_error&) {
        return false;
    }
}

/** Whether there are the numbers that an action begins with. */
bool has_numbers(const action& given) {
    static const std::map<std::string, int> counts = {
        {"emit", 1}, {"flood", 2}, {"wait", 1}, {"exit", 1}, {"log", 1}};
    const bool may_have_one = given.verb == "crash" || given.verb == "quit";
    const auto known = counts.find(given.verb);
    int count = known == counts.end() ? may_have_one && !given.rest.empty() : known->second;
    std::string rest = given.rest;
    for (; count > 0; --count) {
        const action parts = parse_action(rest);
        if (!is_number(parts.verb)) {
            return false;
        }
        rest = parts.rest;
    }
    return true;
}

bool is_situation(const std::string& text) {
    const action parts = parse_action(text);
    if (parts.verb == "command") {
        return parts.rest.find_first_not_of("-0123456789") == std::string::npos;
    }
    return text == "start" || text == "window" || text == "sigterm";
}

}  // namespace

std::string find_unknown_action(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        const action next = parse_action(line);
        const bool is_head = next.verb == "at" || next.verb == "on";
        const bool is_empty = next.verb.empty() || next.verb[0] == '#';
        const bool is_known =
            is_head ? is_situation(next.rest) : action_table::has(next.verb) && has_numbers(next);
        if (!is_empty && !is_known) {
            return "what is '" + line + "'?";
        }
    }
    return "";
}

const std::map<std::string, action_table::function>& action_table::functions() {
    static const std::map<std::string, function> table = {
        {"reply", reply},
        {"echo", echo},
        {"fail", fail},
        {"emit", emit},
        {"flood", flood},
        {"wait", wait},
        {"hang", hang},
        {"stop", stop},
        {"crash", crash},
        {"exit", exit},
        {"quit", quit},
        {"ignore-sigterm", ignore_sigterm},
        {"join-bus", join_bus},
        {"stay-off-bus", stay_off_bus},
        {"release-name", release_name},
        {"take-name", take_name},
        {"lose-bus", lose_bus},
        {"log", log},
        {"print", print},
    };
    return table;
}

void action_table::perform(actor& self, const action& next) {
    const auto found = functions().find(next.verb);
    if (found == functions().end()) {
        throw std::runtime_error("it is unknown");
    }
    found->second(self, next.rest);
}

void action_table::reply(actor& self, const std::string& rest) {
    if (self.m_call) {
        self.m_reply = unescaped(rest);
        *self.m_call->reply = self.m_reply.c_str();
    }
}

void action_table::echo(actor& self, const std::string&) {
    if (self.m_call) {
        self.m_reply = self.m_call->argument;
        *self.m_call->reply = self.m_reply.c_str();
    }
}

void action_table::fail(actor& self, const std::string&) {
    if (self.m_call) {
        self.m_call->succeeds = false;
    }
}

void action_table::emit(actor& self, const std::string& rest) {
    const action signal = parse_action(rest);
    self.child().emit_signal(std::stoi(signal.verb), unescaped(signal.rest).c_str());
}

void action_table::flood(actor& self, const std::string& rest) {
    const action signal = parse_action(rest);
    const int id = std::stoi(signal.verb), count = std::stoi(signal.rest);
    for (int i = 1; i <= count; ++i) {
        self.child().emit_signal(id, std::to_string(i).c_str());
    }
}

void action_table::wait(actor&, const std::string& rest) {
    g_usleep(std::stoul(rest) * 1000);
}

void action_table::hang(actor&, const std::string&) {
    for (;;) {
        pause();
    }
}

void action_table::stop(actor&, const std::string&) {
    raise(SIGSTOP);
}

void action_table::crash(actor&, const std::string& rest) {
    const int number = rest.empty() ? SIGABRT : std::stoi(rest);
    leave_no_core();
    signal(number, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
    kill(getpid(), number);
    throw std::runtime_error("that signal ends nobody");
}

void action_table::exit(actor&, const std::string& rest) {
    _exit(std::stoi(rest));
}

void action_table::quit(actor& self, const std::string& rest) {
    self.quit(rest.empty() ? 0 : std::stoi(rest));
}

void action_table::ignore_sigterm(actor&, const std::string&) {
    signal(SIGTERM, SIG_IGN);
}

void action_table::join_bus(actor& self, const std::string&) {
    if (!self.m_child) {
        self.join();
    }
}

void action_table::stay_off_bus(actor& self, const std::string&) {
    self.m_stays_off_bus = true;
}

void action_table::release_name(actor&, const std::string&) {
    dbus_bus_release_name(session_bus().get(), own_name().c_str(), nullptr);
}

void action_table::take_name(actor&, const std::string&) {
    dbus_bus_request_name(session_bus().get(), own_name().c_str(), 0, nullptr);
}

// Nobody may close a connection that others share, but what it stands on can be cut.
void action_table::lose_bus(actor&, const std::string&) {
    int socket = -1;
    if (dbus_connection_get_unix_fd(session_bus().get(), &socket)) {
        shutdown(socket, SHUT_RDWR);
    }
}

void action_table::log(actor& self, const std::string& rest) {
    const action line = parse_action(rest);
    vask_object::vask_p(self.m_name.c_str(), static_cast<vask_print_level>(std::stoi(line.verb)),
                        "%s\n", unescaped(line.rest).c_str());
}

void action_table::print(actor&, const std::string& rest) {
    printf("%s\n", unescaped(rest).c_str());
    fflush(stdout);
}

}  // namespace vask_test
