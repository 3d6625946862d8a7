// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/named_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

std::string pid_text() {
    return std::to_string(getpid());
}

std::string pointer_text(const void* pointer) {
    char text[40];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}

/** A standard output that takes nothing, so that printing changes errno on its way. */
class full_standard_output {
public:
    full_standard_output() {
        fflush(stdout);
        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        dup2(full, STDOUT_FILENO);
        close(full);
    }
    ~full_standard_output() {
        dup2(m_original, STDOUT_FILENO);
        close(m_original);
        clearerr(stdout);
    }

private:
    const int m_original = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
};

}  // namespace

TEST(printed_message, Of_an_object_begins_with_its_name_the_process_id_and_the_level) {
    const named_object object("player");
    log_catcher log;
    object.vask_p(VASK_P_ERR, "Failed to send command %d: %s\n", 7, "gone");
    EXPECT_EQ(log.text(), "[player:" + pid_text() + "] ERR: Failed to send command 7: gone\n");
}

TEST(printed_message, Of_static_code_begins_with_the_given_name) {
    log_catcher log;
    vask_object::vask_p("vask", VASK_P_WARN, "<%s:%d> lost %.2f\n", "unit", 12, 0.5);
    EXPECT_EQ(log.text(), "[vask:" + pid_text() + "] WARN: <unit:12> lost 0.50\n");
}

TEST(printed_message, Shows_each_level_by_its_name) {
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;
    for (int level = VASK_P_EMERG; level <= VASK_P_DBG; ++level) {
        vask_object::vask_p("a", static_cast<vask_print_level>(level), "x\n");
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(line("EMERG", "a", "x"), line("BUG", "a", "x"), line("FATAL", "a", "x"),
                            line("ERR", "a", "x"), line("WARN", "a", "x"), line("NOTICE", "a", "x"),
                            line("INFO", "a", "x"), line("DBG", "a", "x")));
}

TEST(printed_message, Is_dropped_above_the_level_that_holds_without_settings) {
    const named_object object("a");
    log_catcher log;
    object.vask_p(VASK_P_DBG, "dropped\n");
    vask_object::vask_p("b", VASK_P_DBG, "dropped\n");
    object.vask_p(VASK_P_INFO, "printed\n");
    vask_object::vask_p("b", VASK_P_INFO, "printed\n");
    EXPECT_THAT(log.lines(),
                ElementsAre(line("INFO", "a", "printed"), line("INFO", "b", "printed")));
}

TEST(printed_message, Is_dropped_above_a_lower_level) {
    setenv("VASK_MSG_LV", "ERR", 1);
    const named_object object("a");
    log_catcher log;
    object.vask_p(VASK_P_WARN, "dropped\n");
    vask_object::vask_p("b", VASK_P_WARN, "dropped\n");
    object.vask_p(VASK_P_ERR, "printed\n");
    vask_object::vask_p("b", VASK_P_FATAL, "printed\n");
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "a", "printed"), line("FATAL", "b", "printed")));
}

TEST(printed_message, Ends_where_its_text_ends) {
    log_catcher log;
    vask_object::vask_p("a", VASK_P_ERR, "%s", "half");
    vask_object::vask_p("b", VASK_P_ERR, "%s", "");
    EXPECT_EQ(log.text(), "[a:" + pid_text() + "] ERR: half[b:" + pid_text() + "] ERR: ");
}

TEST(printed_message, Is_printed_whole_whatever_its_length) {
    const std::string text(100000, 'x');
    log_catcher log;
    vask_object::vask_p("a", VASK_P_ERR, "%s\n", text.c_str());
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "a", text)));
}

TEST(printed_message, Shows_percent_signs_of_names_and_arguments_as_they_are) {
    const named_object object("100%s");
    log_catcher log;
    object.vask_p(VASK_P_ERR, "%s\n", "50%d");
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "100%s", "50%d")));
}

TEST(printed_message, Shows_the_time_when_that_flag_is_set) {
    vask_object::print_flags = VASK_P_FLAG_TIME;
    log_catcher log;
    const double before = vask_object::vask_gettime(VASK_TIME_SEC);
    vask_object::vask_p("a", VASK_P_ERR, "x\n");
    const double after = vask_object::vask_gettime(VASK_TIME_SEC);
    const std::string text = log.text();
    ASSERT_THAT(text, MatchesRegex("[0-9]+\\.[0-9]{6} \\[a:" + pid_text() + "\\] ERR: x\n"));
    // The printed time is rounded to microseconds.
    EXPECT_GE(std::stod(text), before - 1e-6);
    EXPECT_LE(std::stod(text), after + 1e-6);
}

