// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Every call that a registration makes, failing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "foundation/paused_child.h"
#include "foundation/registry_faults.h"
#include "foundation/registry_member.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

struct fault {
    const char* call;
    const char* reported_as;
};

void PrintTo(const fault& fault, std::ostream* out) {
    *out << fault.call;
}

class registry_writer_failure : public registry_test {
protected:
    bool store_while_failing(const std::string& call, unsigned long key) {
        registry_faults::now.failing_call = call;
        const bool stored = object.store_pid_to_shm(key);
        registry_faults::now.failing_call = "";
        return stored;
    }

    registry_faults::healed healed;
};

class registry_writer_fault : public registry_writer_failure,
                              public testing::WithParamInterface<fault> {
protected:
    log_line reported() const {
        return error("program", std::string("Failed to call ") + GetParam().reported_as +
                                    " @ store_pid_to_shm");
    }
};

// More than a page, so that every call is made.
const size_t entries = entries_beyond_first_page();

}  // namespace

TEST_P(registry_writer_fault, Fails_the_registration_and_is_reported) {
    registry_object("program").fill(entries, getppid());
    EXPECT_FALSE(store_while_failing(GetParam().call, 100000));
    EXPECT_THAT(log.lines(), ElementsAre(reported()));
}

TEST_P(registry_writer_fault, Leaves_the_record_as_it_was) {
    registry_object bytes("program");
    bytes.fill(entries, getppid());
    bytes.set_sequence(10);
    std::vector<unsigned char> before = bytes.bytes();
    EXPECT_FALSE(store_while_failing(GetParam().call, 100000));
    std::vector<unsigned char> after = bytes.bytes();
    ASSERT_GE(after.size(), before.size());
    after.resize(before.size());
    EXPECT_EQ(after, before);
}

TEST_P(registry_writer_fault, Does_not_keep_the_lock) {
    registry_object("program").fill(entries, getppid());
    EXPECT_FALSE(store_while_failing(GetParam().call, 100000));
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_P(registry_writer_fault, Leaves_nothing_mapped) {
    registry_object bytes("program");
    bytes.fill(entries, getppid());
    EXPECT_FALSE(store_while_failing(GetParam().call, 100000));
    EXPECT_FALSE(bytes.is_mapped());
}

TEST_P(registry_writer_fault, Does_not_keep_a_later_registration_from_success) {
    registry_object bytes("program");
    bytes.fill(entries, getppid());
    EXPECT_FALSE(store_while_failing(GetParam().call, 100000));
    EXPECT_TRUE(object.store_pid_to_shm(100000));
    EXPECT_EQ(bytes.count(), static_cast<int>(entries) + 1);
}

INSTANTIATE_TEST_SUITE_P(calls, registry_writer_fault,
                         testing::Values(fault{"shm_open", "shm_open"}, fault{"mmap", "mmap"},
                                         fault{"fstat", "fstat"}, fault{"pread", "fstat"},
                                         fault{"pwrite", "ftruncate"},
                                         fault{"ftruncate", "ftruncate"},
                                         fault{"mremap", "mremap"}),
                         [](const auto& info) { return std::string(info.param.call); });

TEST_F(registry_writer_failure, Leaves_an_empty_object_that_the_next_writer_takes) {
    for (const char* call : {"mmap", "fstat", "pread", "pwrite"}) {
        EXPECT_FALSE(store_while_failing(call, 1)) << call;
    }
    EXPECT_EQ(registry_object("program").size(), 0U);
    EXPECT_TRUE(object.store_pid_to_shm(1));
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid)));
}

// A stranger may cut the object off while there is no memory to make it longer again.
TEST_F(registry_writer_failure, Of_any_write_loses_no_other_process) {
    const registry_member first("program", 1);
    const registry_member second("program", 2);
    const registry_member third("program", 3);
    for (int writes = 0;; ++writes) {
        SCOPED_TRACE(writes);
        registry_object bytes("program");
        bytes.resize(0);
        bytes.append(pid_of_nobody, 9);
        bytes.append(first.pid(), 1);
        bytes.append(second.pid(), 2);
        bytes.append(third.pid(), 3);
        registry_faults::now.writes_before_failure = writes;
        registry_faults::now.failing_error = ENOSPC;
        log.clear();
        if (store_while_failing("pwrite", 4)) {
            break;
        }
        ASSERT_LT(writes, 100);
        registry_faults::now.writes_before_failure = 0;
        EXPECT_EQ(library_lock::value(), 1);
        EXPECT_THAT(log.lines(),
                    ElementsAre(error("program", "Failed to call ftruncate @ store_pid_to_shm")));
        show_clock(leaping_clock(1));
        const registry_map found = find();
        show_clock(nullptr);
        EXPECT_EQ(found.at(1), first.pid());
        EXPECT_EQ(found.at(2), second.pid());
        EXPECT_EQ(found.at(3), third.pid());
        EXPECT_TRUE(object.store_pid_to_shm(5));
        EXPECT_THAT(find(), ElementsAre(Pair(1, first.pid()), Pair(2, second.pid()),
                                        Pair(3, third.pid()), Pair(5, my_pid)));
    }
    EXPECT_GT(registry_faults::seen.pwrite, 10);
}

