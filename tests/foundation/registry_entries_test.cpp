// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "foundation/registry_member.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class registry_entries : public registry_test {};

/** Everything is printed while it lives. */
class all_levels {
public:
    all_levels() : m_before(vask_object::print_msg_level) { vask_object::print_msg_level = 7; }
    ~all_levels() { vask_object::print_msg_level = m_before; }

private:
    const int m_before;
};

}  // namespace

TEST_F(registry_entries, Is_empty_for_a_name_that_nobody_registered) {
    EXPECT_THAT(find("unknown"), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists("/dev/shm/vask_proc_pid_unknown"));
}

TEST_F(registry_entries, Of_an_unknown_name_is_mentioned_for_debugging_alone) {
    const all_levels printed;
    EXPECT_THAT(find("unknown"), IsEmpty());
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("DBG", "looker", "Failed to call shm_open @ find_stored_pid_from_shm")));
}

TEST_F(registry_entries, Finds_a_process_by_its_key) {
    EXPECT_TRUE(object.store_pid_to_shm(5));
    EXPECT_THAT(find(), ElementsAre(Pair(5, my_pid)));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_entries, Mentions_a_registration_for_debugging) {
    const all_levels printed;
    EXPECT_TRUE(object.store_pid_to_shm(0xabc));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "program",
                                 "store_pid_to_shm(" + std::to_string(my_pid) + ",0xabc)")));
}

TEST_F(registry_entries, Takes_a_name_as_text_or_string) {
    EXPECT_TRUE(object.store_pid_to_shm(5));
    EXPECT_THAT(looker.find_stored_pid_from_shm("program"), ElementsAre(Pair(5, my_pid)));
    EXPECT_THAT(looker.find_stored_pid_from_shm(std::string("program")),
                ElementsAre(Pair(5, my_pid)));
}

TEST_F(registry_entries, Keeps_names_apart) {
    named_object other("other");
    EXPECT_TRUE(object.store_pid_to_shm(1));
    EXPECT_TRUE(other.store_pid_to_shm(2));
    EXPECT_THAT(find("program"), ElementsAre(Pair(1, my_pid)));
    EXPECT_THAT(find("other"), ElementsAre(Pair(2, my_pid)));
}

TEST_F(registry_entries, Is_in_a_shared_object_named_after_the_program) {
    EXPECT_EQ(vask_object::make_stored_pid_name("program"), "vask_proc_pid_program");
    EXPECT_EQ(vask_object::make_stored_pid_name(""), "vask_proc_pid_");
    EXPECT_TRUE(object.store_pid_to_shm(5));
    EXPECT_TRUE(std::filesystem::exists("/dev/shm/vask_proc_pid_program"));
}

TEST_F(registry_entries, Finds_several_processes_by_their_keys) {
    const registry_member first("program", 1);
    const registry_member second("program", 2);
    EXPECT_THAT(find(), ElementsAre(Pair(1, first.pid()), Pair(2, second.pid())));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_entries, Holds_the_whole_range_of_keys) {
    EXPECT_TRUE(object.store_pid_to_shm(ULONG_MAX));
    EXPECT_THAT(find(), ElementsAre(Pair(ULONG_MAX, my_pid)));
}

TEST_F(registry_entries, Refuses_the_key_of_another_live_process) {
    const registry_member first("program", 0xa1);
    const registry_member second("program", 2);
    const registry_member third("program", 0xa1);
    EXPECT_FALSE(third.is_registered());
    EXPECT_THAT(find(), ElementsAre(Pair(2, second.pid()), Pair(0xa1, first.pid())));
    EXPECT_THAT(log.lines(), ElementsAre(in_use("program", "a1")));
}

TEST_F(registry_entries, Leaves_a_process_unregistered_that_was_refused_another_key) {
    const registry_member other("program", 6);
    EXPECT_TRUE(object.store_pid_to_shm(5));
    EXPECT_FALSE(object.store_pid_to_shm(6));
    EXPECT_THAT(find(), ElementsAre(Pair(6, other.pid())));
    EXPECT_THAT(log.lines(), ElementsAre(in_use("program", "6")));
}

TEST_F(registry_entries, Gives_the_lock_back_after_every_registration) {
    const registry_member other("program", 6);
    EXPECT_TRUE(object.store_pid_to_shm(5));
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    EXPECT_FALSE(object.store_pid_to_shm(6));
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_EQ(object.shm_lock_sem, nullptr);
}

TEST_F(registry_entries, Lists_a_process_once_that_registers_twice) {
    EXPECT_TRUE(object.store_pid_to_shm(5));
    EXPECT_TRUE(object.store_pid_to_shm(5));
    EXPECT_THAT(find(), ElementsAre(Pair(5, my_pid)));
    EXPECT_EQ(registry_object("program").count(), 1);
}

TEST_F(registry_entries, Replaces_the_key_of_a_process_that_registers_again) {
    EXPECT_TRUE(object.store_pid_to_shm(5));
    EXPECT_TRUE(object.store_pid_to_shm(7));
    EXPECT_THAT(find(), ElementsAre(Pair(7, my_pid)));
    EXPECT_TRUE(object.store_pid_to_shm(0));
    EXPECT_THAT(find(), ElementsAre(Pair(0, my_pid)));
}

TEST_F(registry_entries, Shows_the_last_of_those_that_have_no_key) {
    const registry_member first("program", 0);
    const registry_member second("program", 0);
    registry_member third("program", 0);
    EXPECT_TRUE(third.is_registered());
    EXPECT_EQ(registry_object("program").count(), 3);
    EXPECT_THAT(find(), ElementsAre(Pair(0, third.pid())));
    third.end();
    EXPECT_THAT(find(), ElementsAre(Pair(0, second.pid())));
}

