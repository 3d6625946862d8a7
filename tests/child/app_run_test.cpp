// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib-object.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <type_traits>

#include "support/interpose.h"
#include "support/open_app.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

static_assert(!std::is_copy_constructible<vask_app>::value, "an application is one thing");
static_assert(!std::is_copy_assignable<vask_app>::value, "an application is one thing");

namespace {

int type_system_inits = 0;
int loops_created = 0;
int loops_released = 0;

gboolean call_function(gpointer function) {
    (*static_cast<std::function<void()>*>(function))();
    return G_SOURCE_REMOVE;
}

/** Runs the application, with one call from its main loop. */
int run_with(vask_app& app, std::function<void()> from_the_loop) {
    g_idle_add(call_function, &from_the_loop);
    return app.run();
}

}  // namespace

extern "C" void g_type_init() {
    ++type_system_inits;
}

extern "C" GMainLoop* g_main_loop_new(GMainContext* context, gboolean is_running) {
    ++loops_created;
    return next_function<GMainLoop*(GMainContext*, gboolean)>("g_main_loop_new")(context,
                                                                                 is_running);
}

extern "C" void g_main_loop_unref(GMainLoop* loop) {
    ++loops_released;
    next_function<void(GMainLoop*)>("g_main_loop_unref")(loop);
}

TEST(application, Starts_out_sound_and_without_a_loop) {
    open_app app(command_line{"program"});
    EXPECT_FALSE(app.init_failed());
    EXPECT_EQ(app.m_exit_code, 0);
    EXPECT_FALSE(app.m_arg_error_fatal);
    EXPECT_FALSE(app.m_no_sys_init);
    EXPECT_EQ(app.m_main_loop, nullptr);
}

TEST(application, Carries_its_name_in_diagnostics) {
    vask_app app("a name", 0, nullptr);
    log_catcher log;
    app.vask_p(VASK_P_INFO, "text\n");
    EXPECT_THAT(log.lines(), ElementsAre(line("INFO", "a name", "text")));
}

TEST(application, Logs_its_end_under_its_name) {
    auto* app = new open_app(command_line{"program"});
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;
    delete app;
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "app", "virtual vask_object::~vask_object()")));
}

TEST(application, Initialises_the_type_system_once_per_object) {
    open_app first(command_line{"program"});
    EXPECT_EQ(type_system_inits, 1);
    open_app second(command_line{"program"});
    EXPECT_EQ(type_system_inits, 2);
}

TEST(application, Leaves_the_type_system_alone_with_the_marker_as_its_name) {
    open_app app(command_line{no_sys_init_marker, "argument"});
    EXPECT_TRUE(app.m_no_sys_init);
    EXPECT_EQ(type_system_inits, 0);
    EXPECT_THAT(app.m_args, ElementsAre("argument"));
}

TEST(application, Takes_the_marker_behind_its_name_for_an_argument) {
    open_app app(command_line{"program", no_sys_init_marker});
    EXPECT_FALSE(app.m_no_sys_init);
    EXPECT_EQ(type_system_inits, 1);
    EXPECT_THAT(app.m_args, ElementsAre(no_sys_init_marker));
}

TEST(application, Compares_the_marker_as_a_whole) {
    EXPECT_FALSE(open_app(command_line{"--vask-app-no-sys-init2"}).m_no_sys_init);
    EXPECT_FALSE(open_app(command_line{"--vask-app-no-sys-ini"}).m_no_sys_init);
    EXPECT_FALSE(open_app(command_line{"/bin/--vask-app-no-sys-init"}).m_no_sys_init);
    EXPECT_EQ(type_system_inits, 3);
}

TEST(application, Does_without_a_program_name) {
    std::string argument = "argument";
    char* argv[] = {nullptr, &argument[0], nullptr};
    open_app app(2, argv);
    EXPECT_FALSE(app.m_no_sys_init);
    EXPECT_EQ(type_system_inits, 1);
    EXPECT_THAT(app.m_args, ElementsAre("argument"));
}

TEST(application, Ends_with_the_code_of_a_quit_request) {
    open_app app(command_line{"program"});
    EXPECT_EQ(run_with(app, [&app] { app.app_quit_request(5); }), 5);
}

TEST(application, Runs_the_default_main_context_while_it_runs) {
    open_app app(command_line{"program"});
    bool running = false;
    run_with(app, [&] {
        running = app.m_main_loop && g_main_loop_is_running(app.m_main_loop) &&
                  g_main_loop_get_context(app.m_main_loop) == g_main_context_default();
        app.app_quit_request(0);
    });
    EXPECT_TRUE(running);
}

TEST(application, Keeps_its_loop_when_it_has_ended) {
    open_app app(command_line{"program"});
    run_with(app, [&app] { app.app_quit_request(0); });
    ASSERT_NE(app.m_main_loop, nullptr);
    EXPECT_FALSE(g_main_loop_is_running(app.m_main_loop));
}

TEST(application, Ends_with_the_last_of_several_requests) {
    open_app app(command_line{"program"});
    const int code = run_with(app, [&app] {
        app.app_quit_request(5);
        app.app_quit_request(6);
    });
    EXPECT_EQ(code, 6);
}

TEST(application, Fails_at_once_when_its_construction_failed) {
    open_app app(command_line{"program"});
    app.app_quit_request(5);
    app.m_init_ok = false;
    EXPECT_TRUE(app.init_failed());
    EXPECT_EQ(app.run(), 1);
    EXPECT_EQ(loops_created, 0);
}

TEST(application, Runs_although_arguments_are_missing_unless_that_is_fatal) {
    open_app app(command_line{"program", "one", "two", "three"});
    app.arg_iter_begin();
    app.arg_iter_inc(1);
    EXPECT_FALSE(app.arg_iter_chk_num_rest(2, nullptr));
    EXPECT_EQ(run_with(app, [&app] { app.app_quit_request(5); }), 5);

    app.set_arg_error_fatal(true);
    EXPECT_FALSE(app.arg_iter_chk_num_rest(2, nullptr));
    EXPECT_EQ(app.run(), 1);
}

TEST(application, Only_stores_the_code_of_a_quit_request_before_it_runs) {
    open_app app(command_line{"program"});
    app.app_quit_request(5);
    EXPECT_EQ(app.m_exit_code, 5);
    EXPECT_EQ(app.m_main_loop, nullptr);

    GMainLoop* running = nullptr;
    const int code = run_with(app, [&] {
        running = app.m_main_loop;
        g_main_loop_quit(app.m_main_loop);
    });
    EXPECT_NE(running, nullptr);
    EXPECT_EQ(code, 5);
}

TEST(application, Can_run_again) {
    open_app app(command_line{"program"});
    EXPECT_EQ(run_with(app, [&app] { app.app_quit_request(5); }), 5);
    EXPECT_EQ(run_with(app, [&app] { app.app_quit_request(6); }), 6);
}

TEST(application, Releases_every_loop_it_has_created) {
    {
        open_app app(command_line{"program"});
        run_with(app, [&app] { app.app_quit_request(0); });
        run_with(app, [&app] { app.app_quit_request(0); });
    }
    EXPECT_EQ(loops_created, 2);
    EXPECT_EQ(loops_released, 2);
}

TEST(application, That_never_ran_releases_nothing) {
    delete new open_app(command_line{"program"});
    EXPECT_EQ(loops_released, 0);
}

TEST(application, Runs_what_a_subclass_makes_of_run) {
    struct own_run : vask_app {
        own_run() : vask_app("app", 0, nullptr) {}
        int run() override { return 42; }
    } app;
    vask_app& base = app;
    EXPECT_EQ(base.run(), 42);
}
