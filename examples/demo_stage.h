// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef DEMO_STAGE_H
#define DEMO_STAGE_H

#include <exception>
#include <functional>
#include <string>

/** Ends the demonstration: a step has not done what it says, or somebody wants it to stop. */
class demo_stopped : public std::exception {
public:
    explicit demo_stopped(const std::string& reason) : m_reason(reason) {}
    const char* what() const noexcept override { return m_reason.c_str(); }

private:
    std::string m_reason;
};

/** @brief Tells the story, runs the main loop, and keeps the time. */
namespace demo_stage {

/** Has SIGINT, SIGTERM and SIGHUP stop the story at its next wait, so that objects end in order. */
void stop_on_signals();

/** Tells the title of a step, which may block for a minute from now on, but not longer. */
void begin_step(int number, int total, const std::string& title);

/** Tells something that the parent does or knows. */
void say(const std::string& text);

/** @param expectation  what should be, for the one who reads that it is not */
void expect(bool condition, const std::string& expectation);

/** Does the same for two texts. */
void expect_text(const std::string& text, const std::string& expected, const std::string& what);

/** Runs the main loop until the condition holds; false when it does not within half a minute. */
bool wait_until(const std::function<bool()>& condition);

/** Runs the main loop for a while. */
void pause(unsigned int msec);

}  // namespace demo_stage

#endif
