// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/interpose.h"
#include "support/library_lock_state.h"
#include "support/source_line.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char name[] = "test_sem";
constexpr char path[] = "/dev/shm/sem.test_sem";

int sem_wait_error = 0;
std::atomic<int> interruptions_of_wait{0};
int closed_nulls = 0;

int value_of(sem_t* sem) {
    int value = -1;
    sem_getvalue(sem, &value);
    return value;
}

class named_sem : public testing::Test {
protected:
    ~named_sem() override { sem_wait_error = 0; }

    static testing::Matcher<const log_line&> failure(const std::string& text) {
        return logged("ERR", "vask", from_line_of("vask_object_sem", text));
    }

    shared_objects_removed cleanup;
    log_catcher log;
};

class unnamed_sem {
public:
    explicit unnamed_sem(unsigned int value) { sem_init(&m_sem, 0, value); }
    ~unnamed_sem() { sem_destroy(&m_sem); }
    sem_t* get() { return &m_sem; }

private:
    sem_t m_sem;
};

}  // namespace

// The C library may rely on getting a semaphore.
extern "C" int sem_close(sem_t* sem) noexcept {
    volatile sem_t* const given = sem;
    closed_nulls += given == nullptr;
    return next_function<int(sem_t*)>("sem_close")(sem);
}

extern "C" int sem_wait(sem_t* sem) {
    if (sem_wait_error != 0) {
        errno = sem_wait_error;
        return -1;
    }
    const int result = next_function<int(sem_t*)>("sem_wait")(sem);
    if (result != 0 && errno == EINTR) {
        ++interruptions_of_wait;
        errno = EINTR;
    }
    return result;
}

