// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Records that are never at rest, with the real clock.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "foundation/registry_member.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::Each;
using testing::ElementsAre;
using testing::Le;
using testing::Pair;
using testing::SizeIs;

namespace {

using clock_type = std::chrono::steady_clock;

class registry_restless : public registry_test {
protected:
    double seconds() const {
        return std::chrono::duration<double>(clock_type::now() - start).count();
    }

    static double slack() { return 3 * timeout_factor(); }

    static log_line reset_to_0() {
        return line("WARN", "looker",
                    "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 0.");
    }

    static log_line reset_to_1() {
        return line("WARN", "program",
                    "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 1.");
    }

    const clock_type::time_point start = clock_type::now();
};

}  // namespace

TEST_F(registry_restless, Is_read_after_5_seconds) {
    registry_object bytes("program");
    bytes.append(my_pid, 1);
    bytes.set_sequence(7);
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid)));
    EXPECT_GE(seconds(), 4.9);
    EXPECT_LE(seconds(), 5 + slack());
    EXPECT_THAT(log.lines(), ElementsAre(reset_to_0()));
}

TEST_F(registry_restless, Is_written_at_once_when_nobody_holds_the_lock) {
    registry_object bytes("program");
    bytes.append(getppid(), 1);
    bytes.set_sequence(7);
    EXPECT_TRUE(object.store_pid_to_shm(2));
    EXPECT_LE(seconds(), slack());
    EXPECT_EQ(bytes.sequence(), 2U);
    EXPECT_THAT(find(), ElementsAre(Pair(1, getppid()), Pair(2, my_pid)));
    EXPECT_THAT(log.lines(), ElementsAre(reset_to_1()));
}

// A stranger who keeps changing the sequence holds nobody up for longer.
TEST_F(registry_restless, Is_read_after_5_seconds_at_most_when_it_never_comes_to_rest) {
    registry_object bytes("program");
    bytes.append(my_pid, 1);
    const forked_process stranger([&bytes] {
        void* address = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, bytes.fd(), 0);
        auto* sequence = static_cast<std::atomic<std::uint32_t>*>(address);
        for (;;) {
            sequence->fetch_add(1);
        }
        return 0;
    });
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid)));
    EXPECT_LE(seconds(), 5 + slack());
    EXPECT_THAT(log.lines(), testing::AllOf(SizeIs(Le(1U)), Each(reset_to_0())));
}

// A load from a page that was cut off would end the reader.
TEST_F(registry_restless, Ends_no_reader_when_it_shrinks_and_grows_all_the_time) {
    registry_object bytes("program");
    const shared_value<std::atomic<int>> changes;
    const forked_process stranger([&bytes, &changes, this] {
        for (;; ++*changes) {
            bytes.fill(3, my_pid);
            bytes.resize(4096);
            bytes.resize(0);
            bytes.resize(16384);
            bytes.set_entry(999, my_pid, 1000);
            bytes.set_count(1000);
            bytes.resize(100);
        }
        return 0;
    });
    for (int lookups = 0; lookups < 100000; ++lookups) {
        ASSERT_LE(find().size(), 4U);
    }
    EXPECT_GT(*changes, 100);
}
