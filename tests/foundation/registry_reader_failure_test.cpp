// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What a lookup does when calls fail and when writers never finish.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "foundation/registry_faults.h"
#include "foundation/registry_member.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

class registry_reader_failure : public registry_test {
protected:
    // Every reading of the clock is a second later than the last one.
    static void make_clock_leap() { show_clock(leaping_clock(1)); }

    static log_line reset() {
        return line("WARN", "looker",
                    "Possibly, the lock-owner was unexpectedly dead. Reset array->sequence to 0.");
    }

    registry_faults::healed healed;
};

}  // namespace

TEST_F(registry_reader_failure, Of_opening_is_a_line_for_debugging) {
    registry_object("program").append(my_pid, 1);
    registry_faults::now.failing_call = "shm_open";
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());

    vask_object::print_msg_level = VASK_P_DBG;
    EXPECT_THAT(find(), IsEmpty());
    vask_object::print_msg_level = VASK_P_INFO;
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("DBG", "looker", "Failed to call shm_open @ find_stored_pid_from_shm")));
}

TEST_F(registry_reader_failure, Of_reading_is_reported_as_one_of_mapping) {
    registry_object("program").append(my_pid, 1);
    registry_faults::now.failing_call = "pread";
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_THAT(log.lines(),
                ElementsAre(error("looker", "Failed to call mmap @ find_stored_pid_from_shm")));
}

TEST_F(registry_reader_failure, Of_growing_is_reported) {
    registry_object("program").fill(entries_beyond_first_page(), my_pid);
    registry_faults::now.failing_call = "mremap";
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_THAT(log.lines(),
                ElementsAre(error("looker", "Failed to call mremap @ find_stored_pid_from_shm")));
}

TEST_F(registry_reader_failure, Of_measuring_leaves_what_one_page_holds) {
    registry_object("program").fill(300, my_pid);
    registry_faults::now.failing_call = "fstat";
    EXPECT_THAT(find(), SizeIs(255));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_reader_failure, Of_growing_does_not_concern_a_registry_of_one_page) {
    registry_object("program").fill(255, my_pid);
    registry_faults::now.failing_call = "mremap";
    EXPECT_THAT(find(), SizeIs(255));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_reader_failure, Of_the_clock_finds_nobody_and_says_nothing) {
    registry_object("program").append(my_pid, 1);
    show_clock(failing_clock(0));
    const registry_map found = find();
    show_clock(nullptr);
    EXPECT_THAT(found, IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_reader_failure, Of_the_clock_ends_the_wait_for_a_writer) {
    registry_object bytes("program");
    bytes.append(my_pid, 1);
    bytes.set_sequence(3);
    show_clock(failing_clock(3));
    const registry_map found = find();
    show_clock(nullptr);
    EXPECT_THAT(found, IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

// One copy of both would have no order on a processor that reorders.
TEST_F(registry_reader_failure, Is_found_out_by_a_sequence_before_and_one_after_the_record) {
    registry_object("program").append(my_pid, 1);
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid)));
    EXPECT_EQ(registry_faults::seen.lookup_steps, "srs");
}

TEST_F(registry_reader_failure, Of_a_writer_is_reported_once_and_what_it_left_is_listed) {
    registry_object bytes("program");
    bytes.append(getppid(), 1);
    bytes.append(my_pid, 2);
    bytes.set_sequence(3);
    make_clock_leap();
    EXPECT_THAT(find(), ElementsAre(Pair(1, getppid()), Pair(2, my_pid)));
    EXPECT_THAT(log.lines(), ElementsAre(reset()));
}

TEST_F(registry_reader_failure, Of_a_writer_of_a_large_registry_is_reported_once) {
    registry_object bytes("program");
    bytes.fill(1000, my_pid);
    bytes.set_sequence(3);
    make_clock_leap();
    EXPECT_THAT(find(), SizeIs(1000));
    EXPECT_THAT(log.lines(), ElementsAre(reset()));
}

