// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A registration is stopped after each of its instructions: a writer may be killed at any of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>

#include <algorithm>

#include "foundation/registry_fail_point.h"
#include "foundation/registry_member.h"

using namespace vask_test;
using testing::Pair;
using testing::UnorderedElementsAre;

namespace {

using record = std::vector<unsigned char>;

class registry_stepped_writer : public registry_test {
protected:
    // Every state of the record that another process may find, up to the release of the record.
    std::vector<record> states_of_registration(unsigned long key) {
        forked_process writer([key] {
            at_fail_point = [](const std::string& place) {
                if (place == "grown" || place == "released") {
                    raise(SIGSTOP);
                }
            };
            named_object own("program");
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            own.store_pid_to_shm(key);
            return 0;
        });
        int status = 0;
        waitpid(writer.pid(), &status, 0);
        std::vector<record> states = {bytes.bytes()};
        bool released = !(WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP);
        EXPECT_FALSE(released);
        while (!released && ptrace(PTRACE_SINGLESTEP, writer.pid(), nullptr, nullptr) == 0 &&
               waitpid(writer.pid(), &status, 0) == writer.pid() && WIFSTOPPED(status)) {
            released = WSTOPSIG(status) == SIGSTOP;
            const record state = bytes.bytes();
            if (state != states.back()) {
                states.push_back(state);
            }
        }
        EXPECT_TRUE(released);
        return states;
    }

    void restore(const record& state) {
        bytes.resize(state.size());
        ASSERT_EQ(pwrite(bytes.fd(), state.data(), state.size(), 0),
                  static_cast<ssize_t>(state.size()));
        library_lock::replace(1);
    }

    // All live pairs of process and key, where a lookup shows one process of a key.
    std::vector<std::pair<int, std::uint64_t>> live_pairs() const {
        std::vector<std::pair<int, std::uint64_t>> pairs;
        for (int i = 0; i < bytes.count(); ++i) {
            const std::pair<int, std::uint64_t> pair(bytes.pid(static_cast<size_t>(i)),
                                                     bytes.key(static_cast<size_t>(i)));
            if (vask_object::is_process_alive(pair.first) &&
                std::find(pairs.begin(), pairs.end(), pair) == pairs.end()) {
                pairs.push_back(pair);
            }
        }
        return pairs;
    }

    registry_object bytes{"program"};
};

}  // namespace

TEST_F(registry_stepped_writer, Leaves_the_others_and_nothing_else_to_the_next_writer) {
    registry_member ended("program", 1);
    const registry_member first("program", 2);
    registry_member ended_too("program", 3);
    const registry_member second("program", 4);
    const registry_member third("program", 5);
    ended.end();
    ended_too.end();

    const std::vector<record> states = states_of_registration(6);
    EXPECT_GT(states.size(), 5U);
    for (const record& state : states) {
        restore(state);
        ASSERT_TRUE(object.store_pid_to_shm(7));
        EXPECT_THAT(live_pairs(), UnorderedElementsAre(Pair(first.pid(), 2), Pair(second.pid(), 4),
                                                       Pair(third.pid(), 5), Pair(my_pid, 7)))
            << "after " << testing::PrintToString(state);
    }
}
