// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dirent.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <set>
#include <string>

#include "end_with_parent.h"

/**
 * A child that never comes to the bus:
 *
 *     sleep          says "ready" and sleeps until a signal ends it
 *     stubborn       the same, but ignores SIGTERM
 *     slow MSEC      the same, but ends that long after a SIGTERM
 *     getenv NAME    prints the value that C programs see
 *     descriptors    prints the numbers of its open descriptors, each followed by a blank
 *
 * It never outlives the process that has started it.
 */
namespace {

void say(const std::string& text) {
    if (write(STDOUT_FILENO, text.data(), text.size()) < 0) {
        _exit(1);
    }
}

[[noreturn]] void sleep_for_ever() {
    say("ready\n");
    for (;;) {
        pause();
    }
}

int end_slowly(const char* msec) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    say("ready\n");
    int signal_number = 0;
    sigwait(&set, &signal_number);
    usleep(static_cast<useconds_t>(atoi(msec)) * 1000);
    return 0;
}

int print_descriptors() {
    std::set<int> numbers;
    DIR* directory = opendir("/proc/self/fd");
    if (directory == nullptr) {
        return 1;
    }
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.' && atoi(entry->d_name) != dirfd(directory)) {
            numbers.insert(atoi(entry->d_name));
        }
    }
    closedir(directory);
    for (int number : numbers) {
        printf("%d ", number);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    end_with_parent();
    const std::string mode = argc > 1 ? argv[1] : "";
    const char* value = argc > 2 ? argv[2] : "";
    if (mode == "sleep") {
        sleep_for_ever();
    }
    if (mode == "stubborn") {
        signal(SIGTERM, SIG_IGN);
        sleep_for_ever();
    }
    if (mode == "slow") {
        return end_slowly(value);
    }
    if (mode == "getenv") {
        const char* text = getenv(value);
        say(text != nullptr ? text : "(none)");
        return 0;
    }
    if (mode == "descriptors") {
        return print_descriptors();
    }
    return 2;
}