TEST_F(registry_entries, Shows_the_last_live_process_where_keys_collide) {
    registry_object bytes("program");
    registry_member ended("elsewhere", 1);
    ended.end();
    bytes.append(getppid(), 9);
    bytes.append(my_pid, 9);
    bytes.append(ended.pid(), 9);
    EXPECT_THAT(find(), ElementsAre(Pair(9, my_pid)));
}

TEST_F(registry_entries, Lists_no_process_that_has_ended) {
    registry_member first("program", 1);
    const registry_member second("program", 2);
    first.end();
    EXPECT_THAT(find(), ElementsAre(Pair(2, second.pid())));
}

TEST_F(registry_entries, Lists_an_ended_process_until_its_parent_has_reaped_it) {
    registry_member member("program", 1);
    member.end_unreaped();
    EXPECT_THAT(find(), ElementsAre(Pair(1, member.pid())));
    EXPECT_FALSE(object.store_pid_to_shm(1));
    member.end();
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_TRUE(object.store_pid_to_shm(1));
}

TEST_F(registry_entries, Keeps_the_entry_of_an_ended_process_until_the_next_registration) {
    registry_member first("program", 1);
    const registry_member second("program", 2);
    const registry_object bytes("program");
    first.end();
    find();
    EXPECT_EQ(bytes.count(), 2);
    EXPECT_EQ(bytes.pid(0), first.pid());

    EXPECT_TRUE(object.store_pid_to_shm(3));
    EXPECT_EQ(bytes.count(), 2);
    EXPECT_EQ(bytes.pid(0), second.pid());
    EXPECT_EQ(bytes.pid(1), my_pid);
}

TEST_F(registry_entries, Frees_the_key_of_a_process_that_has_ended) {
    registry_member first("program", 1);
    first.end();
    EXPECT_TRUE(object.store_pid_to_shm(1));
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid)));
}

TEST_F(registry_entries, Lists_no_process_that_the_caller_may_not_signal) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    EXPECT_TRUE(object.store_pid_to_shm(1));
    const shared_value<std::atomic<size_t>> found;
    forked_process stranger([this, &found] {
        if (setresuid(65534, 65534, 65534) != 0) {
            return 1;
        }
        *found = find().size();
        return 0;
    });
    EXPECT_EQ(stranger.wait_for_end(), 0);
    EXPECT_EQ(*found, 0U);
    EXPECT_EQ(find().size(), 1U);
}

TEST_F(registry_entries, Is_open_to_a_user_who_may_not_change_it) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const shared_value<std::atomic<bool>> may_look;
    forked_process stranger([&may_look] {
        wait_until_without_loop([&] { return may_look->load(); });
        const named_object looker("looker");
        const bool is_found = setresuid(65534, 65534, 65534) == 0 &&
                              looker.find_stored_pid_from_shm("program").count(7) == 1;
        return is_found ? 0 : 1;
    });
    registry_object("program").append(stranger.pid(), 7);
    *may_look = true;
    EXPECT_EQ(stranger.wait_for_end(), 0);
}

TEST_F(registry_entries, Refuses_a_name_that_cannot_be_that_of_a_shared_object) {
    for (const std::string& name : {std::string("a/b"), std::string(300, 'x')}) {
        log.clear();
        named_object misnamed(name.c_str());
        EXPECT_FALSE(misnamed.store_pid_to_shm(1));
        EXPECT_THAT(log.lines(),
                    ElementsAre(error(name, "Failed to call shm_open @ store_pid_to_shm")));
        EXPECT_EQ(library_lock::value(), 1);
        EXPECT_EQ(misnamed.shm_lock_sem, nullptr);
        log.clear();
        EXPECT_THAT(find(name), IsEmpty());
        EXPECT_THAT(log.lines(), IsEmpty());
    }
}

TEST_F(registry_entries, Refuses_an_object_that_holds_the_lock_and_leaves_it_the_hold) {
    ASSERT_TRUE(object.shm_lock());
    EXPECT_FALSE(object.store_pid_to_shm(1));
    EXPECT_NE(object.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), 0);
    EXPECT_FALSE(std::filesystem::exists("/dev/shm/vask_proc_pid_program"));
    EXPECT_THAT(log.lines(),
                ElementsAre(error("program", "Recursive lock request"),
                            error("program", "Failed lock shm (shm_name:vask_proc_pid_program)")));
    object.shm_unlock();
    EXPECT_TRUE(object.store_pid_to_shm(1));
}

TEST_F(registry_entries, Refuses_everybody_while_the_lock_cannot_be_used) {
    std::filesystem::create_directory(library_lock::path);
    EXPECT_FALSE(object.store_pid_to_shm(1));
    EXPECT_THAT(log.lines(),
                ElementsAre(error("program", "Failed lock shm (shm_name:vask_proc_pid_program)")));
}

TEST_F(registry_entries, Mentions_a_registration_before_it_asks_for_the_lock) {
    vask_object::print_msg_level = VASK_P_DBG;
    ASSERT_TRUE(object.shm_lock());
    EXPECT_FALSE(object.store_pid_to_shm(1));
    object.shm_unlock();
    vask_object::print_msg_level = VASK_P_INFO;
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("DBG", "program", "store_pid_to_shm(" + std::to_string(my_pid) + ",0x1)"),
                    error("program", "Recursive lock request"),
                    error("program", "Failed lock shm (shm_name:vask_proc_pid_program)")));
}

TEST_F(registry_entries, Is_read_without_the_lock) {
    EXPECT_TRUE(object.store_pid_to_shm(1));
    ASSERT_TRUE(object.shm_lock());
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid)));
    object.shm_unlock();
}
