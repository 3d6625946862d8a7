// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What happens to a registration from outside, at every place of it: a signal, a stop so long that
// others take the process for dead, a stranger who changes the object.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>

#include "foundation/registry_fail_point.h"
#include "foundation/registry_member.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class registry_disturbed_writer : public registry_test, public testing::WithParamInterface<place> {
protected:
    // A process that registers under key 50 and stays; something happens to it at the place, once.
    forked_process& start_writer(const std::function<void()>& event) {
        writer = std::make_unique<forked_process>([this, event] {
            bool has_happened = false;
            at_fail_point = [event, &has_happened](const std::string& reached) {
                if (reached == GetParam().name && !has_happened) {
                    has_happened = true;
                    event();
                }
            };
            named_object own("program");
            const bool registered = own.store_pid_to_shm(50);
            at_fail_point = nullptr;
            *result = registered ? is_registered : is_refused;
            wait_for_a_signal();
            return 0;
        });
        return *writer;
    }

    bool waits_until_writer_is_through() const {
        return wait_until_without_loop(
            [this] { return *result != is_undecided || !writer->is_running(); });
    }

    void expect_sound_record() const {
        EXPECT_EQ(bytes.sequence() % 2, 0U);
        EXPECT_EQ(library_lock::value(), 1);
    }

    enum state { is_undecided, is_registered, is_refused };

    const shared_value<std::atomic<state>> result;
    std::unique_ptr<forked_process> writer;
    const registry_member first{"program", 1};
    registry_member ended{"program", 2};
    const registry_member third{"program", 3};
    registry_object bytes{"program"};
};

}  // namespace

TEST_P(registry_disturbed_writer, That_is_stopped_and_robbed_of_the_lock_erases_nobody) {
    ended.end();
    start_writer([] { raise(SIGSTOP); });
    int status = 0;
    ASSERT_EQ(waitpid(writer->pid(), &status, WUNTRACED), writer->pid());
    ASSERT_TRUE(WIFSTOPPED(status));

    EXPECT_TRUE(object.store_pid_to_shm(51));
    const registry_member later("program", 52);
    kill(writer->pid(), SIGCONT);

    EXPECT_TRUE(waits_until_writer_is_through());
    EXPECT_EQ(*result, is_registered);
    EXPECT_THAT(find(),
                ElementsAre(Pair(1, first.pid()), Pair(3, third.pid()), Pair(50, writer->pid()),
                            Pair(51, my_pid), Pair(52, later.pid())));
    expect_sound_record();
}

TEST_P(registry_disturbed_writer, That_is_told_to_end_finishes_its_change_first) {
    ended.end();
    start_writer([] { raise(SIGTERM); });
    EXPECT_EQ(writer->wait_for_end(), -SIGTERM);

    expect_sound_record();
    EXPECT_THAT(find(), ElementsAre(Pair(1, first.pid()), Pair(3, third.pid())));
    EXPECT_TRUE(object.store_pid_to_shm(51));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(registry_disturbed_writer, Is_not_ended_by_a_stranger_who_cuts_the_object_off) {
    for (const size_t size : {0, 4, 24}) {
        SCOPED_TRACE(size);
        *result = is_undecided;
        start_writer([this, size] { bytes.resize(size); });
        EXPECT_TRUE(waits_until_writer_is_through());
        EXPECT_TRUE(writer->is_running());
        EXPECT_EQ(library_lock::value(), 1);
        EXPECT_EQ(bytes.size() < 4 ? 0 : bytes.sequence() % 2, 0U);
        EXPECT_TRUE(object.store_pid_to_shm(51));
        EXPECT_EQ(find().count(51), 1U);
    }
}

TEST_P(registry_disturbed_writer, Is_not_misled_by_a_stranger_who_changes_the_count) {
    for (const int count : {INT_MAX, INT_MIN, 1 << 20, 0}) {
        SCOPED_TRACE(count);
        *result = is_undecided;
        start_writer([this, count] { bytes.set_count(count); });
        EXPECT_TRUE(waits_until_writer_is_through());
        EXPECT_TRUE(writer->is_running());
        EXPECT_EQ(library_lock::value(), 1);
        EXPECT_TRUE(object.store_pid_to_shm(51));
        EXPECT_EQ(find().count(51), 1U);
        EXPECT_LE(bytes.size(), 8 + 16 * 16U);
    }
}

INSTANTIATE_TEST_SUITE_P(places, registry_disturbed_writer, testing::ValuesIn(places),
                         [](const auto& info) { return std::string(info.param.name); });
