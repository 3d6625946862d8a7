// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "death/own_resources.h"

#include <signal.h>
#include <string.h>

#include <algorithm>

#include "vask_test/resource_count.h"

namespace vask_test {

namespace {

// The number of an inode says nothing.
std::string kind_of(const std::string& target) {
    return target.substr(0, target.find(":["));
}

std::string own_resources() {
    const resource_count count = resource_count::take();
    std::vector<std::string> lines;
    for (const std::string& descriptor : count.descriptors) {
        lines.push_back("descriptor " + kind_of(descriptor) + "\n");
    }
    for (const std::string& child : count.children) {
        lines.push_back("child " + child.substr(child.find(' ') + 1) + "\n");
    }
    for (const std::string& source : count.sources) {
        lines.push_back("source " + source + "\n");
    }
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    for (int number = 1; number < SIGRTMIN; ++number) {
        if (sigismember(&blocked, number) == 1) {
            lines.push_back("blocked signal " + std::to_string(number) + "\n");
        }
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) {
        text += line;
    }
    return text;
}

}  // namespace

void keep_own_resources(fault_plan& plan) {
    strncpy(plan.after, own_resources().c_str(), sizeof plan.after - 1);
}

}  // namespace vask_test
