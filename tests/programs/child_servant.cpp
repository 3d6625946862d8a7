// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A child for many tests: what it does depends on the commands that it gets, and on its arguments.

#include <glib-unix.h>
#include <signal.h>
#include <sys/time.h>
#include <vask_child.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "child_servant_commands.h"

namespace {

class servant : public vask_child {
public:
    servant(int argc, char** argv) : vask_child("child_servant", argc, argv) {
        add(SERVANT_ECHO, &servant::echo);
        add(SERVANT_NO_REPLY, &servant::no_reply);
        add(SERVANT_LITERAL, &servant::literal);
        add(SERVANT_FAIL, &servant::fail);
        add(SERVANT_INVALID_UTF8, &servant::invalid_utf8);
        add(SERVANT_EMIT, &servant::emit);
        add(SERVANT_EMIT_NULL, &servant::emit_null);
        add(SERVANT_EMIT_INVALID_UTF8, &servant::emit_invalid_utf8);
        add(SERVANT_LAST_WINDOW, &servant::last_window);
        add(SERVANT_QUIT, &servant::quit);
        add(SERVANT_LONG_REPLY, &servant::long_reply);
        add(SERVANT_LONG_FAREWELL, &servant::long_farewell);
        add(SERVANT_MANY_SIGNALS, &servant::many_signals);
        add(SERVANT_THROW, &servant::throw_argument);
        add(SERVANT_THROW_NUMBER, &servant::throw_number);
        add(SERVANT_THROW_IN_WINDOW, &servant::throw_in_window);
    }

    void emit_farewell() {
        const std::string text(farewell_signal_length, 'x');
        for (int i = 0; i < farewell_signals; ++i) {
            emit_signal(i, text.c_str());
        }
    }

    void set_window(int x, int y, int w, int h, unsigned int id) override {
        if (!m_window_exception.empty()) {
            const std::string what = std::exchange(m_window_exception, "");
            throw std::runtime_error(what);
        }
        m_window = vask_sprintf("%d %d %d %d %u", x, y, w, h, id);
    }

private:
    void add(int id, bool (servant::*handler)(const char*, const char**)) {
        add_cmd_handler(id, static_cast<cmd_handler>(handler));
    }

    bool echo(const char* argument, const char** reply) {
        m_reply = argument;
        *reply = m_reply.c_str();
        return true;
    }

    bool no_reply(const char*, const char**) { return true; }

    bool literal(const char*, const char** reply) {
        *reply = servant_literal;
        return true;
    }

    bool fail(const char*, const char** reply) {
        *reply = servant_literal;
        return false;
    }

    bool invalid_utf8(const char*, const char** reply) {
        *reply = text_that_is_not_utf8;
        return true;
    }

    bool emit(const char* argument, const char**) {
        emit_signal(7, argument);
        return true;
    }

    bool emit_null(const char*, const char**) {
        emit_signal(8, nullptr);
        return true;
    }

    bool emit_invalid_utf8(const char*, const char**) {
        emit_signal(9, text_that_is_not_utf8);
        return true;
    }

    bool last_window(const char*, const char** reply) {
        *reply = m_window.c_str();
        return true;
    }

    bool quit(const char* argument, const char**) {
        app_quit_request(std::stoi(argument));
        return true;
    }

    bool long_reply(const char* argument, const char** reply) {
        m_reply.assign(std::stoul(argument), 'x');
        *reply = m_reply.c_str();
        return true;
    }

    bool long_farewell(const char* argument, const char** reply) {
        app_quit_request(8);
        return long_reply(argument, reply);
    }

    bool many_signals(const char*, const char**) {
        emit_farewell();
        app_quit_request(9);
        return true;
    }

    bool throw_argument(const char* argument, const char**) { throw std::runtime_error(argument); }

    bool throw_number(const char*, const char**) { throw 1; }

    bool throw_in_window(const char* argument, const char**) {
        m_window_exception = argument;
        return true;
    }

    std::string m_reply;
    std::string m_window;
    std::string m_window_exception;
};

gboolean emit_farewell_and_quit(gpointer child) {
    static_cast<servant*>(child)->emit_farewell();
    static_cast<servant*>(child)->vask_p(VASK_P_INFO, "has said farewell\n");
    static_cast<servant*>(child)->app_quit_request(9);
    return G_SOURCE_REMOVE;
}

// Every 20 ms, and no system call goes on after it.
void raise_signals_all_the_time() {
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGALRM, &nothing, nullptr);
    const itimerval period = {{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &period, nullptr);
}

gboolean emit_and_quit(gpointer child) {
    static_cast<servant*>(child)->emit_signal(1, "data");
    static_cast<servant*>(child)->app_quit_request(4);
    return G_SOURCE_REMOVE;
}

void settle() {
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

gboolean settle_and_quit(gpointer app) {
    settle();
    static_cast<vask_app*>(app)->app_quit_request(6);
    return G_SOURCE_REMOVE;
}

// What a process does whose child has ended before it: here, wait for SIGUSR1.
int outlive_child(int argc, char** argv) {
    delete new servant(argc, argv);
    vask_app rest("rest", argc, argv);
    g_unix_signal_add(SIGUSR1, settle_and_quit, &rest);
    raise(SIGSTOP);
    return rest.run();
}

// A child that ends without a main loop.
int say_farewell_only(int argc, char** argv) {
    servant child(argc, argv);
    raise(SIGSTOP);
    child.emit_farewell();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--say-farewell-only") {
        return say_farewell_only(argc, argv);
    }
    if (argc > 1 && std::string(argv[1]) == "--outlive-child") {
        return outlive_child(argc, argv);
    }
    servant child(argc, argv);
    child.arg_iter_begin();
    const std::string wish = child.get_arg_num() > 0 ? child.arg_iter_elem() : "";
    if (wish == "--emit-and-quit") {
        g_idle_add(emit_and_quit, &child);
    }
    if (wish == "--farewell-at-usr1" || wish == "--farewell-at-usr1-with-signals") {
        g_unix_signal_add(SIGUSR1, emit_farewell_and_quit, &child);
        if (wish == "--farewell-at-usr1-with-signals") {
            raise_signals_all_the_time();
        }
        raise(SIGSTOP);
    }
    if (wish == "--stop-before-run") {
        raise(SIGSTOP);
    }
    if (wish == "--stop-and-settle-before-run") {
        raise(SIGSTOP);
        settle();
    }
    const int code = child.run();
    if (wish == "--emit-after-run") {
        child.emit_signal(2, "nobody hears it");
        child.vask_p(VASK_P_INFO, "run() has returned %d\n", code);
    }
    return code;
}