TEST_F(registry_reader_failure, Of_a_writer_leaves_the_record_to_the_next_writer) {
    registry_object bytes("program");
    bytes.append(my_pid, 1);
    bytes.set_sequence(3);
    make_clock_leap();
    find();
    EXPECT_EQ(bytes.sequence(), 3U);
    log.clear();
    EXPECT_TRUE(object.store_pid_to_shm(2));
    EXPECT_EQ(bytes.sequence(), 2U);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("WARN", "program",
                                 "Possibly, the lock-owner was unexpectedly dead. Reset "
                                 "array->sequence to 1.")));
    log.clear();
    EXPECT_THAT(find(), ElementsAre(Pair(2, my_pid)));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_reader_failure, Of_a_record_to_come_to_rest_ends_the_wait_as_well) {
    registry_object bytes("program");
    bytes.append(my_pid, 1);
    bytes.set_sequence(2);
    registry_faults::now.sequence_is_restless = true;
    make_clock_leap();
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid)));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_reader_failure, Is_none_when_the_writer_comes_to_an_end) {
    registry_object bytes("program");
    bytes.append(my_pid, 1);
    bytes.set_sequence(3);
    int copies = 0;
    registry_faults::now.after_copy = [&](void*) {
        if (++copies == 5) {
            bytes.append(getppid(), 2);
            bytes.set_sequence(4);
        }
    };
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid), Pair(2, getppid())));
    EXPECT_EQ(copies, 6);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_reader_failure, Is_none_when_the_registry_grows_beyond_the_view_meanwhile) {
    registry_object bytes("program");
    bytes.fill(255, my_pid);
    int copies = 0;
    registry_faults::now.after_copy = [&](void*) {
        if (++copies == 1) {
            bytes.set_sequence(3);
        }
        if (copies == 2) {
            bytes.fill(600, my_pid);
            bytes.set_sequence(4);
        }
    };
    bytes.set_sequence(1);
    EXPECT_THAT(find(), SizeIs(600));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_reader_failure, Keeps_what_an_interrupted_pass_has_found) {
    registry_object bytes("program");
    bytes.append(my_pid, 5);
    bytes.set_sequence(2);
    registry_faults::now.sequence_is_restless = true;
    int further_copies = 0;
    registry_faults::now.after_further_copy = [&] {
        if (++further_copies == 2) {
            registry_faults::now.sequence_is_restless = false;
            bytes.set_entry(0, my_pid, 7);
            bytes.set_sequence(4);
        }
    };
    EXPECT_THAT(find(), ElementsAre(Pair(5, my_pid), Pair(7, my_pid)));
    EXPECT_THAT(log.lines(), IsEmpty());
}

// The copy of an entry that a writer changes meanwhile: its first process with its second key.
TEST_F(registry_reader_failure, Keeps_no_pair_that_an_interrupted_pass_has_mixed) {
    registry_object bytes("program");
    bytes.append(getppid(), 5);
    bytes.append(my_pid, 6);
    bytes.set_sequence(2);
    registry_faults::now.sequence_is_restless = true;
    registry_faults::now.after_copy = [&](void* copy) {
        registry_faults::now.sequence_is_restless = bytes.sequence() == 2;
        static_cast<pid_array*>(copy)->entries[0].key = bytes.sequence() == 2 ? 7 : 8;
        bytes.set_entry(0, my_pid, 8);
        bytes.set_sequence(4);
    };
    EXPECT_THAT(find(), ElementsAre(Pair(6, my_pid), Pair(8, my_pid)));
    EXPECT_EQ(registry_faults::seen.lookup_steps, "srseesrs");
}

// A processor that loads the key of the second copy before its process can show the pair again that
// the first copy has mixed: its process has come back to the entry.
TEST_F(registry_reader_failure, Keeps_no_pair_that_an_interrupted_pass_has_mixed_twice) {
    registry_object bytes("program");
    bytes.append(getppid(), 5);
    bytes.append(my_pid, 6);
    bytes.set_sequence(2);
    registry_faults::now.sequence_is_restless = true;
    registry_faults::now.after_copy = [&](void* copy) {
        if (registry_faults::now.sequence_is_restless) {
            static_cast<pid_array*>(copy)->entries[0].key = 7;
            bytes.set_entry(0, getppid(), 7);
        }
    };
    registry_faults::now.after_further_copy = [&] {
        registry_faults::now.sequence_is_restless = false;
        bytes.set_entry(0, getppid(), 8);
        bytes.set_sequence(6);
    };
    EXPECT_THAT(find(), ElementsAre(Pair(6, my_pid), Pair(8, getppid())));
}

TEST_F(registry_reader_failure, Returns_what_was_found_before_it) {
    registry_object bytes("program");
    bytes.fill(255, my_pid);
    bytes.set_sequence(2);
    registry_faults::now.sequence_is_restless = true;
    registry_faults::now.after_further_copy = [&] {
        bytes.fill(entries_beyond_first_page(), my_pid);
        registry_faults::now.failing_call = "mremap";
    };
    EXPECT_THAT(find(), SizeIs(255));
    EXPECT_THAT(log.lines(),
                ElementsAre(error("looker", "Failed to call mremap @ find_stored_pid_from_shm")));
}

TEST_F(registry_reader_failure, Is_none_when_the_process_was_stopped_beyond_its_patience) {
    registry_object("program").fill(300, my_pid);
    show_clock(leaping_clock(6));
    EXPECT_THAT(find(), SizeIs(300));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_reader_failure, Of_an_object_to_stop_growing_ends_the_growth_of_the_view) {
    registry_object bytes("program");
    bytes.fill(300, my_pid);
    int copies = 0;
    registry_faults::now.after_copy = [&](void*) {
        if (++copies < 1000) {
            bytes.fill(300 + static_cast<size_t>(copies), my_pid);
        }
    };
    make_clock_leap();
    EXPECT_FALSE(find().empty());
    EXPECT_LE(copies, 100);
}
