// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A writer is killed at every place of a registration, and the next writer and a reader come by.
// The library's own waiting times are shortened.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "foundation/lock_patience.h"
#include "foundation/registry_fail_point.h"
#include "foundation/registry_member.h"
#include "support/interpose.h"
#include "support/shown_clock.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Pair;

namespace {

class registry_crash_point : public registry_test {
protected:
    ~registry_crash_point() override { show_clock(nullptr); }

    pid_t kill_writer_at(const char* place) {
        forked_process writer([place] {
            at_fail_point = [place](const std::string& reached) {
                if (reached == place) {
                    kill(getpid(), SIGKILL);
                }
            };
            named_object own("program");
            own.store_pid_to_shm(50);
            return 0;
        });
        EXPECT_EQ(writer.wait_for_end(), -SIGKILL);
        return writer.pid();
    }

    registry_map find_with_leaping_clock() const {
        show_clock(leaping_clock(1));
        registry_map found = find();
        show_clock(nullptr);
        return found;
    }

    void expect_lines_of_reader(bool sequence_is_odd) {
        if (sequence_is_odd) {
            EXPECT_THAT(log.lines(), ElementsAre(reset("looker", 0)));
        } else {
            EXPECT_THAT(log.lines(), IsEmpty());
        }
        log.clear();
    }

    void expect_lines_of_writer(const place& at) {
        std::vector<log_line> expected;
        if (at.holds_lock) {
            expected.push_back(library_lock::forced("program"));
        }
        if (at.leaves_sequence_odd) {
            expected.push_back(reset("program", 1));
        }
        EXPECT_THAT(log.lines(), ElementsAreArray(expected));
        log.clear();
    }

    static log_line reset(const std::string& name, int value) {
        return line("WARN", name,
                    "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to " +
                        std::to_string(value) + ".");
    }
};

class registry_killed_writer : public registry_crash_point,
                               public testing::WithParamInterface<place> {};

}  // namespace

std::function<void(const std::string&)> at_fail_point;

void vask_fail_point(const char* place) {
    if (at_fail_point) {
        at_fail_point(place);
    }
}

namespace {

int tell_if_taken(int result) {
    if (result == 0) {
        vask_fail_point("taken");
    }
    return result;
}

}  // namespace

// Nobody holds the lock for long here, so that a second of patience is enough.
extern "C" int sem_clockwait(sem_t* sem, clockid_t clock, const timespec* deadline) {
    const timespec early = scaled_deadline(clock, *deadline, 0.2);
    return tell_if_taken(next_time_function<int(sem_t*, clockid_t, const timespec*)>(
        "sem_clockwait")(sem, clock, &early));
}

extern "C" int sem_trywait(sem_t* sem) noexcept {
    return tell_if_taken(next_function<int(sem_t*)>("sem_trywait")(sem));
}

extern "C" int sem_post(sem_t* sem) noexcept {
    vask_fail_point("posting");
    const int result = next_function<int(sem_t*)>("sem_post")(sem);
    vask_fail_point("posted");
    return result;
}

TEST_F(registry_crash_point, Is_tested_at_every_place_of_a_registration) {
    std::vector<std::string> visited;
    at_fail_point = [&visited](const std::string& place) { visited.push_back(place); };
    EXPECT_TRUE(object.store_pid_to_shm(1));
    at_fail_point = nullptr;
    std::vector<std::string> tested;
    for (const place& place : places) {
        tested.push_back(place.name);
    }
    EXPECT_EQ(visited, tested);
}

TEST_P(registry_killed_writer, Of_a_new_registry_keeps_nobody_from_registering) {
    kill_writer_at(GetParam().name);
    EXPECT_THAT(find_with_leaping_clock(), IsEmpty());
    expect_lines_of_reader(GetParam().leaves_sequence_odd);

    EXPECT_TRUE(object.store_pid_to_shm(51));
    expect_lines_of_writer(GetParam());
    EXPECT_THAT(find(), ElementsAre(Pair(51, my_pid)));
    const registry_object bytes("program");
    EXPECT_EQ(bytes.sequence() % 2, 0U);
    EXPECT_EQ(bytes.count(), 1);
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(registry_killed_writer, Of_a_registry_in_use_loses_none_of_the_others) {
    const registry_member first("program", 1);
    registry_member ended("program", 2);
    const registry_member third("program", 3);
    ended.end();
    const auto others = ElementsAre(Pair(1, first.pid()), Pair(3, third.pid()));

    kill_writer_at(GetParam().name);
    EXPECT_THAT(find_with_leaping_clock(), others);
    expect_lines_of_reader(GetParam().leaves_sequence_odd);

    EXPECT_TRUE(object.store_pid_to_shm(50));
    expect_lines_of_writer(GetParam());
    EXPECT_THAT(find(), ElementsAre(Pair(1, first.pid()), Pair(3, third.pid()), Pair(50, my_pid)));
    const registry_object bytes("program");
    EXPECT_EQ(bytes.sequence() % 2, 0U);
    EXPECT_EQ(bytes.count(), 3 + GetParam().entries_left_twice);
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_P(registry_killed_writer, Of_a_registry_of_several_pages_loses_none_of_the_others) {
    constexpr int entries = 300;
    registry_object bytes("program");
    for (std::uint64_t key = 1000; key < 1000 + entries; ++key) {
        bytes.append(getppid(), key);
    }

    kill_writer_at(GetParam().name);
    EXPECT_THAT(find_with_leaping_clock(), testing::SizeIs(entries));
    expect_lines_of_reader(GetParam().leaves_sequence_odd);

    EXPECT_TRUE(object.store_pid_to_shm(50));
    expect_lines_of_writer(GetParam());
    EXPECT_THAT(find(), testing::SizeIs(entries + 1));
    EXPECT_EQ(bytes.count(), entries + 1);
    EXPECT_EQ(bytes.sequence() % 2, 0U);
}

INSTANTIATE_TEST_SUITE_P(places, registry_killed_writer, testing::ValuesIn(places),
                         [](const auto& info) { return std::string(info.param.name); });
