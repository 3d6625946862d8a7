// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LOG_CATCHER_H
#define VASK_TEST_LOG_CATCHER_H

#include <gmock/gmock.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace vask_test {

/**
 * One logged message. Output without a header of the library has neither level nor name, and
 * pid 0. The pid takes no part in comparisons.
 */
struct log_line {
    std::string level;
    std::string name;
    int pid = 0;
    std::string text;
};

bool operator==(const log_line& a, const log_line& b);
void PrintTo(const log_line& line, std::ostream* out);

log_line line(const std::string& level, const std::string& name, const std::string& text);

template <typename Text>
testing::Matcher<const log_line&> logged(const std::string& level, const std::string& name,
                                         const Text& text) {
    return testing::AllOf(testing::Field("level", &log_line::level, level),
                          testing::Field("name", &log_line::name, name),
                          testing::Field("text", &log_line::text, text));
}

std::vector<log_line> parse_log(const std::string& text);

/**
 * Collects what this process and its children write to standard output while the object lives.
 * Failure messages of the test are let through; a failed test shows the collected text at the end.
 */
class log_catcher {
public:
    log_catcher();
    ~log_catcher();
    log_catcher(const log_catcher&) = delete;
    log_catcher& operator=(const log_catcher&) = delete;

    std::string text() const;
    std::vector<log_line> lines() const { return parse_log(text()); }
    void clear();

    /** While suspended, standard output is what it was before the outermost catcher. */
    static void suspend();
    static void resume();

private:
    log_catcher* m_outer;
    int m_memory;
    int m_original;
    int m_original_flags;
};

}  // namespace vask_test

#endif
