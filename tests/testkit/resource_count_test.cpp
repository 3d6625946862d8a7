// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/resource_count.h"

#include <fcntl.h>
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vask_test/googletest.h"

using namespace vask_test;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

gboolean never(gpointer) {
    return G_SOURCE_REMOVE;
}

std::string difference_to_now(const resource_count& before) {
    return before.difference(resource_count::take());
}

const testing::TestInfo& current_test() {
    return *testing::UnitTest::GetInstance()->current_test_info();
}

}  // namespace

TEST(resource_count, Is_the_same_when_nothing_happened) {
    EXPECT_EQ(difference_to_now(resource_count::take()), "");
}

TEST(resource_count, Sees_descriptors) {
    const resource_count before = resource_count::take();
    const int fd = open("/dev/zero", O_RDONLY);
    EXPECT_EQ(difference_to_now(before), "additional descriptor: /dev/zero\n");
    const resource_count between = resource_count::take();
    const int second = dup(fd);
    EXPECT_EQ(difference_to_now(between), "additional descriptor: /dev/zero\n");
    close(second);
    close(fd);
    EXPECT_EQ(difference_to_now(between), "missing descriptor: /dev/zero\n");
    EXPECT_EQ(difference_to_now(before), "");
}

TEST(resource_count, Sees_children_also_when_dead) {
    const resource_count before = resource_count::take();
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(0);
    }
    siginfo_t info;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    EXPECT_THAT(difference_to_now(before), StartsWith("additional child: " + std::to_string(pid)));
    waitpid(pid, nullptr, 0);
    EXPECT_EQ(difference_to_now(before), "");
}

TEST(resource_count, Sees_shared_objects) {
    const resource_count before = resource_count::take();
    close(shm_open("/resource_count_test", O_CREAT | O_RDWR, 0600));
    EXPECT_EQ(difference_to_now(before), "additional shared object: resource_count_test\n");
    shm_unlink("/resource_count_test");
    EXPECT_EQ(difference_to_now(before), "");
}

TEST(resource_count, Sees_sources_of_the_default_main_context) {
    const resource_count before = resource_count::take();
    const guint named = g_timeout_add_seconds(1000, never, nullptr);
    g_source_set_name_by_id(named, "a timeout");
    const guint other = g_idle_add(never, nullptr);
    g_source_set_name_by_id(other, "an idle source");
    EXPECT_EQ(difference_to_now(before),
              "additional main loop source: a timeout\n"
              "additional main loop source: an idle source\n");
    g_source_remove(other);
    EXPECT_EQ(difference_to_now(before), "additional main loop source: a timeout\n");
    g_source_remove(named);
    EXPECT_EQ(difference_to_now(before), "");
}

TEST(leak_listener, Fails_the_test_that_leaks) {
    static leak_listener listener;
    listener.OnTestStart(current_test());
    static int fd;
    fd = open("/dev/zero", O_RDONLY);
    EXPECT_NONFATAL_FAILURE(listener.OnTestEnd(current_test()), "additional descriptor: /dev/zero");
    close(fd);
    listener.OnTestEnd(current_test());
}

TEST(leak_listener, Can_be_told_to_accept_leftovers) {
    leak_listener listener;
    listener.OnTestStart(current_test());
    const int fd = open("/dev/zero", O_RDONLY);
    leak_listener::accept_leftovers();
    listener.OnTestEnd(current_test());
    close(fd);
}

TEST(resource_count, Can_leave_out_what_the_library_keeps_for_all) {
    resource_count count;
    count.shared_objects = {"meter_last",          "sem.vask_shm_context_sem_meter",
                            "sem.vask_shm_lock",   "sem.vask_shm_context_sem_vask_shared_info",
                            "vask_proc_pid_meter", "vask_shared_info"};
    EXPECT_THAT(count.without_library_objects().shared_objects,
                testing::ElementsAre("meter_last", "sem.vask_shm_context_sem_meter"));
}

TEST(leak_listener, Can_accept_what_the_library_keeps_for_all) {
    leak_listener strict(library_objects::are_leaks), mild;
    strict.OnTestStart(current_test());
    mild.OnTestStart(current_test());
    close(shm_open("/vask_proc_pid_of_a_test", O_CREAT | O_RDWR, 0600));
    mild.OnTestEnd(current_test());
    EXPECT_NONFATAL_FAILURE(strict.OnTestEnd(current_test()), "vask_proc_pid_of_a_test");
    shm_unlink("/vask_proc_pid_of_a_test");
}