TEST(printed_message, Shows_the_address_of_its_object_when_that_flag_is_set) {
    vask_object::print_flags = VASK_P_FLAG_ADDR;
    const named_object object("a");
    log_catcher log;
    object.vask_p(VASK_P_ERR, "x\n");
    EXPECT_EQ(log.text(), "[a:" + pid_text() + ":" + pointer_text(&object) + "] ERR: x\n");
}

TEST(printed_message, Of_static_code_shows_the_null_address_when_that_flag_is_set) {
    vask_object::print_flags = VASK_P_FLAG_ADDR;
    log_catcher log;
    vask_object::vask_p("a", VASK_P_ERR, "x\n");
    EXPECT_EQ(log.text(), "[a:" + pid_text() + ":(nil)] ERR: x\n");
}

TEST(printed_message, Shows_time_and_address_when_both_flags_are_set) {
    setenv("VASK_MSG_FLAGS", "AT", 1);
    const named_object object("player");
    log_catcher log;
    object.vask_p(VASK_P_ERR, "Failed to send command %d: %s\n", 7, "gone");
    EXPECT_THAT(log.text(),
                MatchesRegex("[0-9]+\\.[0-9]{6} \\[player:" + pid_text() + ":" +
                             pointer_text(&object) + "\\] ERR: Failed to send command 7: gone\n"));
}

TEST(printed_message, Of_a_level_below_the_lowest_is_printed_without_a_level_name) {
    log_catcher log;
    vask_object::vask_p("a", static_cast<vask_print_level>(-1), "x\n");
    EXPECT_EQ(log.text(), "[a:" + pid_text() + "] (null): x\n");
}

TEST(printed_message, Of_a_level_above_the_highest_is_printed_only_if_the_print_level_allows_it) {
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;
    vask_object::vask_p("a", static_cast<vask_print_level>(8), "dropped\n");
    vask_object::print_msg_level = 8;
    vask_object::vask_p("a", static_cast<vask_print_level>(8), "x\n");
    EXPECT_EQ(log.text(), "[a:" + pid_text() + "] (null): x\n");
}

TEST(printed_message, Leaves_errno_alone) {
    const named_object object("a");
    log_catcher log;
    int after_member;
    int after_static;
    {
        full_standard_output full;
        errno = ENOTEMPTY;
        object.vask_p(VASK_P_ERR, "x\n");
        after_member = errno;
        errno = ENOTEMPTY;
        vask_object::vask_p("a", VASK_P_ERR, "x\n");
        after_static = errno;
    }
    EXPECT_EQ(after_member, ENOTEMPTY);
    EXPECT_EQ(after_static, ENOTEMPTY);
}

TEST(printed_message, Leaves_errno_alone_when_it_is_the_first_and_the_level_is_none) {
    setenv("VASK_MSG_LV", "18446744073709551617", 1);
    log_catcher log;
    errno = ENOTEMPTY;
    vask_object::vask_p("a", VASK_P_DBG, "x\n");
    EXPECT_EQ(errno, ENOTEMPTY);
}

TEST(process_id, Is_recorded_by_the_first_object) {
    vask_object object;
    EXPECT_EQ(vask_object::my_pid, getpid());
}

TEST(process_id, Is_recorded_by_the_first_static_message_that_is_printed) {
    log_catcher log;
    vask_object::vask_p("a", VASK_P_DBG, "dropped\n");
    EXPECT_EQ(vask_object::my_pid, 0);
    vask_object::vask_p("a", VASK_P_INFO, "printed\n");
    EXPECT_EQ(vask_object::my_pid, getpid());
    EXPECT_EQ(log.text(), "[a:" + pid_text() + "] INFO: printed\n");
}

TEST(process_id, Once_recorded_stays) {
    vask_object::my_pid = 4242;
    log_catcher log;
    const named_object object("a");
    object.vask_p(VASK_P_ERR, "x\n");
    vask_object::vask_p("b", VASK_P_ERR, "x\n");
    EXPECT_EQ(log.text(), "[a:4242] ERR: x\n[b:4242] ERR: x\n");
}

TEST(process_id, Of_the_parent_is_shown_by_a_forked_child) {
    const named_object object("a");
    log_catcher log;
    const pid_t child = fork();
    if (child == 0) {
        object.vask_p(VASK_P_ERR, "x\n");
        _exit(0);
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(log.text(), "[a:" + pid_text() + "] ERR: x\n");
}
