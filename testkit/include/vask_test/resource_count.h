// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_RESOURCE_COUNT_H
#define VASK_TEST_RESOURCE_COUNT_H

/**
 * @file
 * @brief What a process holds that could leak.
 */

#include <sys/types.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace vask_test {

/** What a process holds that could leak, each list sorted. */
struct resource_count {
    std::vector<std::string> descriptors;    /**< what they lead to */
    std::vector<std::string> children;       /**< "PID COMMAND", dead ones until they are reaped */
    std::vector<std::string> shared_objects; /**< all that there are, whoever has made them */
    std::vector<std::string>
        sources; /**< of the default main context, by name; of this process only
                  */

    /** @return what this process holds */
    static resource_count take();

    /** @param pid  a process @return what it holds, but for its sources */
    static resource_count of(pid_t pid);

    /** @return the same without the shared objects that the library keeps for all: the process
     *  registry, its lock, and the shared record. They outlive the processes that use them */
    resource_count without_library_objects() const;

    /** @param later  another count of the same process
     *  @return one line per resource gained or lost until then; "" when there is none */
    std::string difference(const resource_count& later) const;
};

/** For failure messages. @param count  what is shown, but for its shared objects and sources
 *  @param out  where */
void PrintTo(const resource_count& count, std::ostream* out);

/** Brings into being what GLib and the session bus connection keep until the process ends. Call it
 *  before the first count, and again before a later one when the bus was lost meanwhile: the lost
 *  connection is given up then, and the next one takes its place. */
void warm_up_process_resources();

}  // namespace vask_test

#endif
