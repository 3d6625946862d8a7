// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/c_border.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <stdexcept>

#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(c_border, A_call_that_returns_gives_its_result_without_a_line) {
    log_catcher log;
    EXPECT_EQ(call_for_c("callback()", -1, [] { return 7; }), 7);
    EXPECT_TRUE(call_for_c("callback()", [] {}));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(c_border, A_call_that_throws_has_failed_and_its_exception_is_one_line) {
    log_catcher log;
    EXPECT_EQ(call_for_c("callback()", -1, []() -> int { throw std::runtime_error("no paper"); }),
              -1);
    EXPECT_FALSE(call_for_c("callback()", [] { throw std::runtime_error("no ink"); }));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "vask", "callback(): An exception was thrown: no paper"),
                            line("ERR", "vask", "callback(): An exception was thrown: no ink")));
}

TEST(c_border, What_is_thrown_may_be_no_exception_of_the_standard_library) {
    log_catcher log;
    EXPECT_FALSE(call_for_c("callback()", [] { throw 5; }));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "vask", "callback(): An exception was thrown: unknown")));
}

TEST(c_border, A_thread_that_ends_inside_a_call_is_not_held_up) {
    log_catcher log;
    const auto body = [](void*) -> void* {
        call_for_c("callback()", [] { pthread_exit(nullptr); });
        return const_cast<char*>("went on");
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, body, nullptr), 0);
    void* result = const_cast<char*>("did not end");
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}
