// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::pair<dev_t, ino_t> stdout_identity() {
    struct stat info;
    fstat(STDOUT_FILENO, &info);
    return {info.st_dev, info.st_ino};
}

void write_raw(const std::string& text) {
    ASSERT_EQ(write(STDOUT_FILENO, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

}  // namespace

TEST(parse_log, Splits_lines) {
    EXPECT_THAT(parse_log("[vask:12] ERR: no such thing\n[child:345] DBG: fine\n"),
                ElementsAre(line("ERR", "vask", "no such thing"), line("DBG", "child", "fine")));
    EXPECT_THAT(parse_log(""), IsEmpty());
}

TEST(parse_log, Knows_all_levels) {
    for (const char* level : {"EMERG", "BUG", "FATAL", "ERR", "WARN", "NOTICE", "INFO", "DBG"}) {
        EXPECT_THAT(parse_log("[a:1] " + std::string(level) + ": x\n"),
                    ElementsAre(line(level, "a", "x")));
    }
    EXPECT_THAT(parse_log("[a:1] OTHER: x\n"), ElementsAre(line("", "", "[a:1] OTHER: x")));
}

TEST(parse_log, Splits_messages_without_line_end) {
    EXPECT_THAT(parse_log("[a:1] ERR: one[a:1] WARN: two: [b:2] INFO: three"),
                ElementsAre(line("ERR", "a", "one"), line("WARN", "a", "two: "),
                            line("INFO", "b", "three")));
}

TEST(parse_log, Keeps_empty_messages_and_brackets_in_the_text) {
    EXPECT_THAT(parse_log("[a:1] ERR: \n[a:1] ERR: x [1] [b:2] y\n"),
                ElementsAre(line("ERR", "a", ""), line("ERR", "a", "x [1] [b:2] y")));
}

TEST(parse_log, Skips_time_and_address) {
    EXPECT_THAT(parse_log("1700000000.123456 [a:1] ERR: x\n"
                          "17.123456 :0x7f00ab[a:1] ERR: y\n"
                          ":0x7f00ab[a:1] ERR: z"
                          "17.123456 [a:1:0x7f00ab] ERR: w\n"),
                ElementsAre(line("ERR", "a", "x"), line("ERR", "a", "y"), line("ERR", "a", "z"),
                            line("ERR", "a", "w")));
}

TEST(parse_log, Keeps_output_without_header) {
    EXPECT_THAT(parse_log("before\n[a:1] ERR: x\nafter\n\nend"),
                ElementsAre(line("", "", "before"), line("ERR", "a", "x"), line("", "", "after"),
                            line("", "", ""), line("", "", "end")));
}

TEST(parse_log, Tells_processes_apart) {
    const std::vector<log_line> lines = parse_log("[a:1] ERR: x\n[a:23] ERR: x\nplain\n");
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(lines[0].pid, 1);
    EXPECT_EQ(lines[1].pid, 23);
    EXPECT_EQ(lines[2].pid, 0);
    EXPECT_EQ(lines[0], lines[1]);
}

TEST(parse_log, Takes_lines_of_any_length) {
    const std::string list = "[" + std::string(300000, '1') + "\n";
    const std::string number = std::string(300000, '7') + "\n";
    EXPECT_THAT(
        parse_log(list + number + "[a:1] ERR: x\n"),
        ElementsAre(line("", "", list.substr(0, list.size() - 1)),
                    line("", "", number.substr(0, number.size() - 1)), line("ERR", "a", "x")));
}

TEST(parse_log, Takes_a_number_for_text_that_no_process_can_have) {
    EXPECT_THAT(parse_log("[a:99999999999] ERR: x\n"),
                ElementsAre(line("", "", "[a:99999999999] ERR: x")));
}

TEST(log_line, Is_readable_in_failures) {
    EXPECT_EQ(testing::PrintToString(line("ERR", "vask", "x")), "ERR [vask] \"x\"");
    EXPECT_EQ(testing::PrintToString(line("", "", "x")), "\"x\"");
}

TEST(logged, Matches_parts_of_the_text) {
    EXPECT_THAT(parse_log("[a:1] ERR: at 0x1234 lost\n"),
                ElementsAre(logged("ERR", "a", HasSubstr("lost"))));
    EXPECT_THAT(line("ERR", "a", "x"), testing::Not(logged("WARN", "a", "x")));
}

TEST(log_catcher, Collects_all_ways_of_writing_in_order) {
    log_catcher catcher;
    std::printf("[a:1] ERR: by stdio\n");
    std::fflush(stdout);
    write_raw("[a:1] ERR: raw\n");
    ASSERT_EQ(std::system("echo '[a:2] ERR: of a child'; echo late >> /proc/self/fd/1"), 0);
    std::printf("[a:1] ERR: unflushed");
    EXPECT_THAT(catcher.lines(), ElementsAre(line("ERR", "a", "by stdio"), line("ERR", "a", "raw"),
                                             line("ERR", "a", "of a child"), line("", "", "late"),
                                             line("ERR", "a", "unflushed")));
}

TEST(log_catcher, Forgets_what_is_cleared) {
    log_catcher catcher;
    write_raw("one");
    std::printf("two");
    catcher.clear();
    EXPECT_EQ(catcher.text(), "");
    write_raw("three");
    EXPECT_EQ(catcher.text(), "three");
}

TEST(log_catcher, Restores_standard_output) {
    const auto before = stdout_identity();
    fcntl(STDOUT_FILENO, F_SETFD, FD_CLOEXEC);
    {
        log_catcher catcher;
        EXPECT_NE(stdout_identity(), before);
        EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), 0);
    }
    EXPECT_EQ(stdout_identity(), before);
    EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), FD_CLOEXEC);
    fcntl(STDOUT_FILENO, F_SETFD, 0);
}

TEST(log_catcher, Can_be_nested) {
    log_catcher outer;
    write_raw("1");
    {
        log_catcher inner;
        write_raw("2");
        EXPECT_EQ(inner.text(), "2");
    }
    write_raw("3");
    EXPECT_EQ(outer.text(), "13");
}

TEST(log_catcher, May_end_before_one_that_began_later) {
    const auto before = stdout_identity();
    auto catcher = std::make_unique<log_catcher>();
    write_raw("1");
    catcher = std::make_unique<log_catcher>();
    write_raw("2");
    EXPECT_EQ(catcher->text(), "2");
    log_catcher::suspend();
    EXPECT_EQ(stdout_identity(), before);
    log_catcher::resume();
    catcher.reset();
    EXPECT_EQ(stdout_identity(), before);
}

TEST(log_catcher, Lets_test_failures_through) {
    const auto before = stdout_identity();
    log_catcher catcher;
    write_raw("1");
    log_catcher::suspend();
    EXPECT_EQ(stdout_identity(), before);
    log_catcher::resume();
    write_raw("2");
    EXPECT_EQ(catcher.text(), "12");
}
