// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SCRIPT_FILE_H
#define VASK_TEST_SCRIPT_FILE_H

#include <sys/types.h>

#include <string>

namespace vask_test {

/**
 * The files that lie beside the program of a scripted child: its script, its journal with one
 * "PID EVENT" a line, and a pipe for each process that brings it actions. Lines are written whole,
 * and a process that comes to its end anywhere leaves the others readable.
 */
std::string script_of(const std::string& program);
std::string journal_of(const std::string& program);
std::string orders_of(const std::string& program, pid_t pid);

/** As part of a line: without control characters, and back. */
std::string escaped(const std::string& text);
std::string unescaped(const std::string& text);

}  // namespace vask_test

#endif