TEST_F(named_sem, Is_created_with_its_count) {
    sem_t* sem = vask_object::create_named_sem(name, 1, 1);
    ASSERT_NE(sem, nullptr);
    EXPECT_EQ(value_of(sem), 1);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(vask_object::close_named_sem(sem));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(named_sem, Keeps_its_count_when_it_exists) {
    sem_t* first = vask_object::create_named_sem(name, 1, 1);
    sem_t* second = vask_object::create_named_sem(name, 0, 1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(value_of(second), 1);
    sem_t* third = vask_object::create_named_sem(name, 7, 9);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(value_of(third), 1);
    for (sem_t* sem : {first, second, third}) {
        EXPECT_TRUE(vask_object::close_named_sem(sem));
    }
}

TEST_F(named_sem, Uses_the_maximum_count_for_nothing_but_a_check) {
    sem_t* sem = vask_object::create_named_sem(name, 0, 1);
    ASSERT_NE(sem, nullptr);
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(vask_object::vask_sem_post(sem));
    }
    EXPECT_EQ(value_of(sem), 3);
    EXPECT_TRUE(vask_object::close_named_sem(sem));
}

TEST_F(named_sem, Is_open_to_all_users_under_the_umask) {
    const mode_t before = umask(0);
    vask_object::close_named_sem(vask_object::create_named_sem(name, 1, 1));
    umask(022);
    vask_object::close_named_sem(vask_object::create_named_sem("test_masked", 1, 1));
    umask(before);
    struct stat info;
    ASSERT_EQ(stat(path, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0666U);
    ASSERT_EQ(stat("/dev/shm/sem.test_masked", &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644U);
}

TEST_F(named_sem, Is_not_created_with_more_than_the_maximum) {
    EXPECT_EQ(vask_object::create_named_sem(name, 2, 1), nullptr);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_THAT(log.lines(), ElementsAre(failure("init_count(2) > max_count(1)")));
}

TEST_F(named_sem, Is_not_created_with_a_negative_count) {
    EXPECT_EQ(vask_object::create_named_sem(name, -1, 1), nullptr);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_THAT(log.lines(), ElementsAre(failure("Failed to call sem_open(): 22")));
}

TEST_F(named_sem, Is_not_created_under_an_impossible_name) {
    EXPECT_EQ(vask_object::create_named_sem("test_a/b", 1, 1), nullptr);
    EXPECT_EQ(vask_object::create_named_sem(std::string(300, 'x').c_str(), 1, 1), nullptr);
    // C libraries disagree about the second.
    EXPECT_THAT(log.lines(), ElementsAre(failure("Failed to call sem_open(): 22"),
                                         testing::AnyOf(failure("Failed to call sem_open(): 22"),
                                                        failure("Failed to call sem_open(): 36"))));
}

TEST_F(named_sem, Of_another_size_is_refused) {
    // Semaphores of the other word size have half the size, or twice.
    for (const size_t size :
         {size_t{0}, sizeof(sem_t) / 2, sizeof(sem_t) - 1, sizeof(sem_t) + 1, sizeof(sem_t) * 2}) {
        log.clear();
        std::ofstream(path) << std::string(size, '\0');
        errno = 0;
        EXPECT_EQ(vask_object::create_named_sem(name, 1, 1), nullptr) << size;
        EXPECT_EQ(std::filesystem::file_size(path), size);
        EXPECT_THAT(log.lines(), ElementsAre(failure("Failed to call sem_open(): 22")));
    }
}

// The C library would end the process over them: the one that waits, or the one that gives back.
TEST_F(named_sem, Whose_file_holds_other_bytes_is_refused) {
    std::ofstream(path) << std::string(sizeof(sem_t), '\xc0');
    errno = 0;
    EXPECT_EQ(vask_object::create_named_sem(name, 1, 1), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(failure("Failed to call sem_open(): 22")));
}

TEST_F(named_sem, May_be_named_with_a_leading_slash) {
    sem_t* sem = vask_object::create_named_sem("/test_sem", 1, 1);
    ASSERT_NE(sem, nullptr);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(vask_object::close_named_sem(sem));
    std::ofstream(path, std::ios::trunc).close();
    EXPECT_EQ(vask_object::create_named_sem("/test_sem", 1, 1), nullptr);
}

TEST_F(named_sem, Stays_when_its_handle_is_closed) {
    vask_object::close_named_sem(vask_object::create_named_sem(name, 0, 1));
    sem_t* again = vask_object::create_named_sem(name, 1, 1);
    EXPECT_EQ(value_of(again), 0);
    vask_object::close_named_sem(again);
}

TEST_F(named_sem, Cannot_be_closed_when_it_is_not_open) {
    unnamed_sem sem(0);
    EXPECT_FALSE(vask_object::close_named_sem(sem.get()));
    EXPECT_THAT(log.lines(), ElementsAre(failure("Failed to call sem_close(): Invalid argument")));
}

TEST_F(named_sem, Cannot_be_closed_when_there_is_none) {
    EXPECT_FALSE(vask_object::close_named_sem(nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(failure("Failed to call sem_close(): Invalid argument")));
    EXPECT_EQ(closed_nulls, 0);
}

TEST_F(named_sem, Is_destroyed_by_name) {
    sem_t* sem = vask_object::create_named_sem(name, 1, 1);
    EXPECT_TRUE(vask_object::destroy_sem(name));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(vask_object::vask_sem_wait(sem));
    EXPECT_TRUE(vask_object::close_named_sem(sem));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(named_sem, Cannot_be_destroyed_when_there_is_none) {
    EXPECT_FALSE(vask_object::destroy_sem(name));
    EXPECT_THAT(
        log.lines(),
        ElementsAre(failure("Failed to call shm_unlink(test_sem): No such file or directory")));
}

TEST_F(named_sem, Is_waited_for_and_posted) {
    sem_t* sem = vask_object::create_named_sem(name, 2, 2);
    EXPECT_TRUE(vask_object::vask_sem_wait(sem));
    EXPECT_TRUE(vask_object::wait_named_sem(sem));
    EXPECT_EQ(value_of(sem), 0);
    EXPECT_TRUE(vask_object::vask_sem_post(sem));
    EXPECT_TRUE(vask_object::post_named_sem(sem));
    EXPECT_EQ(value_of(sem), 2);
    EXPECT_TRUE(vask_object::close_named_sem(sem));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(named_sem, Wakes_another_process_that_waits) {
    const shared_value<std::atomic<bool>> woken;
    sem_t* sem = vask_object::create_named_sem(name, 0, 1);
    forked_process waiter([&woken] {
        sem_t* own = vask_object::create_named_sem(name, 0, 1);
        *woken = vask_object::vask_sem_wait(own);
        return *woken ? 0 : 1;
    });
    EXPECT_FALSE(*woken);
    EXPECT_TRUE(vask_object::vask_sem_post(sem));
    EXPECT_EQ(waiter.wait_for_end(), 0);
    EXPECT_EQ(value_of(sem), 0);
    EXPECT_TRUE(vask_object::close_named_sem(sem));
}

TEST_F(named_sem, That_is_null_is_neither_waited_for_nor_posted) {
    EXPECT_FALSE(vask_object::vask_sem_wait(nullptr));
    EXPECT_FALSE(vask_object::vask_sem_post(nullptr));
    EXPECT_FALSE(vask_object::wait_named_sem(nullptr));
    EXPECT_FALSE(vask_object::post_named_sem(nullptr));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(named_sem, Is_waited_for_again_when_a_signal_interrupts_the_wait) {
    struct sigaction action = {};
    struct sigaction before;
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &before);
    const itimerval period = {{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &period, nullptr);

    const shared_value<std::atomic<bool>> may_post;
    sem_t* sem = vask_object::create_named_sem(name, 0, 1);
    forked_process poster([&] {
        wait_until_without_loop([&] { return may_post->load(); });
        return vask_object::vask_sem_post(sem) ? 0 : 1;
    });
    std::atomic<bool> ended{false};
    std::thread watcher([&] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        wait_until_without_loop([&] { return ended || interruptions_of_wait >= 3; });
        *may_post = true;
    });
    EXPECT_TRUE(vask_object::vask_sem_wait(sem));
    ended = true;
    watcher.join();

    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_GE(interruptions_of_wait, 3);
    EXPECT_EQ(poster.wait_for_end(), 0);
    EXPECT_TRUE(vask_object::close_named_sem(sem));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(named_sem, Reports_a_wait_that_fails) {
    unnamed_sem sem(1);
    sem_wait_error = EINVAL;
    EXPECT_FALSE(vask_object::vask_sem_wait(sem.get()));
    EXPECT_FALSE(vask_object::wait_named_sem(sem.get()));
    EXPECT_THAT(log.lines(), ElementsAre(failure("Failed to sem_wait(): 22"),
                                         failure("Failed to sem_wait(): 22")));
}

TEST_F(named_sem, Reports_a_post_that_fails) {
    unnamed_sem sem(SEM_VALUE_MAX);
    EXPECT_FALSE(vask_object::vask_sem_post(sem.get()));
    EXPECT_FALSE(vask_object::post_named_sem(sem.get()));
    EXPECT_THAT(log.lines(), ElementsAre(failure("Failed to sem_post(): 75"),
                                         failure("Failed to sem_post(): 75")));
}
