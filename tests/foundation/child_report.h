// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_CHILD_REPORT_H
#define VASK_TEST_CHILD_REPORT_H

#include <string>
#include <vector>

/** Path of the program that reports what it was started with. */
extern const char child_report_program[];

/** What that program said under one heading, in its order. */
std::vector<std::string> reported(const std::string& output, const std::string& heading);

/** What it says about a signal: "not blocked, default" and the like. */
std::string reported_signal(const std::string& output, int signal);

#endif
