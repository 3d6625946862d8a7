// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib-unix.h>
#include <signal.h>
#include <stdio.h>

#include <deque>
#include <memory>
#include <mutex>

#include "bus_link.h"
#include "bus_traffic.h"
#include "command_line.h"
#include "complaint.h"
#include "json_writer.h"
#include "printable.h"
#include "target.h"
#include "terminal.h"
#include "verbs.h"

namespace vaskctl {

namespace {

constexpr int bus_timeout_msec = 5000;

// Whoever does not read what is printed must not make the tool grow without limit.
constexpr std::size_t most_waiting = 100000;

struct heard {
    double time;
    std::shared_ptr<GDBusMessage> message;
};

// What GLib's thread hears, until the main loop has printed it.
class mailbox {
public:
    void put(const heard& each) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_waiting.size() >= most_waiting) {
            ++m_lost;
        } else {
            m_waiting.push_back(each);
        }
    }

    // False when there is nothing.
    bool take(heard& each, unsigned long& lost) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        lost = m_lost;
        m_lost = 0;
        if (m_waiting.empty()) {
            return false;
        }
        each = m_waiting.front();
        m_waiting.pop_front();
        return true;
    }

private:
    std::mutex m_mutex;
    std::deque<heard> m_waiting;
    unsigned long m_lost = 0;
};

void print_text(const traffic_event& event) {
    const std::string text = event.text ? " \"" + printable(*event.text) + "\"" : "";
    std::string line = coloured(decimal(event.time, 6), colour::faint) + " " +
                       coloured(printable(event.child), colour::bold) + ": " + event.what + text;
    if (!event.peer.empty()) {
        line += event.is_answer ? " to " : " from ";
        line += printable(event.peer);
    }
    if (event.msec) {
        line += " after " + decimal(*event.msec, 1) + " ms";
    }
    printf("%s\n", line.c_str());
}

void print_json(const traffic_event& event) {
    json_writer json;
    json.begin_object();
    json.add_member("time", decimal(event.time, 6));
    json.add_member("pid", event.pid);
    json.add_member("child", event.child);
    json.add_member("event", event.kind);
    json.add_member("number", event.number);
    json.add_member("text", event.text);
    json.add_member("window", event.window);
    json.add_member("peer", event.peer);
    json.end_object();
    json.print_line();
}

class monitor {
public:
    monitor(const command_line& line, int wanted_pid)
        : m_as_json(line.json), m_wanted_pid(wanted_pid) {}

    void run(bool has_legend) {
        m_names.begin();
        become_monitor();
        if (has_legend) {
            fprintf(stderr, "Monitoring; Ctrl-C ends it.\n");
        }
        g_unix_signal_add(SIGINT, _end, this);
        g_unix_signal_add(SIGTERM, _end, this);
        while (!m_is_over) {
            g_main_context_iteration(nullptr, TRUE);
            print_heard();
        }
        if (m_is_lost) {
            throw complaint(status_no_bus, "the session bus has gone away");
        }
    }

private:
    static gboolean _end(gpointer self) {
        static_cast<monitor*>(self)->m_is_over = true;
        return G_SOURCE_CONTINUE;
    }

    static void _closed(GDBusConnection*, gboolean, GError*, gpointer self) {
        static_cast<monitor*>(self)->m_is_over = true;
        static_cast<monitor*>(self)->m_is_lost = true;
    }

    // In GLib's thread. What is for others comes only to a monitor, and GLib must not see it: it
    // would answer, and the bus ends the connection of a monitor that sends.
    static GDBusMessage* _heard(GDBusConnection* connection, GDBusMessage* message,
                                gboolean is_incoming, gpointer self) {
        auto* own = static_cast<monitor*>(self);
        const bool is_own = g_strcmp0(g_dbus_message_get_destination(message),
                                      g_dbus_connection_get_unique_name(connection)) == 0;
        if (!is_incoming || is_own) {
            return message;
        }
        own->m_mailbox.put({static_cast<double>(g_get_monotonic_time()) / G_USEC_PER_SEC,
                            std::shared_ptr<GDBusMessage>(message, g_object_unref)});
        g_main_context_wakeup(nullptr);
        return nullptr;
    }

    void become_monitor() {
        GDBusConnection* connection = m_link.connection();
        g_dbus_connection_add_filter(connection, _heard, this, nullptr);
        g_signal_connect(connection, "closed", G_CALLBACK(_closed), this);
        GVariantBuilder rules;
        g_variant_builder_init(&rules, G_VARIANT_TYPE("as"));
        for (const char* rule : traffic_rules) {
            g_variant_builder_add(&rules, "s", rule);
        }
        std::string problem = "the session bus does not answer";
        m_link.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                    "org.freedesktop.DBus.Monitoring", "BecomeMonitor",
                    g_variant_new("(asu)", &rules, 0U), [&](const call_result& result) {
                        problem = result.error != nullptr ? result.error->message : "";
                    });
        m_link.wait(deadline(bus_timeout_msec));
        if (!problem.empty()) {
            throw complaint(status_no_bus, "the session bus does not let it listen: " + problem);
        }
    }

    void print(const traffic_event& event) const {
        if (m_as_json) {
            print_json(event);
        } else {
            print_text(event);
        }
    }

    void print_heard() {
        heard each;
        unsigned long lost = 0;
        while (m_mailbox.take(each, lost)) {
            for (const traffic_event& event : m_traffic.note(each.message.get(), each.time)) {
                if (m_wanted_pid == 0 || event.pid == m_wanted_pid) {
                    print(event);
                }
            }
        }
        if (lost > 0) {
            fprintf(stderr, "vaskctl: %lu messages were lost: read faster\n", lost);
        }
        fflush(stdout);
        m_is_over = m_is_over || ferror(stdout) != 0;
    }

    const bool m_as_json;
    const int m_wanted_pid;
    bus_names m_names;
    bus_traffic m_traffic{m_names};
    bool m_is_over = false;
    bool m_is_lost = false;
    mailbox m_mailbox;
    bus_link m_link{deadline(bus_timeout_msec)};
};

}  // namespace

int run_monitor(const std::vector<std::string>& words) {
    command_line line("monitor", "[TARGET]",
                      "Shows the commands, replies, window data and signals of all children, or of "
                      "one, and who comes and\ngoes, one a line, until Ctrl-C. The time is that of "
                      "the library's own lines with VASK_MSG_FLAGS=T.");
    line.parse(words);
    line.expect_words(0, 1);
    const int pid = line.words().empty() ? 0 : target(line.words()[0]).find();
    monitor(line, pid).run(line.has_legend());
    return status_done;
}

}  // namespace vaskctl
