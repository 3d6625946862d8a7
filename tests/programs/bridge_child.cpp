// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bridge_child_commands.h"
#include "end_with_parent.h"
#include "vask_child.h"

namespace {

constexpr useconds_t poll_interval_usec = 2000;

[[noreturn]] void sleep_for_ever() {
    for (;;) {
        pause();
    }
}

class bridge_child : public vask_child {
public:
    bridge_child(int argc, char** argv) : vask_child("bridge_child", argc, argv) {
        handle(CHILD_ECHO, &bridge_child::echo);
        handle(CHILD_FAIL, &bridge_child::fail);
        handle(CHILD_REPLY_NULL, &bridge_child::reply_null);
        handle(CHILD_REPLY_LITERAL, &bridge_child::reply_literal);
        handle(CHILD_REPLY_INVALID_UTF8, &bridge_child::reply_invalid_utf8);
        handle(CHILD_REPLY_AND_FAIL, &bridge_child::reply_and_fail);
        handle(CHILD_RAISE_SIGNAL, &bridge_child::raise_signal);
        handle(CHILD_RAISE_SIGNAL_WITHOUT_DATA, &bridge_child::raise_signal_without_data);
        handle(CHILD_REPORT_ENVIRONMENT, &bridge_child::report_environment);
        handle(CHILD_REPORT_JOURNAL, &bridge_child::report_journal);
        handle(CHILD_COUNT_JOURNAL, &bridge_child::count_journal);
        handle(CHILD_SLEEP_MSEC, &bridge_child::sleep_msec);
        handle(CHILD_ABORT, &bridge_child::abort_at_once);
        handle(CHILD_EXIT, &bridge_child::exit_at_once);
        handle(CHILD_QUIT, &bridge_child::quit);
        handle(CHILD_RELEASE_NAME, &bridge_child::release_name);
        handle(CHILD_REQUEST_NAME, &bridge_child::request_name);
        handle(CHILD_IGNORE_SIGTERM, &bridge_child::ignore_sigterm);
        handle(CHILD_RAISE_SIGNALS_AND_EXIT, &bridge_child::raise_signals_and_exit);
        handle(CHILD_RAISE_SIGNALS_AND_EXIT_LATER, &bridge_child::raise_signals_and_exit_later);
        handle(CHILD_LEAVE_CONNECTION_OPEN, &bridge_child::leave_connection_open);
    }

    bool command(int id, const char* argument, const char** reply) override {
        if (id != CHILD_REPORT_JOURNAL && id != CHILD_COUNT_JOURNAL) {
            m_journal.push_back("Command " + std::to_string(id) + " " + argument);
        }
        return vask_child::command(id, argument, reply);
    }

    void set_window(int x, int y, int w, int h, unsigned int id) override {
        char line[100];
        snprintf(line, sizeof(line), "SetWindow %d %d %d %d %u", x, y, w, h, id);
        m_journal.push_back(line);
    }

private:
    typedef bool (bridge_child::*handler)(const char* argument, const char** reply);

    void handle(int id, handler member) { add_cmd_handler(id, static_cast<cmd_handler>(member)); }

    bool reply_text(const std::string& text, const char** reply) {
        m_reply = text;
        *reply = m_reply.c_str();
        return true;
    }

    bool echo(const char* argument, const char** reply) { return reply_text(argument, reply); }

    bool fail(const char*, const char**) { return false; }

    bool reply_null(const char*, const char**) { return true; }

    bool reply_literal(const char*, const char** reply) {
        *reply = bridge_child_literal;
        return true;
    }

    bool reply_invalid_utf8(const char*, const char** reply) {
        *reply = "\xff\xfe";
        return true;
    }

    bool reply_and_fail(const char*, const char** reply) {
        *reply = "a reply of a handler that fails";
        return false;
    }

    bool raise_signal(const char* argument, const char**) {
        const char* blank = strchr(argument, ' ');
        emit_signal(atoi(argument), blank != nullptr ? blank + 1 : "");
        return true;
    }

    bool raise_signal_without_data(const char* argument, const char**) {
        emit_signal(atoi(argument), nullptr);
        return true;
    }

    bool report_environment(const char*, const char** reply) {
        std::string text;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            text += std::string(*entry) + "\n";
        }
        return reply_text(text, reply);
    }

    bool report_journal(const char*, const char** reply) {
        std::string text;
        for (const std::string& line : m_journal) {
            text += line + "\n";
        }
        return reply_text(text, reply);
    }

    bool count_journal(const char*, const char** reply) {
        return reply_text(std::to_string(m_journal.size()), reply);
    }

    bool sleep_msec(const char* argument, const char**) {
        usleep(static_cast<useconds_t>(atoi(argument)) * 1000);
        return true;
    }

    bool abort_at_once(const char*, const char**) { abort(); }

    bool exit_at_once(const char* argument, const char**) { _exit(atoi(argument)); }

    bool quit(const char* argument, const char**) {
        app_quit_request(atoi(argument));
        return true;
    }

    static std::string own_name() { return "com.example.vask.Child_" + std::to_string(getpid()); }

    bool release_name(const char*, const char**) {
        DBusConnection* connection = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
        const int result = dbus_bus_release_name(connection, own_name().c_str(), nullptr);
        dbus_connection_unref(connection);
        return result == DBUS_RELEASE_NAME_REPLY_RELEASED;
    }

    bool request_name(const char*, const char**) {
        DBusConnection* connection = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
        const int result = dbus_bus_request_name(connection, own_name().c_str(),
                                                 DBUS_NAME_FLAG_REPLACE_EXISTING, nullptr);
        dbus_connection_unref(connection);
        return result == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER;
    }

    bool ignore_sigterm(const char*, const char**) {
        signal(SIGTERM, SIG_IGN);
        return true;
    }

    bool raise_signals_and_exit(const char* argument, const char**) {
        const int count = atoi(argument);
        for (int i = 1; i <= count; ++i) {
            emit_signal(1, std::to_string(i).c_str());
        }
        DBusConnection* connection = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
        dbus_connection_flush(connection);
        _exit(0);
    }

    bool raise_signals_and_exit_later(const char* argument, const char** reply) {
        const char* path = strchr(argument, ' ') + 1;
        fclose(fopen(path, "w"));
        while (access(path, F_OK) == 0) {
            usleep(poll_interval_usec);
        }
        return raise_signals_and_exit(argument, reply);
    }

    bool leave_connection_open(const char*, const char** reply) {
        const pid_t keeper = fork();
        if (keeper == 0) {
            sleep_for_ever();
        }
        return reply_text(std::to_string(keeper), reply);
    }

    std::string m_reply;
    std::vector<std::string> m_journal;
};

void obey_arguments(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : "";
        if (option == "--join-after-msec") {
            usleep(static_cast<useconds_t>(atoi(value)) * 1000);
        } else if (option == "--join-after-file") {
            while (access(value, F_OK) != 0) {
                usleep(poll_interval_usec);
            }
        } else if (option == "--no-bus") {
            sleep_for_ever();
        } else if (option == "--ignore-sigterm") {
            signal(SIGTERM, SIG_IGN);
        } else if (option == "--exit") {
            _exit(atoi(value));
        } else if (option == "--abort") {
            abort();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    end_with_parent();
    obey_arguments(argc, argv);
    bridge_child child(argc, argv);
    return child.run();
}
