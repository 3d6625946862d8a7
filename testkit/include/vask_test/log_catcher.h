// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LOG_CATCHER_H
#define VASK_TEST_LOG_CATCHER_H

/**
 * @file
 * @brief Collecting what is printed, and reading the lines of the library in it.
 */

#include <iosfwd>
#include <string>
#include <vector>

namespace vask_test {

/**
 * One logged message. Output without a header of the library has neither level nor name, and
 * pid 0. The pid takes no part in comparisons.
 */
struct log_line {
    std::string level; /**< such as "ERR" */
    std::string name;  /**< of the object that logs */
    int pid = 0;       /**< of the process */
    std::string text;  /**< without the line end */
};

/** @param a,b  what is compared @return whether they are the same */
bool operator==(const log_line& a, const log_line& b);
/** For failure messages. @param line  what is shown @param out  where */
void PrintTo(const log_line& line, std::ostream* out);

/** @param level  such as "ERR" @param name  of the object that logs @param text  without line end
 *  @return a line to compare with */
log_line line(const std::string& level, const std::string& name, const std::string& text);

/** @param text  output of any kind @return its lines, in their order */
std::vector<log_line> parse_log(const std::string& text);

/**
 * Collects what this process and its children write to standard output while the object lives.
 * Within GoogleTest, after set_up_googletest(), failure messages are let through, and a failed test
 * shows the collected text at the end.
 */
class log_catcher {
public:
    log_catcher();
    ~log_catcher();
    log_catcher(const log_catcher&) = delete;
    log_catcher& operator=(const log_catcher&) = delete;

    /** @return what was written so far */
    std::string text() const;
    /** @return what was written so far, as lines */
    std::vector<log_line> lines() const { return parse_log(text()); }
    /** Forgets what was written so far. */
    void clear();

    /** While suspended, standard output is what it was before the outermost catcher. */
    static void suspend();
    /** Ends suspend(). */
    static void resume();

    /** For test frameworks. @param has_failed  asked at the end of each catcher whether its text is
     *  to be shown; null for never */
    static void show_after(bool (*has_failed)());

private:
    void hand_down();

    log_catcher* m_outer;
    int m_memory;
    int m_original;
    int m_original_flags;
};

}  // namespace vask_test

#endif