// An odd sequence would hold up every lookup for 5 seconds until somebody registers.
TEST_F(registry_writer_failure, Leaves_no_odd_sequence_when_memory_is_wanting_for_a_moment) {
    ASSERT_TRUE(object.store_pid_to_shm(1));
    registry_faults::seen.pwrite = 0;
    ASSERT_TRUE(object.store_pid_to_shm(2));
    const int all_writes = registry_faults::seen.pwrite;
    for (const int error : {ENOMEM, ENOSPC}) {
        for (int writes = 0; writes < all_writes; ++writes) {
            SCOPED_TRACE(writes);
            registry_faults::now.writes_before_failure = writes;
            registry_faults::now.failing_writes = 1;
            registry_faults::now.failing_error = error;
            const bool is_last = writes == all_writes - 1;
            EXPECT_EQ(store_while_failing("pwrite", 3), is_last);
            EXPECT_EQ(registry_object("program").sequence() % 2, 0U);
            EXPECT_TRUE(object.store_pid_to_shm(2));
        }
    }
}

// Hardened kernels refuse to create an object that another user owns, although it exists.
TEST_F(registry_writer_failure, Is_none_when_an_existing_object_cannot_be_created) {
    ASSERT_TRUE(object.store_pid_to_shm(1));
    registry_faults::now.creating_is_forbidden = true;
    EXPECT_TRUE(object.store_pid_to_shm(2));
    EXPECT_EQ(registry_faults::seen.shm_open_creating, 1);
}

TEST_F(registry_writer_failure, Is_reported_when_a_new_object_cannot_be_created) {
    registry_faults::now.creating_is_forbidden = true;
    EXPECT_FALSE(object.store_pid_to_shm(1));
    EXPECT_EQ(registry_faults::seen.shm_open_creating, 1);
    EXPECT_THAT(log.lines(),
                ElementsAre(error("program", "Failed to call shm_open @ store_pid_to_shm")));
}

TEST_F(registry_writer_failure, Is_reported_for_the_object_of_a_user_who_lets_nobody_write) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    ASSERT_EQ(chmod(registry_object("program").path().c_str(), 0600), 0);
    const shared_value<std::atomic<bool>> registered;
    forked_process stranger([&registered] {
        if (setresuid(65534, 65534, 65534) != 0) {
            return 1;
        }
        named_object own("program");
        *registered = own.store_pid_to_shm(1);
        return library_lock::value() == 1 ? 0 : 2;
    });
    EXPECT_EQ(stranger.wait_for_end(), 0);
    EXPECT_FALSE(*registered);
    EXPECT_THAT(log.lines(),
                ElementsAre(error("program", "Failed to call shm_open @ store_pid_to_shm")));
}

TEST_F(registry_writer_failure, Is_not_the_interruption_of_a_single_write) {
    for (int writes = 0; writes < 6; ++writes) {
        registry_faults::now.writes_before_failure = writes;
        registry_faults::now.failing_error = EINTR;
        EXPECT_TRUE(store_while_failing("pwrite", 5));
        EXPECT_EQ(registry_object("program").sequence() % 2, 0U);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_writer_failure, Is_none_where_the_system_reads_less_than_is_asked_for) {
    registry_object bytes("program");
    bytes.fill(entries, getppid());
    registry_faults::now.longest_read = 100;
    EXPECT_TRUE(object.store_pid_to_shm(1000));
    ASSERT_EQ(bytes.count(), static_cast<int>(entries) + 1);
    for (size_t i = 0; i < entries; ++i) {
        EXPECT_EQ(bytes.pid(i), getppid());
        EXPECT_EQ(bytes.key(i), i + 1);
    }
    EXPECT_EQ(bytes.pid(entries), getpid());
    EXPECT_EQ(bytes.key(entries), 1000U);
}
