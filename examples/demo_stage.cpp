// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "demo_stage.h"

#include <glib-unix.h>
#include <glib.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

namespace demo_stage {

namespace {

constexpr int wait_deadline_sec = 30;
constexpr unsigned int step_deadline_sec = 60;
// Some conditions, the pixels of a window for one, change without waking the main loop.
constexpr unsigned int look_again_msec = 20;

bool stop_wanted = false;

gboolean note_stop(gpointer) {
    stop_wanted = true;
    return G_SOURCE_CONTINUE;
}

// Waits watch the clock themselves. This is for a call that never returns.
void on_step_deadline(int) {
    static const char message[] = "\nThe demonstration ends in this step, unfinished: it blocks.\n";
    const ssize_t written = write(STDOUT_FILENO, message, sizeof(message) - 1);
    _exit(written < 0 ? 2 : 1);
}

void run_main_loop_once(unsigned int at_most_msec) {
    bool timed_out = false;
    const guint timer = g_timeout_add(
        at_most_msec,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_CONTINUE;
        },
        &timed_out);
    g_main_context_iteration(nullptr, TRUE);
    g_source_remove(timer);
    if (stop_wanted) {
        throw demo_stopped("it was asked to stop");
    }
}

}  // namespace

void stop_on_signals() {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        g_unix_signal_add(number, note_stop, nullptr);
    }
    signal(SIGALRM, on_step_deadline);
}

void begin_step(int number, int total, const std::string& title) {
    printf("\n%2d/%d  %s\n", number, total, title.c_str());
    fflush(stdout);
    alarm(step_deadline_sec);
}

void say(const std::string& text) {
    printf("      parent: %s\n", text.c_str());
    fflush(stdout);
}

void expect(bool condition, const std::string& expectation) {
    if (!condition) {
        throw demo_stopped("expected that " + expectation);
    }
}

void expect_text(const std::string& text, const std::string& expected, const std::string& what) {
    expect(text == expected, what + " is \"" + expected + "\", but it is \"" + text + "\"");
}

bool wait_until(const std::function<bool()>& condition) {
    const gint64 deadline = g_get_monotonic_time() + wait_deadline_sec * G_USEC_PER_SEC;
    while (!condition()) {
        if (g_get_monotonic_time() > deadline) {
            return false;
        }
        run_main_loop_once(look_again_msec);
    }
    return true;
}

void pause(unsigned int msec) {
    const gint64 end = g_get_monotonic_time() + gint64{msec} * 1000;
    while (g_get_monotonic_time() < end) {
        run_main_loop_once(look_again_msec);
    }
}

}  // namespace demo_stage
