// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_RESOURCE_COUNT_H
#define VASK_TEST_RESOURCE_COUNT_H

#include <string>
#include <vector>

namespace vask_test {

/** What a process holds that could leak, each list sorted. */
struct resource_count {
    std::vector<std::string> descriptors;
    std::vector<std::string> children;
    std::vector<std::string> shared_objects;
    std::vector<std::string> sources;  // of the default main context, by name

    static resource_count take();

    /** One line per resource gained or lost until then; "" when there is none. */
    std::string difference(const resource_count& later) const;
};

/** Brings into being what GLib and the session bus connection keep until the process ends. */
void warm_up_process_resources();

}  // namespace vask_test

#endif
