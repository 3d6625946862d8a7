// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The program behind scripted_child. Its script lies beside it, under the name by which it was
// started; without one its arguments are the lines of the script.

#include <signal.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "actor.h"
#include "script_file.h"

using namespace vask_test;

namespace {

constexpr char usage[] =
    "usage: vask-scripted-child LINE...\n"
    "\n"
    "A child on the session bus that does what the lines of its script say, for example\n"
    "\n"
    "    vask-scripted-child 'on command 1' 'emit 7 milk' 'reply 2' 'on command 2' hang\n"
    "\n"
    "and prints what it receives. vask-scripted-child(1) tells all that a script may say.\n";

// Neither a link nor a new argv[0] hides under which path a program was started.
std::string own_path() {
    return reinterpret_cast<const char*>(getauxval(AT_EXECFN));
}

bool read_lines(const std::string& path, std::vector<std::string>* lines) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines->push_back(line);
    }
    return file.eof();
}

}  // namespace

int main(int argc, char** argv) {
    // The test may be killed, and nobody would end this process then.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string program = own_path();
    std::vector<std::string> lines(argv + 1, argv + argc);
    const bool has_file = access(script_of(program).c_str(), F_OK) == 0;
    if (!has_file && (argc < 2 || strcmp(argv[1], "--help") == 0)) {
        fputs(usage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    if (has_file && (lines.clear(), !read_lines(script_of(program), &lines))) {
        perror(script_of(program).c_str());
        return 2;
    }
    script wanted(lines);
    std::string error = wanted.error();
    if (error.empty()) {
        error = find_unknown_action(lines);
    }
    if (!error.empty()) {
        fprintf(stderr, "%s: %s\n", program.c_str(), error.c_str());
        return 2;
    }
    return actor(program, has_file, std::move(wanted), argc, argv).run();
}
